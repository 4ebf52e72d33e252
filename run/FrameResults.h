#pragma once
// Writes what the scene's outputs ask for, each time a wanted frame is whole.

#include <memory>

#include "exchange/FrameOutput.h"
#include "run/FrameListener.h"
#include "run/PictureMaker.h"
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
  Status BeforeRun(const RunState& state) override;
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

  bool always_, outputs_;
  PictureMaker maker_;
  std::unique_ptr<FrameOutput> output_;
  std::size_t files_ = 0, pictures_ = 0;
};

}  // namespace orlix
