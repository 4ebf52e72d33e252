#pragma once
// Vector channels: three grids, one a component.

#include <array>

#include "fluids/channels/iChannel.h"

namespace orlix {

class ChannelBase_Vector : public Channel_Dynamic<Vec3D> {
 public:
  using Channel_Dynamic::Channel_Dynamic;

  std::int32_t GetNodeSubType() const override { return 45; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_VECTOR) | RetrieveBit(RETRIEVE_GRID);
  }
  bool ReadParameters() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void AfterStep() override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override { return {.kept = ChannelBytes(cells, 3)}; }

  bool ContainsPoint(const Vec3D& p) const override { return grids[0] && LatticeContainsPoint(grids[0]->space, p); }
  bool ContainsCell(const Vec3D& p, bool interiorOnly) const override {
    return grids[0] && LatticeContainsCell(grids[0]->space, p, interiorOnly);
  }
  ScalarGrid* GetGrid(std::int32_t component) const override {
    return component >= 0 && component < 3 ? grids[component].get() : nullptr;
  }
  bool ResetToGrid(const ScalarGrid* shape, const Vec3D& background) override;
  Vec3D SamplePoint(const Vec3D& p) const override;
  Vec3D Sample(const Vec3D& voxel, Interpolation mode) const override;

  std::array<std::unique_ptr<ScalarGrid>, 3> grids;
  std::array<std::uint32_t, 3> channelType{kGridCustom, kGridCustom, kGridCustom};
  Vec3D valueMin, valueMax{1, 1, 1}, backgroundValue;
};

// With the grids of the step before.
class VectorGridChannel : public ChannelBase_Vector {
 public:
  using ChannelBase_Vector::ChannelBase_Vector;
  static const TypeInfo& Type();

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  bool ResetToGrid(const ScalarGrid* shape, const Vec3D& background) override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override {
    return {.kept = ChannelBytes(cells, keepPrevious ? 6 : 3)};
  }

  void SwapGrids();
  // 0 unless all three exist.
  Vec3D SamplePrevious(const Vec3D& voxel, Interpolation mode) const;

  std::array<std::unique_ptr<ScalarGrid>, 3> previousGrids;
};

}  // namespace orlix
