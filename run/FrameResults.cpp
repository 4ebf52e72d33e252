#include "run/FrameResults.h"

#include <fmt/format.h>

#include <system_error>

#include "exchange/OutputType.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "host/files/FrameFiles.h"
#include "run/Passes.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

// A run is no rendering: surfaces that are left to those aren't in its results.
void TellLeftOut(const RunState& state) {
  const std::vector<BaseObject*> outputs = state.document.ObjectsOfType(OutputSettings::Type().id);
  bool pictures = false, meshes = false;
  for (const BaseObject* object : outputs) {
    const OutputSettings output = OutputSettings::Read(*object);
    pictures |= output.pictures, meshes |= output.meshes != MeshOutput::None;
  }
  for (const BaseObject* mesher : state.document.ObjectsOfType(ImplicitMesher::Type().id)) {
    if (!meshes && !(pictures && mesher->GetBool(kShownInPicturesId))) continue;
    const BaseObject* left = LeftToRenderings(*mesher);
    if (!left) continue;
    state.warnings.Tell(
        {mesher->Path(), "render-only",
         fmt::format("the results of a run don't have it, as render_only leaves {} to renderings; turn that off, or "
                     "make pictures by orlix render",
                     left == mesher ? "it" : "\"" + left->Path() + "\""),
         state.startFrame});
  }
}

}  // namespace

Status FrameResults::BeforeRun(const RunState& state) {
  if (outputs_ && !state.standsAlone) TellLeftOut(state);
  if (!output_) output_ = std::make_unique<FrameOutput>(state.document, state.outputFolder);
  return {};
}

Status FrameResults::ContinueBehind(int frame, const FramePlan& plan, BaseDocument& document,
                                    const std::string& outputFolder) {
  output_ = std::make_unique<FrameOutput>(document, outputFolder);
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

// The velocity of a mesh in a frame that stands alone: from its points in the frame before, which wasn't made.
Status FrameResults::BeforeFrame(const RunState& state) {
  if (!state.standsAlone || !outputs_ || state.frame <= state.firstFrame) return {};
  BaseDocument& document = state.document;
  if (Status moved = document.SetTime(BaseTime::OfFrame(state.frame - 1, document.fps)); !moved.ok()) return moved;
  output_->RememberMeshes();
  return {};
}

Status FrameResults::AfterFrame(const RunState& state) {
  if (outputs_) output_->RememberMeshes();
  if (!state.wanted) return {};
  if (outputs_) {
    if (Status status = output_->WriteFrame(state.hook, state.frame); !status) return status;
    files_ += output_->written().size();
  }
  if (Status status = MakePicture(state); !status) return status;
  return record_ ? Record(state) : Status();
}

Status FrameResults::MakePicture(const RunState& state) {
  const std::vector<fs::path> folders = PictureFolders(state);
  madePicture_ = !folders.empty();
  if (folders.empty()) return {};
  for (const fs::path& folder : folders) {
    if (Status made = CreateFolders(folder); !made) return made;
  }
  Status status = maker_.Make(state, folders);
  files_ += maker_.written().size();
  pictures_ += !maker_.written().empty();
  return status;
}

// The frames of caches that are recorded belong to what a run of passes makes; a simulation's have records of their
// own.
Status FrameResults::Record(const RunState& state) {
  RecordedFrame made;
  const auto add = [&](const fs::path& path, bool picture) {
    made.files.push_back(ResultFileOf(path, path.lexically_proximate(fs::path(state.outputFolder)).string(), picture));
  };
  for (const fs::path& path : output_->written()) add(path, false);
  for (const fs::path& path : madePicture_ ? maker_.written() : std::vector<fs::path>()) add(path, true);
  if (state.standsAlone) {
    if (Status flushed = FlushCaches(state.hook); !flushed) return flushed;
    for (const Cache_OperatorBase* cache : CachesThat(Cache_OperatorBase::CacheMode::Record, state.hook)) {
      if (cache->HasSaved()) add(cache->PathToSave(), false);
    }
  }
  made.origin = OriginOf(*passes_, state.document, state.hook, simulation_);
  return record_->Add(state.frame, std::move(made));
}

}  // namespace orlix
