#pragma once
// Acts on particles by the value of a property. Cells of grids pass always.

#include "fluids/constraints/Constraint.h"
#include "fluids/particles/PropertyKey.h"

namespace orlix {

class ParticleConstraint_Property final : public Constraint {
 public:
  using Constraint::Constraint;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 27; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  bool Evaluate(const Vec3D&, double&, const iBase*, std::int32_t) const override { return true; }
  void EvaluateRow(const ConstraintRow&, const iBase*) const override {}
  bool EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex,
                        const OrlixParticle* particle) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  double Ramp(double value) const;

  bool linked_ = false;
  PropertyType type_ = PropertyType::Real;
  PropertyKey key_{0};
  double low_ = 0, high_ = 1;
  bool state_ = true;
};

}  // namespace orlix
