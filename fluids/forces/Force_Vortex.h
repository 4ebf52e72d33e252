#pragma once
// A rotation about the object's z axis, faster the farther from it.

#include "fluids/forces/ConstrainedForce.h"

namespace orlix {

class Force_Vortex final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kStrengthId = 1000, kForceDurationId = 1001;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 35; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PARTICLE);
  }
  bool ReadParameters() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  // Of a place in host space, before the amount.
  Vec3D Push(const Vec3D& host) const {
    const Vec3D q = inverse_ * host;
    return matrix_.Rotate({-q.y, q.x, 0});
  }

  double strength_ = 0;  // m
  LMatrix matrix_, inverse_;
};

}  // namespace orlix
