#include "fluids/channels/ChannelBase.h"

#include <utility>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

namespace {

double Component(double value, int) { return value; }
double Component(const Vec3D& value, int c) { return value[c]; }

// A single grid is called by the name alone.
template <class Grids>
void VisitGrids(StateVisitor& visitor, const char* const (&names)[4], Grids& grids) {
  const std::size_t first = grids.size() == 1 ? 0 : 1;
  for (std::size_t c = 0; c < grids.size(); ++c) visitor.VisitGrid(names[first + c], grids[c]);
}

}  // namespace

template <class T>
bool ChannelBase<T>::ReadParameters() {
  const bool read = this->ReadCommonParameters();
  const auto value = [&](int id) {
    if constexpr (std::is_same_v<T, Vec3D>)
      return this->handler.GetVector(id);
    else
      return this->handler.GetDouble(id);
  };
  valueMin = value(this->kValueMinId);
  valueMax = value(this->kValueMaxId);
  backgroundValue = value(this->kBackgroundId);
  return read;
}

template <class T>
void ChannelBase<T>::FillWithBackground(Grids& some) {
  for (int c = 0; c < kGrids; ++c) {
    if (!some[c]) continue;
    some[c]->ResetActiveBox();
    some[c]->Fill(Component(backgroundValue, c), &this->scene->pool());
  }
}

template <class T>
void ChannelBase<T>::ClearState(bool deactivate) {
  if (!deactivate) return;
  iObject::ClearState(true);
  for (auto& grid : grids) grid.reset();
}

template <class T>
void ChannelBase<T>::ExtendBounds(Vec3D& min, Vec3D& max) {
  // What the grids hold is about to be replaced by what the cache has.
  if (this->HasFlag(NodeFromCache) && this->cacheSpaceValid) {
    min = Min(min, this->cacheSpace.simMin);
    max = Max(max, this->cacheSpace.simMax);
    return;
  }
  for (const auto& grid : grids) {
    if (grid) WidenByActiveBox(*grid, min, max);
  }
}

template <class T>
bool ChannelBase<T>::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  const GridSpace& space = this->GetSimulationSpace();
  WorkerPool& pool = this->scene->pool();
  ContainerLattice lattice;
  bool applied = ContainerLattice::Of(space, min, max, lattice);
  bool changed = false;
  for (int c = 0; c < kGrids && applied; ++c) {
    const double low = Component(valueMin, c), high = Component(valueMax, c);
    const double background = Component(backgroundValue, c);
    applied = EnsureChannelGrid(grids[c], space, channelType[c], low, high, background);
    if (!applied) break;
    if (c == 0) changed = !lattice.SameAs(*grids[0]);
    applied = ApplyContainer(grids[c], lattice, changed, this->clearEachStep, low, high, background, pool);
  }
  this->SetFlag(NodeActive, applied);
  if (!applied) this->scene->FailForMemory(*this, lattice.cells);
  return applied;
}

template <class T>
void ChannelBase<T>::AfterStep() {
  for (int c = 0; c < kGrids; ++c) {
    if (grids[c]) grids[c]->FindActiveBox(Component(valueMin, c), Component(valueMax, c), true, &this->scene->pool());
  }
}

template <class T>
void ChannelBase<T>::VisitState(StateVisitor& visitor) {
  VisitGrids(visitor, {"grid", "grid0", "grid1", "grid2"}, grids);
}

template <class T>
T ChannelBase<T>::Sample(const Vec3D& voxel, Interpolation mode) const {
  for (const auto& grid : grids) {
    if (!grid) return T{};
  }
  const auto component = [&](int c) { return SampleChannelGrid(*grids[c], voxel, mode); };
  if constexpr (kGrids == 3)
    return {component(0), component(1), component(2)};
  else
    return component(0);
}

template <class Base>
void ChannelWithPrevious<Base>::ResetSimulation() {
  Base::ResetSimulation();
  this->FillWithBackground(previousGrids);
}

template <class Base>
void ChannelWithPrevious<Base>::ClearState(bool deactivate) {
  Base::ClearState(deactivate);
  for (auto& before : previousGrids) before.reset();
}

template <class Base>
bool ChannelWithPrevious<Base>::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  if (!Base::ApplyBounds(min, max)) return false;
  if (!this->keepPrevious) {
    ClearState(false);
    return true;
  }
  bool applied = true;
  for (int c = 0; c < Base::kGrids; ++c) {
    applied = applied &&
              ApplyToPrevious(previousGrids[c], *this->grids[c], Component(this->valueMin, c),
                              Component(this->valueMax, c), Component(this->backgroundValue, c), this->scene->pool());
  }
  this->SetFlag(NodeActive, applied);
  if (!applied) this->scene->FailForMemory(*this, this->grids[0]->dims);
  return applied;
}

template <class Base>
void ChannelWithPrevious<Base>::VisitState(StateVisitor& visitor) {
  Base::VisitState(visitor);
  VisitGrids(visitor, {"previous", "previous0", "previous1", "previous2"}, previousGrids);
}

template <class Base>
void ChannelWithPrevious<Base>::SwapGrids() {
  if (!this->keepPrevious) return;
  for (int c = 0; c < Base::kGrids; ++c) {
    if (this->grids[c] && previousGrids[c]) std::swap(this->grids[c]->data, previousGrids[c]->data);
  }
}

template class ChannelBase<double>;
template class ChannelBase<Vec3D>;
template class ChannelWithPrevious<ChannelBase_Scalar>;
template class ChannelWithPrevious<ChannelBase_Vector>;

}  // namespace orlix
