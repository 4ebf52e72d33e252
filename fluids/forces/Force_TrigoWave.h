#pragma once
// Moves the gas by a travelling wave in the object's frame.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/forces/TrigoWave.h"

namespace orlix {

class Force_TrigoWave final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 34; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PARTICLE);
  }
  bool ReadParameters() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;

 protected:
  Duration* FindDuration() const override { return DurationOf(1006); }

 private:
  TrigoWave wave_;
  double speed_ = 0;                  // m/s
  double phase_ = 0, fixedTime_ = 0;  // s
  bool useTime_ = true;
  Vec3D scale_;  // inverse, with the object's place
  LMatrix matrix_, inverse_;
};

}  // namespace orlix
