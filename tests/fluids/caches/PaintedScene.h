#pragma once
// A scene whose channels hold a known field in each frame, without a fluid: a node sets the container and paints.

#include "fluids/caches/GridCacher.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/scene/StateCheck.h"
#include "tests/support/Cells.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

// Parameters: 1 channel, 2 vector channel, 3 low corner and 4 high corner of the container in cells, 5 growth of the
// high corner in cells a frame.
class PaintNode final : public iObject {
 public:
  PaintNode(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) { stageMask = StageBit(kStageEmitters); }
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {
        LinkParameter(1, "channel", kLinkChannel, "painted"),
        LinkParameter(2, "vector", kLinkChannel, "painted"),
        VectorParameter(3, "low", {0, 0, 0}, "cells", "container"),
        VectorParameter(4, "high", {8, 6, 5}, "cells", "container"),
        FloatParameter(5, "growth", 0, "cells", "of the high corner, a frame"),
    };
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 9000;
      type.resource = "test_paint";
      type.parameters = kRows;
      type.common = CommonNodeParameters();
      return type;
    }();
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
    const Vec3D grown(handler.GetDouble(5) * scene->clock.frame);
    min = Min(min, handler.GetVector(3) * c);
    max = Max(max, (handler.GetVector(4) + grown) * c);
  }
  void Process(ProcessData&) override {
    Paint(scene->RetrieveAs<ScalarGridChannel>(handler.GetObjectLink(1), NODE_CHANNEL));
    Paint(scene->RetrieveAs<VectorGridChannel>(handler.GetObjectLink(2), NODE_CHANNEL));
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
    root->Set(1000, 70.0), root->Set(1002, 0.1), root->Set(1015, 0.1);
    smoke = &Add("channel_scalar", "smoke");
    wind = &Add("channel_vector", "wind");
    if (painted) {
      paint = &Add("test_paint", "paint");
      paint->Set(1, LinkTo(*smoke)), paint->Set(2, LinkTo(*wind));
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
  bool Warned(const std::string& part) const {
    for (const auto& [node, text] : warnings) {
      if (text.find(part) != std::string::npos) return true;
    }
    return false;
  }

  BaseObject *smoke = nullptr, *wind = nullptr, *paint = nullptr, *cache = nullptr;
};

}  // namespace orlix::test
