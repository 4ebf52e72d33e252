#pragma once
// Makes a picture of a RenderWorld. Tiles of the picture are worked off by all workers; each tile has random numbers of
// its own, so that the picture has the same bits at any number of workers.

#include <cstdint>
#include <functional>

#include "globals/Result.h"
#include "host/pictures/Picture.h"
#include "host/render/RenderWorld.h"

namespace orlix {

struct RenderProgress {
  double fraction = 0;  // 0 to 1
  double elapsedSeconds = 0;
  double secondsLeft = 0;  // an estimate; negative until there is one
};

// A part of a picture, in pixels; right and bottom lie outside of it. Empty: all of it.
struct PictureCrop {
  int left = 0, top = 0, right = 0, bottom = 0;
  bool Empty() const { return right <= left || bottom <= top; }
};

struct RenderOptions {
  double time = 0;  // seconds, for what moves
  bool preview = false;
  PictureCrop crop{};  // the picture holds this part, with the same values as the whole one
  // The unfinished picture of the same world and crop: its tiles aren't made again.
  const Picture* unfinished = nullptr;
  // Called now and then on the calling thread, at least at the end.
  std::function<void(const RenderProgress&)> onProgress;
  const BaseThread* thread = nullptr;
  StatusLine* status = nullptr;
};

struct RenderReport {
  double startSeconds = 0;  // what volumes took before the first ray
  double raySeconds = 0;
  std::uint64_t cameraRays = 0, shadowRays = 0, gatherRays = 0, volumeCalls = 0, volumeSamples = 0;
  std::uint64_t notFinite = 0;     // samples that were no number and count as black
  std::uint64_t pixelSamples = 0;  // of all pixels that were made
  int tiles = 0, tilesDone = 0;
  bool broken = false;  // stopped half-way: the picture is whole in its channel kDoneChannel where that is 1
};

inline constexpr int kTileSize = 32;

inline constexpr const char* kDoneChannel = "tile.done";

// The picture with the channels R, G, B, A, Z (depth along the view axis; far where there is nothing), and with
// settings.writeVelocity velocity.X, .Y, .Z in host units a second. With settings.writeLayers also gas.R, .G, .B, .A,
// surfaces.R, .G, .B and emission.R, .G, .B, all as the picture shows them behind what is in front, and motion.X, .Y in
// pixels a frame.
Result<Picture> RenderPicture(const RenderWorld& world, WorkerPool& workers, const RenderOptions& options,
                              RenderReport* report = nullptr);

}  // namespace orlix
