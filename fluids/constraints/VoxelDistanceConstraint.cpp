#include "fluids/constraints/VoxelDistanceConstraint.h"

#include "fluids/constraints/ConstraintAdvice.h"

namespace orlix {

const TypeInfo& VoxelDistanceConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kReferenceId, "reference", kLinkAny, "The object from which the distance is measured"),
      FloatParameter(kDistanceId, "distance", 100.0, "host units", "Where the strength has fallen to 0").Min(0),
  };
  static const TypeInfo kType = {
      .id = 1300018,
      .resource = "zq_constraint_voxeldistance",
      .className = "C4D_Constraint_VoxelDistance_Object",
      .label = "CS::Voxel Distance",
      .text = "Acts near an object and falls off with the distance.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool VoxelDistanceConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  perDistance_ = 1 / (handler.GetDouble(kDistanceId) * GetSimulationSpace().simPerHost.x);
  return true;
}

bool VoxelDistanceConstraint::ResolveLinks() {
  if (!Constraint::ResolveLinks()) return false;
  const BaseObject* reference = handler.GetObjectLink(kReferenceId);
  hasReference_ = reference != nullptr;
  if (reference) centre_ = reference->GlobalMatrix().off * GetSimulationSpace().simPerHost;
  return hasReference_;
}

void VoxelDistanceConstraint::ReleaseLinks() {
  hasReference_ = false;
  Constraint::ReleaseLinks();
}

void VoxelDistanceConstraint::Advise() { AdviseMissingLink(*this, handler.GetObjectLink(kReferenceId), "reference"); }

double VoxelDistanceConstraint::FactorAt(const Vec3D& position) const {
  const double t = Length(position - centre_) * perDistance_;
  const double limited = t < 1 ? (t > 0 ? t : 0) : 1;  // a distance of 0 makes NaN at the centre
  return Inverted() ? limited : 1 - limited;
}

bool VoxelDistanceConstraint::Evaluate(const Vec3D& position, double& amount, const iBase* caller,
                                       std::int32_t threadIndex) const {
  if (!hasReference_) return true;
  amount *= FactorAt(position);
  if (amount == 0) return false;
  return Constraint::Evaluate(position, amount, caller, threadIndex);
}

void VoxelDistanceConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!hasReference_) return;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const double amount = row.amounts[i] * FactorAt(row.Position(i));
    const bool ended = amount == 0;
    if (!row.open[i]) continue;
    row.amounts[i] = ended ? amount : amount * intensity;
    row.open[i] = !ended;
  }
}

}  // namespace orlix
