#include "fluids/forces/Force_Gravity.h"

namespace orlix {

const TypeInfo& Force_Gravity::Type() {
  static constexpr Parameter kParameters[] = {
      VectorParameter(kDirectionId, "direction", {0, -9.81, 0}, "m/s^2", "The acceleration, in the object's own axes")
          .ShownWhen(kAlignmentId, Relation::Is, 0),
      LinkParameter(kAlignmentId, "alignment", kLinkAlignment, "Gives the direction at each place instead"),
      FloatParameter(kStrengthId, "strength", 1.0, "",
                     "Factor of the acceleration; with an alignment, its size in m/s^2"),
      LinkParameter(kSettingsId, "settings", kLinkSettings,
                    "Emission settings whose duration tells when the force acts"),
  };
  static const TypeInfo kType = {
      .id = 1300014,
      .resource = "zq_force_gravity",
      .className = "C4D_Force_Gravity_Object",
      .label = "GF::External",
      .text = "A constant acceleration, such as gravity or wind.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Gravity::ReadParameters() {
  priority = 20;
  if (!ConstrainedForce::ReadParameters()) return false;
  // Turned alone: what stands beneath a scaled object isn't stronger for it.
  const LMatrix m = handler.GetMatrix();
  const Vec3D direction = handler.GetVector(kDirectionId);
  direction_ = Normalized(m.v1) * direction.x + Normalized(m.v2) * direction.y + Normalized(m.v3) * direction.z;
  strength_ = handler.GetDouble(kStrengthId);
  return true;
}

bool Force_Gravity::ResolveLinks() {
  if (!ConstrainedForce::ResolveLinks()) return false;
  alignment_ = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(kAlignmentId), NODE_HELPER);
  return true;
}

void Force_Gravity::ReleaseLinks() {
  alignment_ = nullptr;
  ConstrainedForce::ReleaseLinks();
}

Duration* Force_Gravity::FindDuration() const { return DurationOfSettings(kSettingsId, kDurationId); }

void Force_Gravity::Prepare(iBase*) {
  if (!BeginPrepare()) return;
  if (alignment_) alignment_->Prepare(this);
  EndPrepare(simulationInfo->substepDuration * strength_ * strengthFactor_);
}

void Force_Gravity::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* amounts = Amounts(row);
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const Vec3D direction = alignment_ ? Normalized(alignment_->GetDirection(row.Position(i))) : direction_;
    row.forceX[i] += direction.x * amounts[i];
    row.forceY[i] += direction.y * amounts[i];
    row.forceZ[i] += direction.z * amounts[i];
  }
}

void Force_Gravity::PrepareParticles(iBase*) {
  if (!BeginParticles()) return;
  if (alignment_) alignment_->Prepare(this);
  EndParticles();
}

void Force_Gravity::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, simulationInfo->substepDuration * strength_ * strengthFactor_);
  for (std::int32_t n = 0; n < run.count; ++n) {
    const Vec3D direction = alignment_ ? Normalized(alignment_->GetDirection(run.positions[n])) : direction_;
    run.forces[n] += direction * amounts[n];
  }
}

}  // namespace orlix
