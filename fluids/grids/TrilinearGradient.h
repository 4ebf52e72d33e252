#pragma once
// The gradient of the trilinear interpolant: in each axis the difference of the two nodes, weighted trilinearly in the
// other two. Values per index step; a caller in metres divides by the cell size.

#include "fluids/grids/Interpolation.h"

namespace orlix {

inline Vec3D TrilinearGradient(const GridView<const double>& g, const AxisCell& x, const AxisCell& y,
                               const AxisCell& z) {
  const double* p = g.data + g.Index(x.i, y.i, z.i);
  const std::int64_t nx = g.dims.x, slab = g.slab;
  const double fx = x.f, fy = y.f, fz = z.f, gx = 1 - fx, gy = 1 - fy, gz = 1 - fz;
  const double p000 = p[0], p100 = p[1], p010 = p[nx], p110 = p[nx + 1];
  const double p001 = p[slab], p101 = p[slab + 1], p011 = p[slab + nx], p111 = p[slab + nx + 1];
  return {((p100 - p000) * gy + (p110 - p010) * fy) * gz + ((p101 - p001) * gy + (p111 - p011) * fy) * fz,
          ((p010 - p000) * gx + (p110 - p100) * fx) * gz + ((p011 - p001) * gx + (p111 - p101) * fx) * fz,
          ((p001 - p000) * gx + (p101 - p100) * fx) * gy + ((p011 - p010) * gx + (p111 - p110) * fx) * fy};
}

// At array coordinates, limited as by SampleTrilinear. Needs 2 nodes in each axis.
inline Vec3D TrilinearGradient(const GridView<const double>& g, const Vec3D& at) {
  return TrilinearGradient(g, LinearAxis(at.x, g.dims.x), LinearAxis(at.y, g.dims.y), LinearAxis(at.z, g.dims.z));
}

}  // namespace orlix
