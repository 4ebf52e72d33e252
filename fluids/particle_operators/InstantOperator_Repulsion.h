#pragma once
// Throws particles back from what they hit, and slows them along it.
//
//   delta = -bounce w u_n - friction u_t        u the velocity, or the step that led into the surface
//
// A bounce of 1 takes the motion into the surface away, 2 turns it round without loss.

#include "fluids/particle_operators/InstantOperator.h"

namespace orlix {

class InstantOperator_Repulsion final : public ConstrainedInstantOperator {
 public:
  using ConstrainedInstantOperator::ConstrainedInstantOperator;
  static constexpr int kBounceId = 1000, kActInId = 1001, kPositionalId = 1003, kFrictionId = 1004;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 112; }
  bool ReadParameters() override;
  void Advise() override;
  void Apply(std::int32_t event, std::span<ParticleContact> contacts, const InstantContext& context,
             std::int32_t thread) override;

 protected:
  std::int32_t DurationLinkId() const override { return kActInId; }

 private:
  double bounce_ = 0.5;
  float friction_ = 0;
  bool positional_ = false;
};

}  // namespace orlix
