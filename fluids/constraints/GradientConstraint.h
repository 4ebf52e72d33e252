#pragma once
// Acts along a gradient that is laid out from an object: its first component is the strength.

#include "fluids/constraints/Constraint.h"
#include "fluids/volumes/AlignmentVector3D.h"

namespace orlix {

class GradientConstraint final : public Constraint {
 public:
  enum class Axis { X, Y, Z, Radial };

  using Constraint::Constraint;
  static constexpr int kGradientId = 1000, kAxisId = 1001, kReferenceId = 1002, kDistanceId = 1003, kAlignmentId = 1005;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 18; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;

  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  bool Apply(const Vec3D& position, double& amount, std::int32_t threadIndex) const;

  const Gradient* gradient_ = nullptr;
  Axis axis_ = Axis::Y;
  double squaredDistance_ = 0;  // m^2
  LMatrix inverse_;             // simulation space to the gradient's
  AlignmentVector3D* alignment_ = nullptr;
};

}  // namespace orlix
