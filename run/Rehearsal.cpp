#include "run/Rehearsal.h"

#include <algorithm>

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/particle_renderer/ParticlePicture.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volume_renderer/GasMaterial.h"

namespace orlix {

namespace {

constexpr double kCoarser = 2;

class BoxListener : public FrameListener {
 public:
  FramedBox box;

  Status AfterFrame(const RunState& state) override {
    if (!state.wanted) return {};
    for (const auto& material : CollectGasMaterials(state.document, state.hook)) {
      FramedBox content;
      if (!material->ContentBounds(content.low, content.high, &content.density)) continue;
      box.Add(content.low), box.Add(content.high);
      box.density = std::max(box.density, content.density);
    }
    Warnings unheard;
    const Result<ParticlePicture> particles =
        MakeParticlePicture(state.document, state.hook, state.pool, /*velocities=*/false, unheard, state.frame);
    if (!particles) return particles.error();
    for (const PointCloud& cloud : particles->clouds) {
      for (const PointCloud::Point& point : cloud.points) box.Add(cloud.origin + Vec3D(point.position));
    }
    return {};
  }
};

}  // namespace

bool WantsRehearsal(const BaseDocument& document) {
  bool camera = false;
  document.ForEachObject([&](const BaseObject& object) { camera |= object.type().role == TypeRole::Camera; });
  return !camera;
}

FramedBox Rehearse(Engine& engine, BaseDocument& document, WorkerPool& pool, const FramePlan& plan) {
  for (const CacheFiles& cache : RecordedCaches(document)) {
    document.RemoveObject(*document.FindObject(cache.object->creationNumber()));
  }
  for (BaseObject* root : document.ObjectsOfType(kRootTypeId)) {
    for (const int row : {RootSettings::kVoxelSizeId, RootSettings::kRenderVoxelSizeId})
      root->Set(row, root->GetDouble(row) * kCoarser);
  }
  SceneRun run(engine, document, pool, {});
  run.TellNothing();  // coarse cells lose what fine ones show
  BoxListener listener;
  run.AddListener(listener);
  return run.Run(plan).ok() ? listener.box : FramedBox();
}

}  // namespace orlix
