#pragma once
// The order in which a scene runs its nodes, for people: what works in which stage, and when within it.

#include <vector>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

struct PipelineStage {
  std::int32_t stage = 0;
  bool beginsGroup = false;     // a rule stands before it: stages 8 to 12 are one group, every other one is its own
  std::vector<iObject*> nodes;  // in the order in which they run; alive as long as the scene
};

// The stages 3 to 22 in which a node has a part, but for those that only do the scene's own work (17, 18). The scene
// must have been built. Nodes whose duration keeps them still, or which have nothing to do, are there, too.
std::vector<PipelineStage> ReadPipeline(OrlixScene& scene);

}  // namespace orlix
