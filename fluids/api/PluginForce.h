#pragma once
// A force of a plug-in, on gases and particles alike.
//
//   weight = sub-step x the caller's factor x duration, scaled by the constraints
//   push  += what the plug-in makes of place and weight, a batch at a time

#include "fluids/api/PluginNode.h"
#include "fluids/forces/ConstrainedForce.h"

namespace orlix {

class PluginForce final : public ConstrainedForce {
 public:
  PluginForce(BaseList2D* object, OrlixScene& owner) : ConstrainedForce(object, owner), plugin_(*this, owner) {}
  std::int32_t GetNodeSubType() const override { return 105; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= plugin_.retrieveTypes(); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override { plugin_.Advise(); }
  void CheckDirty() override;
  void ResetSimulation() override { plugin_.Reset(); }
  void VisitState(StateVisitor& visitor) override { plugin_.VisitState(visitor); }
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kDurationId); }

 private:
  void ProcessCells(const ForceRow& row, std::int32_t first, std::int32_t count, const double* weights) const;
  void ProcessRun(const ForceParticles& run, std::int32_t first, std::int32_t count, const double* weights) const;
  bool PreparePlugin();

  PluginNode plugin_;
  PluginGroups groups_;
  bool readsVelocity_ = false;
};

}  // namespace orlix
