#pragma once
// A constant acceleration of particles, or one along a field of directions.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/volumes/AlignmentVector3D.h"

namespace orlix {

class ParticleForce_Acceleration final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kFieldId = 1000, kStrengthId = 1001, kDirectionId = 1002, kForceDurationId = 1005;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 102; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void ProcessRow(const ForceRow&) override {}
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  double strength_ = 0;  // m/s^2
  Vec3D direction_;      // a unit vector, or zero
  AlignmentVector3D* field_ = nullptr;
};

}  // namespace orlix
