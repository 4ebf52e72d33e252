#pragma once
// The whole velocity vector at the face of a cell, from staggered components.

#include <array>

#include "fluids/grids/Grid.h"

namespace orlix {

using MacView = std::array<GridView<const double>, 3>;

// selector 0, 1, 2: the low x, y, z face of cell (i, j, k); 3, 4, 5: the high one; any other: the cell's centre. At a
// face its own component is as stored, the others are the mean of the four faces around it.
inline Vec3D InterpolateVelocityAtFace(const MacView& velocity, int i, int j, int k, int selector) {
  Vec3D result;
  if (selector < 0 || selector > 5) {
    for (int c = 0; c < 3; ++c) {
      const VecInt3D far(i + (c == 0), j + (c == 1), k + (c == 2));
      const GridView<const double>& grid = velocity[static_cast<std::size_t>(c)];
      result[c] = (grid(i, j, k) + grid(far.x, far.y, far.z)) * 0.5;
    }
    return result;
  }
  const int axis = selector % 3;
  VecInt3D cell(i, j, k);
  if (selector >= 3) ++cell[axis];
  VecInt3D before = cell;
  --before[axis];
  for (int c = 0; c < 3; ++c) {
    const GridView<const double>& grid = velocity[static_cast<std::size_t>(c)];
    if (c == axis) {
      result[c] = grid(cell.x, cell.y, cell.z);
      continue;
    }
    VecInt3D far = cell, farBefore = before;
    ++far[c], ++farBefore[c];
    result[c] = (grid(cell.x, cell.y, cell.z) + grid(far.x, far.y, far.z) + grid(before.x, before.y, before.z) +
                 grid(farBefore.x, farBefore.y, farBefore.z)) *
                0.25;
  }
  return result;
}

}  // namespace orlix
