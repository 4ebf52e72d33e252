#pragma once
// Acts where there are many particles: the strength rises with their number within a radius.

#include "fluids/constraints/Constraint.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class ParticleCountConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 24; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  double FactorOf(std::int32_t count) const;

  ParticleGroup* group_ = nullptr;
  std::int32_t kind_ = PK_Liquid;
  double radius_ = 0;  // m
  std::int32_t minCount_ = 0, maxCount_ = 5;
  bool ramp_ = true, keepAboveMax_ = true;
};

}  // namespace orlix
