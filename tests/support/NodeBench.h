#pragma once
// Nodes that a test calls by hand: objects of a small scene, read and linked as in a scene pass, with channels on a box
// of cells. Nothing is stepped.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/channels/VelocityGridChannel.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

class NodeBench : public TestScene {
 public:
  static constexpr double kCell = 0.25;  // m, and 25 host units; exact in single precision

  explicit NodeBench(int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, kCell);
    Step(0);
    scene().info.substepDuration = 0.125;
    scene().info.time = 1;
  }

  // Makes the nodes of new objects, reads and links all.
  void Link() {
    if (!document.SetTime(document.time()).ok()) throw std::runtime_error("an object can't be built");
    scene().SyncNodes();
    scene().SetStage(kStageStart);
    scene().EvaluateStage();
  }
  // Links, and gives all channels the box of these cells, from min (m).
  void Fit(const VecInt3D& cells, const Vec3D& min = {}) {
    Link();
    scene().ForEachNode(NODE_CHANNEL, NODE_CHANNEL,
                        [&](iBase& node) { node.ApplyBounds(min, min + Vec3D(cells) * kCell); });
  }
  template <class Node>
  Node& Get(const BaseObject& object) {
    Node* node = NodeOf<Node>(object);
    if (!node) throw std::runtime_error("no node of that class for " + object.name);
    return *node;
  }
  ScalarGrid& GridOf(const BaseObject& channel) { return *Get<ChannelBase_Scalar>(channel).grid; }
};

// The place of a sample, in simulation space.
inline Vec3D SamplePlace(const ScalarGrid& grid, int i, int j, int k) {
  return grid.space.SimOfVoxel(Vec3D(i, j, k) + CellSampleOffset(grid.gridType));
}

}  // namespace orlix::test
