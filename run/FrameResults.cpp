#include "run/FrameResults.h"

#include "host/files/FrameFiles.h"

namespace orlix {

namespace fs = std::filesystem;

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

std::vector<fs::path> FrameResults::PictureFolders(const RunState& state) const {
  if (!always_) return output_->PictureFolders(state.frame);
  std::vector<fs::path> folders = output_->PictureFolders(std::nullopt);
  if (folders.empty()) folders.emplace_back(state.outputFolder);
  return folders;
}

Status FrameResults::AfterFrame(const RunState& state) {
  if (!state.wanted) return {};
  if (outputs_) {
    if (Status status = output_->WriteFrame(state.hook, state.frame); !status) return status;
    files_ += output_->written().size();
  }
  const std::vector<fs::path> folders = PictureFolders(state);
  if (folders.empty()) return {};
  for (const fs::path& folder : folders) {
    if (Status made = CreateFolders(folder); !made) return made;
  }
  Status status = maker_.Make(state, folders);
  files_ += maker_.written().size();
  pictures_ += !maker_.written().empty();
  return status;
}

}  // namespace orlix
