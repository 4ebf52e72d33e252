#pragma once
// Scalar channels: smoke, temperature, fuel, fire and whatever a user names.

#include "fluids/channels/ChannelBase.h"

namespace orlix {

class ChannelBase_Scalar : public ChannelBase<double> {
 public:
  using ChannelBase::ChannelBase;
  std::int32_t GetNodeSubType() const override { return 44; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_SCALAR) | RetrieveBit(RETRIEVE_GRID);
  }

  std::unique_ptr<ScalarGrid>& grid = grids[0];
};

class ScalarGridChannel : public ChannelWithPrevious<ChannelBase_Scalar> {
 public:
  using ChannelWithPrevious::ChannelWithPrevious;
  static const TypeInfo& Type();

  std::unique_ptr<ScalarGrid>& previous = previousGrids[0];
};

class TemperatureGridChannel final : public ScalarGridChannel {
 public:
  TemperatureGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) {
    channelType = {kGridTemperature};
  }
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 48; }
};

class FuelGridChannel final : public ScalarGridChannel {
 public:
  FuelGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) {
    channelType = {kGridFuel};
  }
  static constexpr int kIgnitionTemperatureId = 2000;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 47; }
  bool ReadParameters() override;

  double ignitionTemperature = 600;  // K
};

class FireGridChannel final : public ScalarGridChannel {
 public:
  FireGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) {
    channelType = {kGridFire};
  }
  static constexpr int kFlameTemperatureId = 2000, kCoolingTimeColdId = 2001, kCoolingTimeHotId = 2002;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 49; }
  bool ReadParameters() override;

  double flameTemperature = 0.7;
  double coolingTimeCold = 1.0, coolingTimeHot = 1.0;  // s
};

}  // namespace orlix
