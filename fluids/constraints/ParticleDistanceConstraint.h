#pragma once
// Falls off with the distance from the nearest particle of a group, to 0 at a given distance.

#include "fluids/constraints/Constraint.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class ParticleDistanceConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 23; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  ParticleGroup* group_ = nullptr;
  std::int32_t kind_ = PK_Liquid;
  double distance_ = 0;  // m
};

}  // namespace orlix
