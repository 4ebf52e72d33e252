#pragma once
// The particles of all scenes as clouds of points for the renderer, each group and kind by its material or, without
// one, by its kind. The same points at any number of workers.

#include <vector>

#include "fluids/scene/OrlixHook.h"
#include "host/render/PointCloud.h"

namespace orlix {

struct ParticlePicture {
  std::vector<PointCloud> clouds;
  std::vector<Legend> legends;
  // What a camera of the renderer's own choice should see: the solvers' containers, where there are none the points.
  // low lies above high when there is nothing.
  Vec3D low{1, 1, 1}, high{0, 0, 0};
};

// velocities: for the renderer's velocity channels. Memory when it doesn't suffice. Warnings are told of the frame.
Result<ParticlePicture> MakeParticlePicture(const BaseDocument& document, const OrlixHook& hook, WorkerPool& workers,
                                            bool velocities, Warnings& warnings, std::int32_t frame);

}  // namespace orlix
