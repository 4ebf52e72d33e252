#include "fluids/scene/Pipeline.h"

#include "fluids/scene/StageRunner.h"

namespace orlix {

std::vector<PipelineStage> ReadPipeline(OrlixScene& scene) {
  std::vector<PipelineStage> stages;
  const std::int32_t before = scene.stage;
  for (std::int32_t stage = kStageVolumes; stage <= kStageVisualPost; ++stage) {
    if (stage == kStageSaveCache || stage == kStageFinishSubstep) continue;
    scene.stage = stage;
    std::vector<iObject*> nodes = StageRunner(scene, false).Collect();
    if (nodes.empty()) continue;
    const std::int32_t previous = stages.empty() ? 0 : stages.back().stage;
    const bool isOneGroup = previous >= kStageFluidDynamics && stage <= kStageDynamicsPost;
    stages.push_back({stage, !stages.empty() && !isOneGroup, std::move(nodes)});
  }
  scene.stage = before;
  return stages;
}

}  // namespace orlix
