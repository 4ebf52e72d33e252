#pragma once
// The statistics of a run, one JSON object a line: each sub-step of each scene, each frame with its sums, each warning.

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "run/FrameListener.h"

namespace orlix {

class Statistics : public FrameListener {
 public:
  // Of a file that is there, what was written of frames before startFrame stays: a run that goes on from a checkpoint
  // continues it. Output when the file can't be opened.
  static Result<std::unique_ptr<Statistics>> Open(const std::string& path, int startFrame);
  ~Statistics() override;

  bool WantsHash() const override { return true; }
  void AfterSubstep(const RunState& state, const SubstepReport& report) override;
  void OnWarning(const RunState& state, const Warning& warning) override;
  Status AfterFrame(const RunState& state) override;
  Status AfterRun(const RunState& state) override;

 private:
  // The sums of one scene in one frame.
  struct FrameSums {
    SubstepReport total;  // of its fields that add up or that the last sub-step decides
    int substeps = 0;
    std::map<std::int32_t, double> stages;
    std::map<std::string, double> nodes;
  };

  explicit Statistics(std::string path, std::FILE* file) : path_(std::move(path)), file_(file) {}
  void Write(const std::string& line);
  Status Flush();

  std::string path_;
  std::FILE* file_;
  int error_ = 0;  // errno of the first failed write
  std::map<std::string, FrameSums> sums_;
};

}  // namespace orlix
