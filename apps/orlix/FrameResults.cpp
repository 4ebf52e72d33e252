#include "apps/orlix/FrameResults.h"

#include "host/files/FrameFiles.h"

namespace orlix {

Status FrameResults::BeforeRun(const RunState& state) {
  output_ = std::make_unique<FrameOutput>(state.document, state.outputFolder);
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
