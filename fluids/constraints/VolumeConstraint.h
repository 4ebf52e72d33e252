#pragma once
// Acts inside a volume, or below a liquid's surface.

#include "fluids/constraints/Constraint.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class VolumeConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kVolumeId = 1000, kUseCurveId = 1001, kCurveId = 1002, kOffsetId = 1004;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 21; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;

  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  bool HasTarget() const { return volume_ || surface_; }
  bool Apply(const Vec3D& position, double& amount) const;
  bool BelowSurface(const Vec3D& position) const;

  iVolume* volume_ = nullptr;
  std::vector<VolumeBase*> members_;  // the volume, or what it stands for
  iSolver* solver_ = nullptr;
  const ScalarGrid* surface_ = nullptr;
  double offset_ = 0;  // m
  bool useCurve_ = false;
  const SplineData* curve_ = nullptr;
};

}  // namespace orlix
