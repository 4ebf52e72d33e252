#pragma once
// A constant acceleration: gravity, wind. Or, with an alignment, one whose direction differs from place to place.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/volumes/AlignmentVector3D.h"

namespace orlix {

class Force_Gravity final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kDirectionId = 1000, kAlignmentId = 1001, kStrengthId = 1002, kSettingsId = 1003;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 31; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  // For places on bodies; it isn't a force on particles.
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;

 protected:
  Duration* FindDuration() const override;

 private:
  Vec3D direction_;  // m/s^2
  double strength_ = 1;
  AlignmentVector3D* alignment_ = nullptr;
};

}  // namespace orlix
