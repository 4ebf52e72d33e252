#pragma once
// Moves the gas by a travelling wave in the object's frame.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/forces/TrigoWave.h"

namespace orlix {

class Force_TrigoWave final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kAmplitudeId = 1000, kSpeedId = 1001, kWavelengthId = 1002, kWaveTypeId = 1003,
                       kWaveShapeId = 1004, kPhaseId = 1005, kForceDurationId = 1006, kWaveScaleId = 1008,
                       kUseTimeId = 1009, kFixedTimeId = 1010;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 34; }
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
  void TakeTime();
  // How far the wave moves a place (simulation space) by an amount.
  Vec3D Push(const Vec3D& position, double amount) const;

  TrigoWave wave_;
  double speed_ = 0;                  // m/s
  double phase_ = 0, fixedTime_ = 0;  // s
  bool useTime_ = true;
  Vec3D scale_;  // inverse, with the object's place
  LMatrix matrix_, inverse_;
};

}  // namespace orlix
