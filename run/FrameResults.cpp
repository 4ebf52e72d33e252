#include "run/FrameResults.h"

#include "host/files/FrameFiles.h"

namespace orlix {

Status FrameResults::BeforeRun(const RunState& state) {
  if (!output_) output_ = std::make_unique<FrameOutput>(state.document, state.outputFolder);
  return {};
}

Status FrameResults::ContinueBehind(int frame, const FramePlan& plan, BaseDocument& document,
                                    const std::string& outputFolder) {
  output_ = std::make_unique<FrameOutput>(document, outputFolder);
  while (frame >= plan.first && !(plan.Wants(frame) && output_->WritesVelocities(frame))) frame--;
  if (frame < plan.first) return {};
  if (Status moved = document.SetTime(BaseTime::OfFrame(frame, document.fps)); !moved.ok()) return moved;
  output_->RememberMeshes();
  return {};
}

Status FrameResults::AfterFrame(const RunState& state) {
  if (!state.wanted) return {};
  if (outputs_) {
    if (Status status = output_->WriteFrame(state.hook, state.frame); !status) return status;
    files_ += output_->written().size();
  }
  const std::filesystem::path folder =
      always_ ? std::filesystem::path(state.outputFolder) : output_->PictureFolder(state.frame);
  if (!always_ && folder.empty()) return {};
  if (Status made = CreateFolders(folder); !made) return made;
  Status status = maker_.Make(state, folder);
  files_ += maker_.written().size();
  return status;
}

}  // namespace orlix
