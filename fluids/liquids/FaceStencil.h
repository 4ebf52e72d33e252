#pragma once
// The eight faces of a velocity component around a point, with their trilinear weights.

#include <cstdint>

#include "globals/Vec.h"

namespace orlix {

struct FaceStencil {
  std::int64_t index;  // of the lowest face
  double fx, fy, fz;   // weight of the higher face along each axis

  // place: in cells from the array's corner; dims, slab: of the component's array. The component's samples stand at
  // cell indices along its own axis and half a cell further along the others. A point beyond the outermost samples
  // takes theirs.
  static FaceStencil At(const Vec3D& place, int axis, const VecInt3D& dims, std::int64_t slab) {
    FaceStencil s;
    int i, j, k;
    Split(axis == 0 ? place.x : place.x - 0.5, dims.x, i, s.fx);
    Split(axis == 1 ? place.y : place.y - 0.5, dims.y, j, s.fy);
    Split(axis == 2 ? place.z : place.z - 0.5, dims.z, k, s.fz);
    s.index = slab * k + std::int64_t(dims.x) * j + i;
    return s;
  }

 private:
  static void Split(double coordinate, int n, int& low, double& fraction) {
    if (!(coordinate > 0)) {
      low = 0, fraction = 0;
      return;
    }
    low = static_cast<int>(coordinate);
    if (low > n - 2) {
      low = n - 2, fraction = 1;
      return;
    }
    fraction = coordinate - low;
  }
};

}  // namespace orlix
