#include "fluids/particle_operators/ParticleForce_Acceleration.h"

namespace orlix {

const TypeInfo& ParticleForce_Acceleration::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kFieldId, "field", kLinkAlignment, "Gives the direction at each place instead"),
      FloatParameter(kStrengthId, "strength", 9.81, "m/s^2", "Size of the acceleration"),
      VectorParameter(kDirectionId, "direction", {0, -1, 0}, "",
                      "Where it goes, in the object's own axes; its length is no factor"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
  };
  static const TypeInfo kType = {
      .id = 1300055,
      .resource = "zq_pforce_acceleration",
      .className = "C4D_ParticleForce_Acceleration_Object",
      .label = "PF::Acceleration",
      .text = "Accelerates particles along a direction: gravity, wind. A node of particle forces applies it.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleForce_Acceleration::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  strength_ = handler.GetDouble(kStrengthId);
  direction_ = Normalized(handler.GetMatrix().Rotate(handler.GetVector(kDirectionId)));
  return true;
}

bool ParticleForce_Acceleration::ResolveLinks() {
  if (!ConstrainedForce::ResolveLinks()) return false;
  field_ = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(kFieldId), NODE_HELPER);
  return true;
}

void ParticleForce_Acceleration::ReleaseLinks() {
  field_ = nullptr;
  ConstrainedForce::ReleaseLinks();
}

void ParticleForce_Acceleration::Advise() {
  if (strength_ == 0) Warn("no-strength", "it pushes nothing; set \"strength\"");
  if (!field_ && direction_ == Vec3D())
    Warn("no-direction", "it pushes nowhere; set \"direction\" or link a \"field\"");
}

void ParticleForce_Acceleration::PrepareParticles(iBase* caller) {
  if (!BeginParticles()) return;
  if (field_) field_->Prepare(caller);
  EndParticles();
}

void ParticleForce_Acceleration::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, simulationInfo->substepDuration * strength_ * strengthFactor_);
  for (std::int32_t n = 0; n < run.count; ++n) {
    if (amounts[n] == 0) continue;
    const Vec3D direction = field_ ? Normalized(field_->GetDirection(run.positions[n])) : direction_;
    run.forces[n] += direction * amounts[n];
  }
}

}  // namespace orlix
