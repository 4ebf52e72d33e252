#include "fluids/constraints/VoxelDistanceConstraint.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "reference", kLinkAny, "The object from which the distance is measured"),
    FloatParameter(1001, "distance", 100.0, "host units", "Where the strength has fallen to 0").Min(0),
};

}  // namespace

const TypeInfo& VoxelDistanceConstraint::Type() {
  static const TypeInfo kType =
      ConstraintType(1300018, "zq_constraint_voxeldistance", "C4D_Constraint_VoxelDistance_Object",
                     "CS::Voxel Distance", "Acts near an object and falls off with the distance.", kParameters);
  return kType;
}

bool VoxelDistanceConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  perDistance_ = 1 / (handler.GetDouble(1001) * GetSimulationSpace().simPerHost.x);
  return true;
}

bool VoxelDistanceConstraint::ResolveLinks() {
  if (!Constraint::ResolveLinks()) return false;
  const BaseObject* reference = handler.GetObjectLink(1000);
  hasReference_ = reference != nullptr;
  if (reference) centre_ = reference->GlobalMatrix().off * GetSimulationSpace().simPerHost;
  return hasReference_;
}

void VoxelDistanceConstraint::ReleaseLinks() {
  hasReference_ = false;
  Constraint::ReleaseLinks();
}

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
