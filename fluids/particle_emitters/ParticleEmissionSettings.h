#pragma once
// How many particles an emitter makes, when, and how they start.

#include "fluids/emitters/EmissionRate.h"
#include "fluids/helpers/Duration.h"
#include "fluids/scene/iEmissionSettings.h"
#include "fluids/volumes/AlignmentVector3D.h"

namespace orlix {

class ParticleEmissionSettings final : public iEmissionSettings {
 public:
  using iEmissionSettings::iEmissionSettings;
  static constexpr int kCountPerStepId = 1000, kRateId = 1001, kActiveInId = 1002, kCountId = 1004, kAlignmentId = 1005,
                       kJitterId = 1006;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 11; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;

  // The rate's, where one is linked.
  double Count() const { return countRate_ ? countRate_->Count() : count; }
  // Particles of a sub-step of dt seconds, before the duration's weight.
  double CountIn(double dt) const { return countPerStep ? Count() : Count() * dt; }

  bool countPerStep = false;
  std::int32_t count = 1000;
  double jitter = 1;  // factor of the offset of lattice places

  // Between ResolveLinks and ReleaseLinks.
  const Duration* duration = nullptr;
  AlignmentVector3D* alignment = nullptr;

 protected:
  std::int32_t RateLinkId() const override;

 private:
  const EmissionRate* countRate_ = nullptr;  // rate
};

}  // namespace orlix
