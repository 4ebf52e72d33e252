#pragma once
// A grid with its lattice.

#include <memory>
#include <new>

#include "fluids/grids/Grid.h"
#include "fluids/grids/GridSpace.h"

namespace orlix {

template <class T, class P>
class EGrid : public Grid<T> {
 public:
  // gridDims are the array's dimensions; on staggered types the lattice has one cell less in the staggered axes.
  EGrid(const VecInt3D& gridDims, const Vec3D& hostSize, float cellSize, std::uint32_t type, const Vec3D& hostOrigin)
      : Grid<T>(gridDims, type) {
    const VecInt3D extra = ExtraCells(type);
    space.Build(gridDims - extra, hostSize, cellSize, hostOrigin);
    InitStrides();
  }
  EGrid(const EGrid&) = default;

  // Same dims, lattice and active box as source with another type code (30 for temporary data); elements are unfilled.
  static std::unique_ptr<EGrid> CreateLike(const EGrid& source, std::uint32_t type) {
    return std::unique_ptr<EGrid>(new EGrid(source, type));
  }

  GridSpace space;
  VecInt3D lastCell;              // index of the last cell: dims - 1, one less on a staggered axis
  std::int32_t cornerStrides[4];  // index distances from a cell to its far corners

 private:
  EGrid(const EGrid& source, std::uint32_t type) : Grid<T>(source.dims, type), space(source.space) {
    this->activeMin = source.activeMin, this->activeMax = source.activeMax;
    InitStrides();
    lastCell = source.lastCell;
  }
  void InitStrides() {
    lastCell = this->dims - VecInt3D(1, 1, 1) - ExtraCells(this->gridType);
    cornerStrides[0] = this->dims.x + 1;
    cornerStrides[1] = this->slab + 1;
    cornerStrides[2] = this->dims.x + this->slab;
    cornerStrides[3] = this->dims.x + this->slab + 1;
  }
};

using ScalarGrid = EGrid<double, double>;
using FloatGrid = EGrid<float, double>;
using VectorGrid = EGrid<Vec3D, double>;

// Moves a channel's data to a new lattice: dims (the array's), host size, cell size and origin of the target; new cells
// get fillValue, the overlap keeps its content by whole-cell offsets. A one-cell grid on either side gets no content.
// False, with the grid as it was, when memory doesn't suffice. Nothing happens to a null grid.
bool ResizeKeepingContent(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims,
                          const GridSpace& target, WorkerPool* pool = nullptr);

}  // namespace orlix
