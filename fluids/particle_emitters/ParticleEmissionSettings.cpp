#include "fluids/particle_emitters/ParticleEmissionSettings.h"

namespace orlix {

const TypeInfo& ParticleEmissionSettings::Type() {
  static constexpr Parameter kParameters[] = {
      BoolParameter(kCountPerStepId, "count_per_step", false, "The count is for a sub-step; otherwise for a second"),
      LinkParameter(kRateId, "rate", kLinkSettings, "A rate that replaces the count"),
      LinkParameter(kActiveInId, "active_in", kLinkDuration, "When it emits; without one, always"),
      IntParameter(kCountId, "count", 1000, "1/s",
                   "Particles that a mesh emitter makes, a second or a sub-step. A volume emitter has as many as its "
                   "lattice, and only rests at a rate of 0")
          .Min(0)
          .Fallback(1.0),
      LinkParameter(kAlignmentId, "alignment", kLinkAlignment,
                    "Direction in which vorticity particles start to swirl; without one, about y"),
      FloatParameter(kJitterId, "jitter", 1.0, "",
                     "How far volume emitters move particles from their lattice; 0 is regular")
          .Between(0, 4),
  };
  static const TypeInfo kType = {
      .id = 1300026,
      .resource = "zq_particlemesh_emission_setting",
      .className = "C4D_ParticleEmissionSettings_Object",
      .label = "Settings::Particle Emission",
      .text = "How many particles an emitter makes, when, and how they start.",
      .kinds = kLinkSettings,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

std::int32_t ParticleEmissionSettings::RateLinkId() const { return kRateId; }

bool ParticleEmissionSettings::ReadParameters() {
  if (!iEmissionSettings::ReadParameters()) return false;
  countPerStep = handler.GetBool(kCountPerStepId);
  count = handler.GetInt(kCountId);
  jitter = handler.GetDouble(kJitterId);
  return true;
}

bool ParticleEmissionSettings::ResolveLinks() {
  duration = scene->RetrieveAs<Duration>(handler.GetLink(kActiveInId), NODE_HELPER);
  alignment = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(kAlignmentId), NODE_HELPER);
  if (!iEmissionSettings::ResolveLinks()) return false;
  countRate_ = dynamic_cast<const EmissionRate*>(rate);
  return true;
}

void ParticleEmissionSettings::ReleaseLinks() {
  duration = nullptr, alignment = nullptr, countRate_ = nullptr;
  iEmissionSettings::ReleaseLinks();
}

void ParticleEmissionSettings::CheckDirty() {
  iEmissionSettings::CheckDirty();
  if ((duration && duration->IsDirty()) || (alignment && alignment->IsDirty())) MarkDirty(false);
}

}  // namespace orlix
