#include "run/FramesToMake.h"

#include <algorithm>

namespace orlix {

std::vector<int> WantedFrames(const FramePlan& plan) {
  std::vector<int> frames;
  for (std::int64_t frame = plan.first; frame <= plan.last; ++frame) {
    if (plan.Wants(static_cast<int>(frame))) frames.push_back(static_cast<int>(frame));
  }
  return frames;
}

Result<std::vector<FrameToMake>> FramesToMake(Engine& engine, BaseDocument& document, WorkerPool& pool,
                                              const FramePlan& plan, const std::vector<Pass>& passes,
                                              const ResultRecord& record, std::uint64_t simulation) {
  SceneRun run(engine, document, pool, {});
  if (AllStandAlone(passes)) run.StandAlone(NodesOf(passes));
  const bool caches = std::any_of(passes.begin(), passes.end(), [](const Pass& pass) { return !pass.caches.empty(); });
  std::vector<FrameToMake> frames;
  for (const int frame : WantedFrames(plan)) {
    if (Status moved = document.SetTime(BaseTime::OfFrame(frame, document.fps)); !moved) return moved.error();
    // Which file a cache plays is its node's to say.
    if (caches) run.hook().BuildScenes(document, plan.rendering);
    const FrameOrigin origin = OriginOf(passes, document, run.hook(), simulation);
    if (std::string reason = record.WhyMake(frame, origin); !reason.empty()) {
      frames.push_back({frame, std::move(reason)});
    }
  }
  return frames;
}

}  // namespace orlix
