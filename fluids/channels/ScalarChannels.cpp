#include "fluids/channels/ScalarChannels.h"

#include <utility>

namespace orlix {

bool ChannelBase_Scalar::ReadParameters() {
  const bool read = ReadCommonParameters();
  valueMin = handler.GetDouble(1050);
  valueMax = handler.GetDouble(1051);
  backgroundValue = handler.GetDouble(1052);
  return read;
}

void ChannelBase_Scalar::ResetSimulation() {
  if (!grid) return;
  grid->ResetActiveBox();
  grid->Fill(backgroundValue, &scene->pool());
}

void ChannelBase_Scalar::ClearState(bool deactivate) {
  if (!deactivate) return;
  iObject::ClearState(true);
  grid.reset();
}

void ChannelBase_Scalar::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (grid) WidenByActiveBox(*grid, min, max);
  if (HasFlag(NodeFromCache) && cacheSpaceValid) {
    min = Min(min, cacheSpace.simMin);
    max = Max(max, cacheSpace.simMax);
  }
}

bool ChannelBase_Scalar::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  WorkerPool& pool = scene->pool();
  ContainerLattice lattice;
  bool applied = ContainerLattice::Of(GetSimulationSpace(), min, max, lattice) &&
                 EnsureChannelGrid(grid, GetSimulationSpace(), channelType, valueMin, valueMax, backgroundValue);
  if (applied) {
    grid->FindActiveBox(valueMin, valueMax, false, &pool);
    applied =
        ApplyContainer(grid, lattice, !lattice.SameAs(*grid), clearEachStep, valueMin, valueMax, backgroundValue, pool);
  }
  SetFlag(NodeActive, applied);
  if (!applied) scene->FailForMemory(*this, lattice.cells);
  return applied;
}

void ChannelBase_Scalar::AfterStep() {
  if (grid) grid->FindActiveBox(valueMin, valueMax, true, &scene->pool());
}

void ChannelBase_Scalar::VisitState(StateVisitor& visitor) { visitor.VisitGrid("grid", grid); }

bool ChannelBase_Scalar::ResetToGrid(const ScalarGrid* shape, const double& background) {
  backgroundValue = background;
  const bool reset = ResetChannelGrid(grid, shape, channelType, background);
  SetFlag(NodeActive, reset);
  return reset;
}

double ChannelBase_Scalar::SamplePoint(const Vec3D& p) const {
  return grid ? Sample(grid->space.VoxelOfSim(p), Interpolation::Trilinear) : 0;
}

double ChannelBase_Scalar::Sample(const Vec3D& voxel, Interpolation mode) const {
  return grid ? SampleChannelGrid(*grid, voxel, mode) : 0;
}

void ScalarGridChannel::ResetSimulation() {
  ChannelBase_Scalar::ResetSimulation();
  if (!previous) return;
  previous->ResetActiveBox();
  previous->Fill(backgroundValue, &scene->pool());
}

void ScalarGridChannel::ClearState(bool deactivate) {
  ChannelBase_Scalar::ClearState(deactivate);
  previous.reset();
}

bool ScalarGridChannel::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  if (!ChannelBase_Scalar::ApplyBounds(min, max)) return false;
  if (!keepPrevious) {
    ClearState(false);
    return true;
  }
  const bool applied = ApplyToPrevious(previous, *grid, valueMin, valueMax, backgroundValue, scene->pool());
  SetFlag(NodeActive, applied);
  if (!applied) scene->FailForMemory(*this, grid->dims);
  return applied;
}

void ScalarGridChannel::VisitState(StateVisitor& visitor) {
  ChannelBase_Scalar::VisitState(visitor);
  visitor.VisitGrid("previous", previous);
}

void ScalarGridChannel::SwapGrids() {
  if (keepPrevious && grid && previous) std::swap(grid->data, previous->data);
}

double ScalarGridChannel::SamplePrevious(const Vec3D& voxel, Interpolation mode) const {
  return previous ? SampleChannelGrid(*previous, voxel, mode) : 0;
}

bool FuelGridChannel::ReadParameters() {
  const bool read = ScalarGridChannel::ReadParameters();
  ignitionTemperature = handler.GetInt(2000);
  return read;
}

bool FireGridChannel::ReadParameters() {
  const bool read = ScalarGridChannel::ReadParameters();
  flameTemperature = handler.GetDouble(2000);
  coolingTimeCold = handler.GetDouble(2001);
  coolingTimeHot = handler.GetDouble(2002);
  return read;
}

}  // namespace orlix
