#include "fluids/channels/VectorChannels.h"

#include <utility>

namespace orlix {

bool ChannelBase_Vector::ReadParameters() {
  const bool read = ReadCommonParameters();
  valueMin = handler.GetVector(1050);
  valueMax = handler.GetVector(1051);
  backgroundValue = handler.GetVector(1052);
  return read;
}

void ChannelBase_Vector::ResetSimulation() {
  for (int c = 0; c < 3; ++c) {
    if (!grids[c]) continue;
    grids[c]->ResetActiveBox();
    grids[c]->Fill(backgroundValue[c], &scene->pool());
  }
}

void ChannelBase_Vector::ClearState(bool deactivate) {
  if (!deactivate) return;
  iObject::ClearState(true);
  for (auto& grid : grids) grid.reset();
}

void ChannelBase_Vector::ExtendBounds(Vec3D& min, Vec3D& max) {
  for (const auto& grid : grids) {
    if (grid) WidenByActiveBox(*grid, min, max);
  }
  if (HasFlag(NodeFromCache) && cacheSpaceValid) {
    min = Min(min, cacheSpace.simMin);
    max = Max(max, cacheSpace.simMax);
  }
}

bool ChannelBase_Vector::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  WorkerPool& pool = scene->pool();
  ContainerLattice lattice;
  bool applied = ContainerLattice::Of(GetSimulationSpace(), min, max, lattice);
  bool changed = false;
  for (int c = 0; c < 3 && applied; ++c) {
    applied =
        EnsureChannelGrid(grids[c], GetSimulationSpace(), channelType[c], valueMin[c], valueMax[c], backgroundValue[c]);
    if (!applied) break;
    grids[c]->FindActiveBox(valueMin[c], valueMax[c], false, &pool);
    if (c == 0) changed = !lattice.SameAs(*grids[0]);
    applied =
        ApplyContainer(grids[c], lattice, changed, clearEachStep, valueMin[c], valueMax[c], backgroundValue[c], pool);
  }
  SetFlag(NodeActive, applied);
  if (!applied) scene->FailForMemory(*this, lattice.cells);
  return applied;
}

void ChannelBase_Vector::AfterStep() {
  for (int c = 0; c < 3; ++c) {
    if (grids[c]) grids[c]->FindActiveBox(valueMin[c], valueMax[c], true, &scene->pool());
  }
}

void ChannelBase_Vector::VisitState(StateVisitor& visitor) {
  static constexpr const char* kNames[] = {"grid0", "grid1", "grid2"};
  for (int c = 0; c < 3; ++c) visitor.VisitGrid(kNames[c], grids[c]);
}

bool ChannelBase_Vector::ResetToGrid(const ScalarGrid* shape, const Vec3D& background) {
  backgroundValue = background;
  bool reset = true;
  for (int c = 0; c < 3; ++c) reset = reset && ResetChannelGrid(grids[c], shape, channelType[c], background[c]);
  SetFlag(NodeActive, reset);
  return reset;
}

Vec3D ChannelBase_Vector::SamplePoint(const Vec3D& p) const {
  return grids[0] ? Sample(grids[0]->space.VoxelOfSim(p), Interpolation::Trilinear) : Vec3D();
}

namespace {

Vec3D SampleThree(const std::array<std::unique_ptr<ScalarGrid>, 3>& grids, const Vec3D& voxel, Interpolation mode) {
  if (!grids[0] || !grids[1] || !grids[2]) return {};
  return {SampleChannelGrid(*grids[0], voxel, mode), SampleChannelGrid(*grids[1], voxel, mode),
          SampleChannelGrid(*grids[2], voxel, mode)};
}

}  // namespace

Vec3D ChannelBase_Vector::Sample(const Vec3D& voxel, Interpolation mode) const {
  return SampleThree(grids, voxel, mode);
}

void VectorGridChannel::ResetSimulation() {
  ChannelBase_Vector::ResetSimulation();
  for (int c = 0; c < 3; ++c) {
    if (!previousGrids[c]) continue;
    previousGrids[c]->ResetActiveBox();
    previousGrids[c]->Fill(backgroundValue[c], &scene->pool());
  }
}

void VectorGridChannel::ClearState(bool deactivate) {
  ChannelBase_Vector::ClearState(deactivate);
  for (auto& grid : previousGrids) grid.reset();
}

bool VectorGridChannel::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  if (!ChannelBase_Vector::ApplyBounds(min, max)) return false;
  if (!keepPrevious) {
    ClearState(false);
    return true;
  }
  bool applied = true;
  for (int c = 0; c < 3; ++c) {
    applied = applied &&
              ApplyToPrevious(previousGrids[c], *grids[c], valueMin[c], valueMax[c], backgroundValue[c], scene->pool());
  }
  SetFlag(NodeActive, applied);
  if (!applied) scene->FailForMemory(*this, grids[0]->dims);
  return applied;
}

bool VectorGridChannel::ResetToGrid(const ScalarGrid* shape, const Vec3D& background) {
  if (!ChannelBase_Vector::ResetToGrid(shape, background)) return false;
  for (int c = 0; c < 3; ++c) {
    if (!previousGrids[c]) continue;
    if (!ResetChannelGrid(previousGrids[c], shape, channelType[c], background[c])) return false;
    previousGrids[c]->activeMin = grids[c]->activeMin, previousGrids[c]->activeMax = grids[c]->activeMax;
  }
  return true;
}

void VectorGridChannel::VisitState(StateVisitor& visitor) {
  ChannelBase_Vector::VisitState(visitor);
  static constexpr const char* kNames[] = {"previous0", "previous1", "previous2"};
  for (int c = 0; c < 3; ++c) visitor.VisitGrid(kNames[c], previousGrids[c]);
}

void VectorGridChannel::SwapGrids() {
  if (!keepPrevious) return;
  for (int c = 0; c < 3; ++c) {
    if (grids[c] && previousGrids[c]) std::swap(grids[c]->data, previousGrids[c]->data);
  }
}

Vec3D VectorGridChannel::SamplePrevious(const Vec3D& voxel, Interpolation mode) const {
  return SampleThree(previousGrids, voxel, mode);
}

}  // namespace orlix
