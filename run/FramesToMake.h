#pragma once
// Which frames of a plan have to be made, by the record of what is there.

#include <string>
#include <vector>

#include "run/ResultRecord.h"
#include "run/SceneRun.h"

namespace orlix {

struct FrameToMake {
  int frame = 0;
  std::string reason;
};

// Moves the document's time. simulation: as for OriginOf.
Result<std::vector<FrameToMake>> FramesToMake(Engine& engine, BaseDocument& document, WorkerPool& pool,
                                              const FramePlan& plan, const std::vector<Pass>& passes,
                                              const ResultRecord& record, std::uint64_t simulation);
// All frames whose results a plan wants.
std::vector<int> WantedFrames(const FramePlan& plan);

}  // namespace orlix
