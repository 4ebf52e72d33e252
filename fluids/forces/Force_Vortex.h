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

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  double strength_ = 0;  // m
  LMatrix matrix_, inverse_;
};

}  // namespace orlix
