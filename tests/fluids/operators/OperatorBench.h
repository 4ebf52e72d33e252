#pragma once
// A grid operator run by hand, as a stage runs it: prepared, processed on all workers, finished.

#include "tests/support/NodeBench.h"

namespace orlix::test {

class OperatorBench : public NodeBench {
 public:
  using NodeBench::NodeBench;

  // By the settings of now. True when the operator was active.
  bool Run(const BaseObject& object) {
    Link();
    auto& node = Get<iObject>(object);
    bool active = false;
    const auto once = [&] {
      node.Prepare();
      node.Setup();
      active = node.IsActive();
      pool.Run(scene().threadCount, [&](int worker) {
        ProcessData data;
        data.threadIndex = worker;
        data.lastThread = worker == scene().threadCount - 1;
        node.Process(data);
      });
      node.Finish();
    };
    if (!node.IsIterated()) {
      once();
      return active;
    }
    while (node.NextIteration()) once();
    return active;
  }
};

// A solver, as far as operators see it: a divergence source and a velocity.
class GasSolver : public iSolver {
 public:
  GasSolver(BaseList2D* object, OrlixScene& owner)
      : iSolver(object, owner), source(object, owner), velocity(object, owner) {}
  static const TypeInfo& Type() {
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 990002, type.resource = "zq_stand_in_solver", type.kinds = kLinkSolver,
      type.common = CommonNodeParameters();
      return type;
    }();
    return kType;
  }
  double SquaredSpeed() const override { return 0; }
  iBase* DivergenceSource() override { return &source; }
  iBase* Velocity() override { return &velocity; }
  ChannelBase_Scalar source;
  VelocityGridChannel velocity;
};

}  // namespace orlix::test
