#include "run/PictureMaker.h"

#include <fmt/format.h>

#include <algorithm>

#include "exchange/FrameOutput.h"
#include "exchange/SliceView.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/particle_renderer/ParticlePicture.h"
#include "fluids/volume_renderer/GasMaterial.h"
#include "fluids/volume_renderer/SceneSampler.h"
#include "host/pictures/PictureFile.h"
#include "host/render/GatherRenderWorld.h"
#include "host/render/LegendBar.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

bool WantsVelocities(const BaseDocument& document) {
  const std::vector<BaseObject*> settings = document.ObjectsOfType(kRenderSettingsId);
  if (settings.empty()) return false;
  const BaseObject& render = *settings.front();
  return render.GetBool(kRenderVelocityId) || render.GetBool(kRenderLayersId) || render.GetDouble(kRenderShutterId) > 0;
}

}  // namespace

Status PictureMaker::Make(const RunState& state, const std::vector<fs::path>& folders) {
  written_.clear();
  return options_.slices ? MakeSlices(state, folders) : Render(state, folders);
}

Status PictureMaker::Write(const Picture& picture, const fs::path& path, const PictureView& view) {
  Status status = WritePicture(path, picture, view);
  if (status.ok()) written_.push_back(path);
  return status;
}

Status PictureMaker::MakeSlices(const RunState& state, const std::vector<fs::path>& folders) {
  for (const auto& [key, scene] : state.hook.scenes()) {
    const Picture picture = DrawSliceView(*scene);
    if (picture.pixelCount() == 0) continue;
    const std::string name = PictureName(state.document) + kPreviewSuffix + SceneSuffix(*scene->GetHostObject());
    for (const fs::path& folder : folders) {
      if (Status status = Write(picture, ResultPath(folder, name, state.frame, ".png")); !status) return status;
    }
  }
  return {};
}

namespace {

bool HoldsSomething(const OrlixHook& hook) {
  bool found = false;
  for (const auto& [key, scene] : hook.scenes()) {
    scene->ForEachNode(NODE_CHANNEL, NODE_CHANNEL, [&](iBase& node) {
      const auto* channel = dynamic_cast<ChannelBase_Scalar*>(&node);
      const ScalarGrid* grid = channel ? channel->grid.get() : nullptr;
      for (std::int64_t n = 0; grid && n < grid->count && !found; ++n) found = (*grid)[n] > 0;
    });
  }
  return found;
}

}  // namespace

// A picture without the gas that is there says why.
void PictureMaker::TellUnseen(const RunState& state, const std::vector<std::unique_ptr<GasMaterial>>& materials) {
  if (materials.empty()) {
    if (!hadGas_ && HoldsSomething(state.hook)) {
      hadGas_ = true;
      state.warnings.Tell(
          {"pictures", "no-gas-material",
           "channels hold something that no picture shows; add { \"type\": \"gas\", \"density\": CHANNEL } to "
           "\"materials\"",
           state.frame});
    }
    return;
  }
  for (const auto& material : materials) {
    Vec3D low, high;
    const bool holds = material->ContentBounds(low, high);
    if (!hadGas_ && !holds) emptyMaterial_ = material->Path();
    hadGas_ |= holds;
    if (!holds || report_.volumeSamples > 0) continue;
    state.warnings.Tell({material->Path(), "gas-unseen",
                         fmt::format("the camera doesn't see its gas; turn it to ({:.4g}, {:.4g}, {:.4g}) to ({:.4g}, "
                                     "{:.4g}, {:.4g}), or set its \"near\" and \"far\" around that",
                                     low.x, low.y, low.z, high.x, high.y, high.z),
                         state.frame});
  }
}

void PictureMaker::TellEmpty(const RunState& state) const {
  if (hadGas_ || emptyMaterial_.empty()) return;
  state.warnings.Tell(
      {emptyMaterial_, "gas-empty",
       "no picture shows gas, its channels were empty in all of them; link the channel that an emitter fills",
       state.frame});
}

Status PictureMaker::Render(const RunState& state, const std::vector<fs::path>& folders) {
  const auto materials = CollectGasMaterials(state.document, state.hook);
  for (const auto& material : materials) material->Advise(state.warnings, state.frame);
  const StartedSamplers samplers(state.document, state.hook, state.pool);
  const bool velocities = WantsVelocities(state.document);
  Result<ParticlePicture> particles =
      MakeParticlePicture(state.document, state.hook, state.pool, velocities, state.warnings, state.frame);
  if (!particles) return particles.error();
  GatherOptions gather;
  gather.width = options_.width, gather.height = options_.height;
  gather.boxLow = particles->low, gather.boxHigh = particles->high;
  for (const auto& material : materials) {
    Vec3D low, high;
    if (!material->Bounds(low, high)) continue;
    const bool first = gather.boxLow.x > gather.boxHigh.x;
    gather.boxLow = first ? low : Min(gather.boxLow, low);
    gather.boxHigh = first ? high : Max(gather.boxHigh, high);
  }
  if (!options_.box.Empty()) gather.boxLow = options_.box.low, gather.boxHigh = options_.box.high;
  RenderWorld world;
  if (Status gathered = GatherRenderWorld(state.document, gather, world); !gathered) return gathered;
  if (options_.samples > 0) world.settings.samples = options_.samples, world.settings.mostSamples = 0;
  for (const auto& material : materials) world.volumes.push_back(material.get());
  world.points = std::move(particles->clouds);
  RenderOptions render;
  render.time = state.document.time().Seconds();
  render.thread = thread_;
  render.crop = options_.crop;
  render.onProgress = options_.onProgress;
  const Picture unfinished = options_.work ? options_.work->Unfinished(state.frame) : Picture();
  if (unfinished.pixelCount() > 0) render.unfinished = &unfinished;
  Result<Picture> picture = RenderPicture(world, state.pool, render, &report_);
  if (!picture) return picture.error();
  if (const Error* failure = state.hook.Failure()) return *failure;  // of a constraint that a material asked
  if (report_.broken) {
    return options_.work && report_.tilesDone > 0 ? options_.work->KeepUnfinished(*picture, state.frame) : Status();
  }
  if (world.points.empty() || !materials.empty()) TellUnseen(state, materials);
  const RenderSettings& settings = world.settings;
  const PictureView view{settings.view.exposure, options_.view.value_or(settings.view.transform)};
  // OpenEXR first: its pictures go on to be composed, and have no legend.
  for (const auto& [wanted, extension] : {std::pair(settings.writeExr, ".exr"), std::pair(settings.writePng, ".png")}) {
    if (!wanted) continue;
    if (extension == std::string_view(".png")) DrawLegends(particles->legends, view.exposure, *picture);
    for (const fs::path& folder : folders) {
      const fs::path path = ResultPath(folder, settings.name, state.frame, extension);
      if (Status status = Write(*picture, path, view); !status) return status;
    }
  }
  if (options_.work) options_.work->ForgetUnfinished(state.frame);
  return {};
}

}  // namespace orlix
