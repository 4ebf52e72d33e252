#pragma once
// An operator of a plug-in, on grids or particles. It has a stage of its own and asks its constraints itself.

#include "fluids/api/PluginNode.h"
#include "fluids/helpers/Duration.h"

namespace orlix {

class PluginOperator final : public iObject {
 public:
  PluginOperator(BaseList2D* object, OrlixScene& owner) : iObject(object, owner), plugin_(*this, owner) {}
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  std::int32_t GetNodeSubType() const override { return 64; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= plugin_.retrieveTypes(); }
  bool RunsSerially() const override { return runsSerially_; }
  bool IsIterated() const override { return isIterated_; }
  bool PreparesEachIteration() const override { return preparesEachIteration_; }
  bool EvaluatesOnUpdate() const override { return evaluatesOnUpdate_; }
  bool NextIteration() override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override { plugin_.Advise(); }
  void Conclude() override;
  void CheckDirty() override;
  void ResetSimulation() override { plugin_.Reset(); }
  void VisitState(StateVisitor& visitor) override { plugin_.VisitState(visitor); }
  void VisitOutputs(StateVisitor& visitor) override { plugin_.context().VisitWritten(visitor); }
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;

 private:
  PluginNode plugin_;
  bool runsSerially_ = false, isIterated_ = false, preparesEachIteration_ = false, evaluatesOnUpdate_ = false;
  std::vector<Constraint*> constraints_;
  const Duration* duration_ = nullptr;
  double strengthFactor_ = 1;
  bool hasRun_ = false;
  bool isSetUp_ = false, isConfined_ = false;  // constraints are prepared
  std::atomic<bool> isDone_{false};            // a worker's Process gave false: no round follows
};

}  // namespace orlix
