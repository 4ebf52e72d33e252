#pragma once
// Scalar channels: smoke, temperature, fuel, fire and whatever a user names.

#include "fluids/channels/iChannel.h"

namespace orlix {

class ChannelBase_Scalar : public Channel_Dynamic<double> {
 public:
  using Channel_Dynamic::Channel_Dynamic;

  std::int32_t GetNodeSubType() const override { return 44; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_SCALAR) | RetrieveBit(RETRIEVE_GRID);
  }
  bool ReadParameters() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void AfterStep() override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override { return {.kept = ChannelBytes(cells, 1)}; }

  bool ContainsPoint(const Vec3D& p) const override { return grid && LatticeContainsPoint(grid->space, p); }
  bool ContainsCell(const Vec3D& p, bool interiorOnly) const override {
    return grid && LatticeContainsCell(grid->space, p, interiorOnly);
  }
  ScalarGrid* GetGrid(std::int32_t component) const override { return component == 0 ? grid.get() : nullptr; }
  bool ResetToGrid(const ScalarGrid* shape, const double& background) override;
  double SamplePoint(const Vec3D& p) const override;
  double Sample(const Vec3D& voxel, Interpolation mode) const override;

  std::unique_ptr<ScalarGrid> grid;
  std::uint32_t channelType = kGridCustom;
  double valueMin = 0;  // what counts as empty
  double valueMax = 1;
  double backgroundValue = 0;  // what a cell holds after a reset
};

// With the grid of the step before.
class ScalarGridChannel : public ChannelBase_Scalar {
 public:
  using ChannelBase_Scalar::ChannelBase_Scalar;
  static const TypeInfo& Type();

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override {
    return {.kept = ChannelBytes(cells, keepPrevious ? 2 : 1)};
  }

  // If keepPrevious, exchanges the arrays of the grid and the previous one; lattices stay.
  void SwapGrids();
  double SamplePrevious(const Vec3D& voxel, Interpolation mode) const;

  std::unique_ptr<ScalarGrid> previous;
};

class TemperatureGridChannel final : public ScalarGridChannel {
 public:
  TemperatureGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) {
    channelType = kGridTemperature;
  }
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 48; }
};

class FuelGridChannel final : public ScalarGridChannel {
 public:
  FuelGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) { channelType = kGridFuel; }
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 47; }
  bool ReadParameters() override;

  double ignitionTemperature = 600;  // K
};

class FireGridChannel final : public ScalarGridChannel {
 public:
  FireGridChannel(BaseList2D* object, OrlixScene& owner) : ScalarGridChannel(object, owner) { channelType = kGridFire; }
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 49; }
  bool ReadParameters() override;

  double flameTemperature = 0.7;
  double coolingTimeCold = 1.0, coolingTimeHot = 1.0;  // s
};

}  // namespace orlix
