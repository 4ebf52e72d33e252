#pragma once
// Acts on particles that are in a state, such as those that have just collided. Cells of grids pass always.

#include "fluids/constraints/Constraint.h"

namespace orlix {

class ParticleConstraint_Attribute final : public Constraint {
 public:
  using Constraint::Constraint;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 26; }
  bool ReadParameters() override;
  void Advise() override;
  bool Evaluate(const Vec3D&, double&, const iBase*, std::int32_t) const override { return true; }
  void EvaluateRow(const ConstraintRow&, const iBase*) const override {}
  bool EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex,
                        const OrlixParticle* particle) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  std::int32_t bit_ = 2;
};

}  // namespace orlix
