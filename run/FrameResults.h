#pragma once
// Writes what the scene's outputs ask for, each time a wanted frame is whole.

#include <memory>

#include "exchange/FrameOutput.h"
#include "run/FrameListener.h"
#include "run/PictureMaker.h"
#include "run/ResultRecord.h"
#include "run/SceneRun.h"

namespace orlix {

class FrameResults : public FrameListener {
 public:
  enum class Pictures { AsAskedFor, OfEveryFrame };  // by outputs; or of every wanted frame, and no other results
  FrameResults(const BaseThread* thread, Pictures which, const PictureOptions& options)
      : always_(which == Pictures::OfEveryFrame), outputs_(!always_), maker_(options, thread) {}

  // Before a checkpoint's state is restored: the run will go on after this frame, whose results are there. Moves the
  // document's time.
  Status ContinueBehind(int frame, const FramePlan& plan, BaseDocument& document, const std::string& outputFolder);
  // What is made goes into the record, which must have begun.
  void KeepRecord(ResultRecord& record, const std::vector<Pass>& passes, std::uint64_t simulation) {
    record_ = &record, passes_ = &passes, simulation_ = simulation;
  }
  Status BeforeRun(const RunState& state) override;
  Status BeforeFrame(const RunState& state) override;
  Status AfterFrame(const RunState& state) override;
  Status AfterRun(const RunState& state) override {
    if (!state.interrupted) maker_.TellEmpty(state);
    return {};
  }
  std::size_t files() const { return files_; }
  // How many frames have a picture.
  std::size_t pictures() const { return pictures_; }

 private:
  std::vector<std::filesystem::path> PictureFolders(const RunState& state) const;
  Status MakePicture(const RunState& state);
  Status Record(const RunState& state);

  bool always_, outputs_;
  PictureMaker maker_;
  std::unique_ptr<FrameOutput> output_;
  std::size_t files_ = 0, pictures_ = 0;
  bool madePicture_ = false;  // of the current frame
  ResultRecord* record_ = nullptr;
  const std::vector<Pass>* passes_ = nullptr;
  std::uint64_t simulation_ = 0;
};

}  // namespace orlix
