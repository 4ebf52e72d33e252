#pragma once
// A scene whose channels hold a known field in each frame, without a fluid: a node sets the container and paints.

#include "fluids/caches/GridCacher.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/scene/RootObject.h"
#include "fluids/scene/StateCheck.h"
#include "tests/support/Cells.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

// Paints a channel and a vector channel, and asks for a container that may grow.
class PaintNode final : public iObject {
 public:
  PaintNode(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) { stageMask = StageBit(kStageEmitters); }
  static constexpr int kChannelId = 1, kVectorId = 2, kLowId = 3, kHighId = 4, kGrowthId = 5;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {
        LinkParameter(kChannelId, "channel", kLinkChannel, "painted"),
        LinkParameter(kVectorId, "vector", kLinkChannel, "painted"),
        VectorParameter(kLowId, "low", {0, 0, 0}, "cells", "container"),
        VectorParameter(kHighId, "high", {8, 6, 5}, "cells", "container"),
        FloatParameter(kGrowthId, "growth", 0, "cells", "of the high corner, a frame"),
    };
    static const TypeInfo kType = {
        .id = 9000,
        .resource = "test_paint",
        .parameters = kRows,
        .common = CommonNodeParameters(),
    };
    return kType;
  }
  static double Field(int i, int j, int k, int frame) { return 0.1 + 0.01 * i + 0.1 * j + 0.003 * k + 0.7 * frame; }

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  bool RunsSerially() const override { return true; }
  void CheckDirty() override {
    iObject::CheckDirty();
    MarkDirty(false);
  }
  void ExtendBounds(Vec3D& min, Vec3D& max) override {
    const double c = GetSimulationSpace().cellSize;
    const Vec3D grown(handler.GetDouble(kGrowthId) * scene->clock.frame);
    min = Min(min, handler.GetVector(kLowId) * c);
    max = Max(max, (handler.GetVector(kHighId) + grown) * c);
  }
  void Process(ProcessData&) override {
    Paint(scene->RetrieveAs<ScalarGridChannel>(handler.GetObjectLink(kChannelId), NODE_CHANNEL));
    Paint(scene->RetrieveAs<VectorGridChannel>(handler.GetObjectLink(kVectorId), NODE_CHANNEL));
  }

 private:
  void Paint(iCachedGrids* channel) {
    for (int c = 0; channel && c < channel->CachedGridCount(); c++) {
      ScalarGrid& g = *channel->CachedGrid(c);
      FillCells(g, [&](int i, int j, int k) { return Field(i, j, k, scene->clock.frame) + 100 * c; });
    }
  }
};

// A scalar and a vector channel and a cache of both. Painted, or to be played into.
class PaintedScene : public TestScene {
 public:
  PaintedScene(const std::filesystem::path& folder, bool painted, int workers = 1) : TestScene(workers) {
    factory.Add<PaintNode>();
    document.folder = folder.string();
    // No power of two: roundings show.
    root->Set(RootSettings::kScaleUnitsId, 70.0), root->Set(RootSettings::kVoxelSizeId, 0.1),
        root->Set(RootSettings::kRenderVoxelSizeId, 0.1);
    smoke = &Add("channel_scalar", "smoke");
    wind = &Add("channel_vector", "wind");
    if (painted) {
      paint = &Add("test_paint", "paint");
      paint->Set(PaintNode::kChannelId, LinkTo(*smoke)), paint->Set(PaintNode::kVectorId, LinkTo(*wind));
    }
    cache = &Add("cache", "cache");
    cache->Set(GridCacher::kNodesId, ListOf({smoke, wind}));
    cache->Set(GridCacher::kModeId, std::int64_t(painted));
    cache->Set(GridCacher::kStemId, std::string("c"));
  }

  GridCacher& cacher() { return *NodeOf<GridCacher>(*cache); }
  ScalarGrid* SmokeGrid() { return NodeOf<ScalarGridChannel>(*smoke)->grid.get(); }
  // Bytes of the four grids, with their lattices.
  std::uint64_t HashGrids() {
    StateHasher hasher;
    for (const BaseObject* object : {smoke, wind}) {
      if (auto* scalar = NodeOf<ScalarGridChannel>(*object)) hasher.VisitGrid("", scalar->grid);
      if (auto* vector = NodeOf<VectorGridChannel>(*object)) {
        for (auto& grid : vector->grids) hasher.VisitGrid("", grid);
      }
    }
    return hasher.Value();
  }
  BaseObject *smoke = nullptr, *wind = nullptr, *paint = nullptr, *cache = nullptr;
};

}  // namespace orlix::test
