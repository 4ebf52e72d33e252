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
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {
        IntParameter(1, "cells", 6, "", "cells of an edge"),
        BoolParameter(2, "secret", false, "has state that it doesn't list"),
        FloatParameter(3, "rate", 0.5, "", "how fast"),
    };
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 9001;
      type.resource = "test_drift";
      type.parameters = kRows;
      type.common = CommonNodeParameters();
      return type;
    }();
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
    const int n = handler.GetInt(1);
    if (!grid_) {
      grid_ = std::make_unique<ScalarGrid>(VecInt3D(n, n, n), Vec3D(n * 0.3), 0.3f, kGridSmoke, Vec3D(0.7, 0, -1));
      grid_->Fill(0.0);
    }
    const double rate = handler.GetDouble(3) * GetSimulationInfo().substepDuration;
    for (std::int64_t i = 0; i < grid_->count; i++) {
      (*grid_)[i] += rate * (random_.Uniform() + (i > 0 ? (*grid_)[i - 1] : sum_)) / 8;
    }
    sum_ = (*grid_)[grid_->count - 1] + secret_;
    if (handler.GetBool(2)) secret_ += 0.25;
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
    second->Set(1, std::int64_t(4));
  }
  BaseObject *first = nullptr, *second = nullptr;
};

}  // namespace orlix::test
