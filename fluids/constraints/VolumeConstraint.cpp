#include "fluids/constraints/VolumeConstraint.h"

#include "fluids/constraints/ConstraintAdvice.h"
#include "fluids/grids/Interpolation.h"

namespace orlix {

namespace {

constexpr SplineKnot kCurve[] = {{0, 0}, {1, 1}};

}  // namespace

const TypeInfo& VolumeConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kVolumeId, "volume", kLinkVolume | kLinkSolver, "The volume, or a liquid solver with a surface"),
      BoolParameter(kUseCurveId, "use_curve", false,
                    "The strength follows the curve from the surface to the deepest place"),
      SplineParameter(kCurveId, "curve", kCurve, "Strength over the depth as a share of the largest")
          .ShownWhen(kUseCurveId, Relation::Is, 1),
      FloatParameter(kOffsetId, "offset", 0, "cells", "Moves the surface outwards"),
  };
  static const TypeInfo kType = {
      .id = 1300019,
      .resource = "zq_constraint_volume",
      .className = "C4D_Constraint_Volume_Object",
      .label = "CS::Volume",
      .text = "Acts inside a volume or below a liquid's surface.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool VolumeConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  useCurve_ = handler.GetBool(kUseCurveId);
  curve_ = handler.GetSplineData(kCurveId);
  offset_ = handler.GetDouble(kOffsetId) * GetSimulationSpace().cellSize;
  return true;
}

bool VolumeConstraint::ResolveLinks() {
  volume_ = nullptr, solver_ = nullptr, surface_ = nullptr;
  members_.clear();
  if (!Constraint::ResolveLinks()) return false;
  const BaseList2D* link = handler.GetLink(kVolumeId);
  volume_ = scene->RetrieveAs<iVolume>(link, NODE_VOLUME, RETRIEVE_VOLUME);
  if (!volume_) solver_ = scene->RetrieveAs<iSolver>(link, NODE_SOLVER);
  return volume_ || (solver_ && solver_->GetSurfaceGrid());
}

void VolumeConstraint::ReleaseLinks() {
  volume_ = nullptr, solver_ = nullptr, surface_ = nullptr;
  members_.clear();
  Constraint::ReleaseLinks();
}

void VolumeConstraint::Advise() {
  const bool isLiquid = solver_ && solver_->HoldsParticles();
  AdviseMissingLink(*this, volume_ || !isLiquid ? static_cast<const void*>(volume_) : solver_, "volume");
}

void VolumeConstraint::Prepare(const iBase*) {
  members_.clear();
  if (volume_) volume_->AppendVolumes(members_);
  surface_ = solver_ ? solver_->GetSurfaceGrid() : nullptr;
}

bool VolumeConstraint::BelowSurface(const Vec3D& position) const {
  const Vec3D p = surface_->space.VoxelOfSim(position) - Vec3D(0.5);
  const double d = SampleGrid(*surface_, p.x, p.y, p.z, Interpolation::Trilinear) - offset_;
  return static_cast<float>(Inverted() ? -d : d) < 0;
}

bool VolumeConstraint::Apply(const Vec3D& position, double& amount) const {
  if (surface_) {
    if (!BelowSurface(position)) amount = 0;
    amount *= intensity;
    return true;
  }
  for (const VolumeBase* member : members_) {
    if (member->InsideWorld(position, offset_) == Inverted()) continue;
    if (useCurve_) {
      amount *= C4D_InterfaceHandler::SplineValueOf(curve_, static_cast<float>(member->DepthWorld(position)));
    }
    amount *= intensity;
    return true;
  }
  amount = 0;
  return false;
}

bool VolumeConstraint::Evaluate(const Vec3D& position, double& amount, const iBase*, std::int32_t) const {
  return !HasTarget() || Apply(position, amount);
}

void VolumeConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!HasTarget()) return;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (row.open[i]) row.open[i] = Apply(row.Position(i), row.amounts[i]);
  }
}

}  // namespace orlix
