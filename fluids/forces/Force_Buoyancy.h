#pragma once
// Hot gas rises, dense gas sinks: a velocity change along a direction by temperature and density.

#include "fluids/channels/LatticeRows.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/forces/ConstrainedForce.h"

namespace orlix {

// s = amount (t temperatureFactor + (d + fuel) densityFactor), t the temperature above the channel's minimum, d the
// density; nothing where neither t nor d is above 0. The force gets s x direction.
struct BuoyancyTerms {
  double temperatureMin = 0, temperatureFactor = 0, densityFactor = 0;
  Vec3D direction;
};

// Pointers stand at cell 0; density and fuel may be null.
struct BuoyancyRow {
  std::int32_t begin = 0, end = 0;
  const double* temperature = nullptr;
  const double* density = nullptr;
  const double* fuel = nullptr;
  const double* amounts = nullptr;
  double* force[3] = {};
};

void AddBuoyancy(const BuoyancyTerms& terms, const BuoyancyRow& row);

class Force_Buoyancy final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kTemperatureId = 1000, kFuelId = 1001, kDensityId = 1002, kDirectionId = 1003,
                       kTemperatureFactorId = 1004, kDensityFactorId = 1005, kForceDurationId = 1009;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 29; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PARTICLE);
  }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  double SampleAt(const ChannelBase_Scalar* channel, const Vec3D& voxel) const;

  ChannelBase_Scalar* temperature_ = nullptr;
  ChannelBase_Scalar* fuel_ = nullptr;
  ChannelBase_Scalar* density_ = nullptr;
  LatticeRows temperatureRows_, fuelRows_, densityRows_;
  Vec3D direction_;
  BuoyancyTerms terms_;
};

}  // namespace orlix
