#pragma once
// What scalar and vector channels do alike, grid by grid: T is double with one grid, or Vec3D with three, one a
// component.

#include <array>

#include "fluids/channels/iChannel.h"

namespace orlix {

template <class T>
class ChannelBase : public Channel_Dynamic<T> {
 public:
  using ValueType = T;
  static constexpr int kGrids = std::is_same_v<T, Vec3D> ? 3 : 1;
  using Grids = std::array<std::unique_ptr<ScalarGrid>, kGrids>;

  using Channel_Dynamic<T>::Channel_Dynamic;
  bool ReadParameters() override;
  void ResetSimulation() override { FillWithBackground(grids); }
  void ClearState(bool deactivate) override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void AfterStep() override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override { return {.kept = ChannelBytes(cells, kGrids)}; }

  bool ContainsPoint(const Vec3D& p) const override { return grids[0] && LatticeContainsPoint(grids[0]->space, p); }
  bool ContainsCell(const Vec3D& p, bool interiorOnly) const override {
    return grids[0] && LatticeContainsCell(grids[0]->space, p, interiorOnly);
  }
  ScalarGrid* GetGrid(std::int32_t component) const override {
    return component >= 0 && component < kGrids ? grids[component].get() : nullptr;
  }
  T SamplePoint(const Vec3D& p) const override {
    return grids[0] ? Sample(grids[0]->space.VoxelOfSim(p), Interpolation::Trilinear) : T{};
  }
  T Sample(const Vec3D& voxel, Interpolation mode) const override;

  Grids grids;
  std::array<std::uint32_t, kGrids> channelType = AllCustom();
  T valueMin{};         // what counts as empty
  T valueMax = T(1.0);  // values are limited to it
  T backgroundValue{};  // what a cell holds after a reset

 protected:
  // Fills the grids that exist; their active boxes are empty then.
  void FillWithBackground(Grids& some);

 private:
  static constexpr std::array<std::uint32_t, kGrids> AllCustom() {
    std::array<std::uint32_t, kGrids> types{};
    types.fill(kGridCustom);
    return types;
  }
};

// A channel with the grids of the step before. Base is ChannelBase_Scalar or ChannelBase_Vector.
template <class Base>
class ChannelWithPrevious : public Base {
 public:
  using Base::Base;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void VisitState(StateVisitor& visitor) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override {
    return {.kept = ChannelBytes(cells, this->keepPrevious ? 2 * Base::kGrids : Base::kGrids)};
  }

  // If keepPrevious, exchanges the arrays of the grids and the previous ones; lattices stay.
  void SwapGrids();

  typename Base::Grids previousGrids;
};

}  // namespace orlix
