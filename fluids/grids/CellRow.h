#pragma once
// A run of cells along x, which forces, constraints and channel operators are asked at once, so that nothing virtual
// happens per cell. Pointers that a kind of row adds stand at its cell i = 0: cell i's value is p[i].

#include "fluids/grids/GridSpace.h"

namespace orlix {

struct CellRow {
  std::int32_t begin = 0, end = 0;  // cells [begin, end) of the row
  std::int32_t j = 0, k = 0;
  std::int32_t threadIndex = 0;
  const GridSpace* space = nullptr;  // of the cells

  // Cell centre in simulation space.
  Vec3D Position(std::int32_t i) const { return Vec3D(i + 0.5, j + 0.5, k + 0.5) * space->simPerVoxel + space->simMin; }
};

}  // namespace orlix
