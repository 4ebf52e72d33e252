#pragma once
// Falls off with the distance from an object, to 0 at a given distance.

#include "fluids/constraints/Constraint.h"

namespace orlix {

class VoxelDistanceConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kReferenceId = 1000, kDistanceId = 1001;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 22; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;

  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  double FactorAt(const Vec3D& position) const;

  bool hasReference_ = false;
  Vec3D centre_;            // simulation space
  double perDistance_ = 0;  // 1/m
};

}  // namespace orlix
