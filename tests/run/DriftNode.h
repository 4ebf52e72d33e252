#pragma once
// A node with every sort of state: grids that build on the frame before, numbers, a random stream, and, when asked for,
// a number that it keeps to itself.

#include "fluids/scene/OrlixScene.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

class DriftNode final : public iObject {
 public:
  DriftNode(BaseList2D* object, OrlixScene& owner) : iObject(object, owner), random_(7) {
    stageMask = StageBit(kStageOperators);
  }
  static constexpr int kCellsId = 1, kSecretId = 2, kRateId = 3;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {
        IntParameter(kCellsId, "cells", 6, "", "cells of an edge"),
        BoolParameter(kSecretId, "secret", false, "has state that it doesn't list"),
        FloatParameter(kRateId, "rate", 0.5, "", "how fast"),
    };
    static const TypeInfo kType = {
        .id = 9001,
        .resource = "test_drift",
        .parameters = kRows,
        .common = CommonNodeParameters(),
    };
    return kType;
  }

  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  bool RunsSerially() const override { return true; }
  bool ResetWhenDirty() const override { return true; }
  void ResetSimulation() override {
    grid_.reset();
    sum_ = 0;
    random_.Seed(7);
  }
  void CheckDirty() override {
    iObject::CheckDirty();
    if (scene->HasFlag(TimeMoved)) MarkDirty(false);
  }
  void Process(ProcessData&) override {
    const int n = handler.GetInt(kCellsId);
    if (!grid_) {
      grid_ = std::make_unique<ScalarGrid>(VecInt3D(n, n, n), Vec3D(n * 0.3), 0.3f, kGridSmoke, Vec3D(0.7, 0, -1));
      grid_->Fill(0.0);
    }
    const double rate = handler.GetDouble(kRateId) * GetSimulationInfo().substepDuration;
    for (std::int64_t i = 0; i < grid_->count; i++) {
      (*grid_)[i] += rate * (random_.Uniform() + (i > 0 ? (*grid_)[i - 1] : sum_)) / 8;
    }
    sum_ = (*grid_)[grid_->count - 1] + secret_;
    if (handler.GetBool(kSecretId)) secret_ += 0.25;
  }
  void VisitState(StateVisitor& visitor) override {
    visitor.VisitGrid("grid", grid_);
    visitor.VisitGrid("none", none_);
    visitor.Visit("sum", sum_);
    visitor.Visit("random", random_);
  }

 private:
  std::unique_ptr<ScalarGrid> grid_, none_;
  double sum_ = 0, secret_ = 0;
  MersenneTwister random_;
};

// Two drifting nodes in one scene.
class DriftScene : public TestScene {
 public:
  explicit DriftScene(int workers = 1) : TestScene(workers) {
    factory.Add<DriftNode>();
    first = &Add("test_drift", "first");
    second = &Add("test_drift", "second");
    second->Set(DriftNode::kCellsId, std::int64_t(4));
  }
  BaseObject *first = nullptr, *second = nullptr;
};

}  // namespace orlix::test
