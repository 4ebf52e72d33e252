#pragma once
// A node that records what is done to it, for tests of the pipeline. Its parameters say what kind of node it is.

#include <atomic>
#include <string>
#include <vector>

#include "fluids/scene/NodeFactory.h"
#include "fluids/scene/iObject.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

struct Trace {
  std::vector<std::string> calls;  // of the calling thread
  std::atomic<int> processed{0};
};
inline Trace* trace = nullptr;  // of the test that runs

class TraceNode final : public iSolver {
 public:
  using iSolver::iSolver;
  static constexpr int kStageBitsId = 1, kOwnPriorityId = 2, kSerialId = 3, kIteratedId = 4, kEachId = 5, kRoundsId = 6,
                       kUpdateId = 7, kSpeedId = 8, kPoisonId = 9, kIdleId = 10;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {IntParameter(kStageBitsId, "stage_bits", 0, "", "stages"),
                                          IntParameter(kOwnPriorityId, "own_priority", 0, "", "priority"),
                                          BoolParameter(kSerialId, "serial", false, "runs serially"),
                                          BoolParameter(kIteratedId, "iterated", false, "iterated"),
                                          BoolParameter(kEachId, "each", false, "prepares each round"),
                                          IntParameter(kRoundsId, "rounds", 1, "", "rounds"),
                                          BoolParameter(kUpdateId, "update", false, "evaluates on update"),
                                          FloatParameter(kSpeedId, "speed", 0, "m/s", "speed"),
                                          BoolParameter(kPoisonId, "poison", false, "makes a NaN"),
                                          BoolParameter(kIdleId, "idle", false, "marks nothing dirty")};
    static const TypeInfo kType = {
        .id = 999001,
        .resource = "trace",
        .kinds = kLinkSolver,
        .parameters = kRows,
        .common = CommonNodeParameters(),
    };
    return kType;
  }

  std::int32_t GetNodeBaseType() const override { return NODE_SOLVER; }
  bool RunsSerially() const override { return handler.GetBool(kSerialId); }
  bool IsIterated() const override { return handler.GetBool(kIteratedId); }
  bool PreparesEachIteration() const override { return handler.GetBool(kEachId); }
  bool EvaluatesOnUpdate() const override { return handler.GetBool(kUpdateId); }
  double SquaredSpeed() const override { return handler.GetDouble(kSpeedId) * handler.GetDouble(kSpeedId); }
  iBase* DivergenceSource() override { return nullptr; }
  bool ReadParameters() override {
    priority = handler.GetInt(kOwnPriorityId);
    iterationCount = static_cast<std::int16_t>(handler.GetInt(kRoundsId));
    stageMask = static_cast<std::uint32_t>(handler.GetInt(kStageBitsId));
    return iSolver::ReadParameters();
  }
  void CheckDirty() override {
    iSolver::CheckDirty();
    if (scene->HasFlag(TimeMoved) && !handler.GetBool(kIdleId)) MarkDirty(false);
  }
  void ExtendBounds(Vec3D& min, Vec3D& max) override { min = {0, 0, 0}, max = {1, 1, 1}; }
  void Prepare(iBase*) override {
    Note("Prepare");
    SetFlag(NodeActive, true);
  }
  void Advise() override {
    if (handler.GetBool(kIdleId)) Warn("idle", "marks nothing dirty in frame " + std::to_string(scene->clock.frame));
  }
  void Conclude() override { Warn("over", "the run is over"); }
  void Setup() override { Note("Setup"); }
  void Process(ProcessData& data) override {
    if (RunsSerially() || data.threadIndex == 0) Note("Process");
    if (trace) ++trace->processed;
    if (data.threadIndex == 0 && handler.GetBool(kPoisonId)) {
      state = std::make_unique<ScalarGrid>(VecInt3D(3, 3, 3), Vec3D(3, 3, 3), 1.0f, kGridSmoke, Vec3D());
      state->Fill(0);
      (*state)(1, 2, 0) = NAN;
    }
  }
  void Finish() override { Note("Finish"); }
  void ResetSimulation() override { Note("Reset"); }
  void VisitState(StateVisitor& visitor) override { visitor.VisitGrid("state", state); }

  std::unique_ptr<ScalarGrid> state;

 private:
  void Note(const std::string& what) {
    if (!trace) return;
    std::string text = handler.hostObject()->name + "." + what;
    if (iteration >= 0) text += std::to_string(iteration);
    trace->calls.push_back(text);
  }
};

class TracedScene : public TestScene {
 public:
  explicit TracedScene(int workers = 1) : TestScene(workers) {
    factory.Add<TraceNode>();
    trace = &log;
  }
  ~TracedScene() { trace = nullptr; }
  BaseObject& AddTrace(const std::string& name, int stages, int priority = 0, bool serial = true) {
    BaseObject& object = Add("trace", name);
    object.Set(TraceNode::kStageBitsId, std::int64_t(stages));
    object.Set(TraceNode::kOwnPriorityId, std::int64_t(priority));
    object.Set(TraceNode::kSerialId, std::int64_t(serial));
    object.Set(kOwnBlockId, std::int64_t(0));
    return object;
  }
  int CountCalls(const std::string& what) const {
    return static_cast<int>(std::count_if(log.calls.begin(), log.calls.end(), [&](const std::string& call) {
      return call.find(what) != std::string::npos;
    }));
  }
  Trace log;
};

}  // namespace orlix::test
