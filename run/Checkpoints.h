#pragma once
// The checkpoints of a run: one each N frames and one on an interruption, in the folder of its results. The last two
// are kept.

#include <filesystem>
#include <optional>
#include <vector>

#include "run/Checkpoint.h"
#include "run/FrameListener.h"

namespace orlix {

class Checkpoints : public FrameListener {
 public:
  struct Found {
    std::filesystem::path path;
    CheckpointHead head;
  };

  // every 0: none, not even on an interruption.
  Checkpoints(const std::filesystem::path& outputFolder, int every, std::uint64_t sceneHash)
      : folder_(outputFolder / kFolder), every_(every), sceneHash_(sceneHash) {}

  // The latest checkpoint that is whole; broken ones are told to the user and passed over. None when the folder has
  // none. Scene when it belongs to another scene.
  Result<std::optional<Found>> FindLatest() const;
  // The run goes on from this one: it counts as the last that was written.
  void ContinueFrom(const Found& found) { kept_ = {found.path}, last_ = found.head.frame; }
  // The frame of the last one of this run.
  std::optional<int> last() const { return last_; }

  Status BeforeRun(const RunState& state) override;
  // Must be the last listener: what a frame writes is there before a checkpoint says that it is.
  Status AfterFrame(const RunState& state) override;

  static constexpr const char* kFolder = "checkpoints";

 private:
  std::vector<std::filesystem::path> AllFiles() const;
  Status Write(const RunState& state);
  void RemoveOthers() const;

  std::filesystem::path folder_;
  int every_;
  std::uint64_t sceneHash_;
  std::vector<std::filesystem::path> kept_;  // newest last
  std::optional<int> last_;
};

}  // namespace orlix
