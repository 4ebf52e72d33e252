#include "run/PictureMaker.h"

#include <algorithm>

#include "exchange/SliceView.h"
#include "fluids/volume_renderer/GasMaterial.h"
#include "host/files/FrameFiles.h"
#include "host/pictures/PictureFile.h"
#include "host/render/GatherRenderWorld.h"

namespace orlix {

namespace {

constexpr int kFrameDigits = 4;

std::filesystem::path PathOf(const std::filesystem::path& folder, const std::string& name, int frame,
                             const char* extension) {
  return folder / (name + "." + PadNumber(frame, kFrameDigits) + extension);
}

}  // namespace

Status PictureMaker::Make(const RunState& state, const std::filesystem::path& folder) {
  written_.clear();
  return options_.slices ? MakeSlices(state, folder) : Render(state, folder);
}

Status PictureMaker::MakeSlices(const RunState& state, const std::filesystem::path& folder) {
  for (const auto& [key, scene] : state.hook.scenes()) {
    const Picture picture = DrawSliceView(*scene);
    if (picture.pixelCount() == 0) continue;
    const auto path = PathOf(folder, "preview_" + std::to_string(key), state.frame, ".png");
    if (Status status = WritePicture(path, picture); !status) return status;
    written_.push_back(path);
  }
  return {};
}

Status PictureMaker::Render(const RunState& state, const std::filesystem::path& folder) {
  const auto materials = CollectGasMaterials(state.document, state.hook);
  GatherOptions gather;
  gather.width = options_.width, gather.height = options_.height;
  for (const auto& material : materials) {
    Vec3D low, high;
    if (!material->Bounds(low, high)) continue;
    const bool first = gather.boxLow.x > gather.boxHigh.x;
    gather.boxLow = first ? low : Min(gather.boxLow, low);
    gather.boxHigh = first ? high : Max(gather.boxHigh, high);
  }
  RenderWorld world;
  if (Status gathered = GatherRenderWorld(state.document, gather, world); !gathered) return gathered;
  for (const auto& material : materials) world.volumes.push_back(material.get());
  RenderOptions render;
  render.time = state.document.time().Seconds();
  render.thread = thread_;
  const Result<Picture> picture = RenderPicture(world, state.pool, render, &report_);
  if (!picture) return picture.error();
  if (report_.broken) return {};
  const RenderSettings& settings = world.settings;
  for (const auto& [wanted, extension] : {std::pair(settings.writeExr, ".exr"), std::pair(settings.writePng, ".png")}) {
    if (!wanted) continue;
    const auto path = PathOf(folder, settings.name, state.frame, extension);
    if (Status status = WritePicture(path, *picture, settings.exposure); !status) return status;
    written_.push_back(path);
  }
  return {};
}

}  // namespace orlix
