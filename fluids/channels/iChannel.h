#pragma once
// A channel owns a quantity that lives on the grid. Solvers, emitters and operators reach its grids through it; it
// gives them the container's size, keeps them through a change of container, limits their values after each sub-step
// and answers point samples.
//
//   iChannel<T>
//   └ Channel_Dynamic<T>           keepPrevious
//     └ ChannelBase<T>             one grid, or three, one a component
//       ├ ChannelBase_Scalar
//       │ └ ScalarGridChannel      and the previous one: fuel, fire, temperature
//       └ ChannelBase_Vector
//         └ VectorGridChannel      and the previous ones: velocity

#include <type_traits>

#include "fluids/grids/Interpolation.h"
#include "fluids/scene/OrlixScene.h"
#include "fluids/scene/iCachedGrids.h"

namespace orlix {

template <class T>
class iChannel : public iObject, public iCachedGrids {
 public:
  using iObject::iObject;
  static constexpr int kClearEachStepId = 1001, kKeepPreviousId = 1002, kBoundsId = 1021, kValueMinId = 1050,
                       kValueMaxId = 1051, kBackgroundId = 1052;
  std::int32_t GetNodeBaseType() const override { return NODE_CHANNEL; }
  bool ResetWhenDirty() const override { return true; }

  // p, in simulation space, lies in the box; the upper faces don't. False without a grid.
  virtual bool ContainsPoint(const Vec3D&) const { return false; }
  // p's cell lies in [0, dims), or with interiorOnly in [1, dims - 1).
  virtual bool ContainsCell(const Vec3D&, bool /*interiorOnly*/) const { return false; }
  // The current grid of a component; null when there is none.
  virtual ScalarGrid* GetGrid(std::int32_t /*component*/) const { return nullptr; }
  virtual ScalarGrid* GetReadGrid(std::int32_t component) const { return GetGrid(component); }
  // Trilinear at a point in simulation space.
  virtual T SamplePoint(const Vec3D&) const { return T{}; }
  // Index coordinates of the lattice; the grid's sample offset is taken off here. 0 without a grid.
  virtual T Sample(const Vec3D&, Interpolation) const { return T{}; }

  int CachedGridCount() const override { return std::is_same_v<T, Vec3D> ? 3 : 1; }
  ScalarGrid* CachedGrid(int index) override { return GetGrid(index); }
  void TakeCacheHeader(const GridCacheHeader& header) override {
    cacheSpaceValid = header.present;
    cacheSpace = header.space;
  }

  // Filled with backgroundValue at each ApplyBounds: holds what is newly written in this sub-step and nothing else.
  bool clearEachStep = false;
  // The box of the data that a cache plays back.
  bool cacheSpaceValid = false;
  GridSpace cacheSpace;
};

template <class T>
class Channel_Dynamic : public iChannel<T> {
 public:
  using iChannel<T>::iChannel;
  bool keepPrevious = false;

 protected:
  // The settings that all channels share.
  bool ReadCommonParameters() {
    const bool read = iBase::ReadParameters();
    this->clearEachStep = this->handler.GetBool(this->kClearEachStepId);
    this->SetFlag(NodeHasBounds, this->handler.GetBool(this->kBoundsId));
    keepPrevious = this->handler.GetBool(this->kKeepPreviousId);
    return read;
  }
};

// --- pieces that scalar and vector channels share --------------------------------------------------------------------

// The array's dims, lattice and origin that a container (in simulation space) gives to a grid of a type.
struct ContainerLattice {
  VecInt3D cells;
  GridSpace space;

  // False when the container has no cell or more than an index can count.
  static bool Of(const GridSpace& sceneSpace, const Vec3D& min, const Vec3D& max, ContainerLattice& lattice);
  bool SameAs(const ScalarGrid& grid) const;
};

// Makes grid, when it is null, a one-cell grid at the origin; sets its value code. False when memory doesn't suffice.
bool EnsureChannelGrid(std::unique_ptr<ScalarGrid>& grid, const GridSpace& sceneSpace, std::uint32_t type,
                       double valueMin, double valueMax, double background);
// Brings a channel's grid to the container: new cells hold background, the overlap keeps its content. The active box is
// up to date after it.
bool ApplyContainer(std::unique_ptr<ScalarGrid>& grid, const ContainerLattice& lattice, bool changed, bool clear,
                    double valueMin, double valueMax, double background, WorkerPool& pool);
// Keeps previous in step with grid: makes, resizes or leaves it.
bool ApplyToPrevious(std::unique_ptr<ScalarGrid>& previous, const ScalarGrid& grid, double valueMin, double valueMax,
                     double background, WorkerPool& pool);
// Of so many grids on a container of so many cells; staggered ones have a layer more.
inline double ChannelBytes(const VecInt3D& cells, int grids) {
  return double(sizeof(double)) * grids * (cells.x + 1.0) * (cells.y + 1.0) * (cells.z + 1.0);
}
void WidenByActiveBox(const ScalarGrid& grid, Vec3D& min, Vec3D& max);
bool LatticeContainsPoint(const GridSpace& space, const Vec3D& p);
bool LatticeContainsCell(const GridSpace& space, const Vec3D& p, bool interiorOnly);
// Index coordinates of the lattice to those of the grid's array, then the kernel.
double SampleChannelGrid(const ScalarGrid& grid, const Vec3D& voxel, Interpolation mode);

}  // namespace orlix
