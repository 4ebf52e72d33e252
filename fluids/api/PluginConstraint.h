#pragma once
// A constraint of a plug-in. "invert" and "intensity" are the engine's: with f what the plug-in makes of the amount,
// amount becomes intensity x f, or intensity x (amount - f).

#include "fluids/api/PluginNode.h"

namespace orlix {

class PluginConstraint final : public Constraint {
 public:
  PluginConstraint(BaseList2D* object, OrlixScene& owner) : Constraint(object, owner), plugin_(*this, owner) {}
  std::int32_t GetNodeSubType() const override { return 28; }
  bool ReadParameters() override { return Constraint::ReadParameters() && plugin_.ReadParameters(); }
  bool ResolveLinks() override { return Constraint::ResolveLinks() && plugin_.ResolveLinks(); }
  void ReleaseLinks() override;
  void Advise() override { plugin_.Advise(); }
  void CheckDirty() override;
  void ResetSimulation() override { plugin_.Reset(); }
  void VisitState(StateVisitor& visitor) override { plugin_.VisitState(visitor); }
  void VisitOutputs(StateVisitor&) override {}

  void Prepare(const iBase* caller) override;
  void Finish() override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  void EvaluateParticles(const ParticleRun& run, const iBase* caller) const override;
  bool EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex,
                        const OrlixParticle* particle) const override;
  std::unique_ptr<Constraint> Clone() const override;

 private:
  // Of a batch that has its places.
  void Scale(ZQAPI::ConstraintBatch& batch, double* amounts, const std::uint8_t* open) const;

  PluginNode plugin_;
  PluginGroups groups_;
  bool ready_ = false;
  std::int32_t prepared_ = 0;  // callers that haven't finished
};

}  // namespace orlix
