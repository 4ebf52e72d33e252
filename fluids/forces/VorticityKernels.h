#pragma once
// Vorticity of a staggered velocity and its confinement (Steinhoff and Underhill 1994; Fedkiw, Stam, Jensen 2001):
//
//   w = curl u,   n = grad |w| / |grad |w||,   f = eps h (n x w)
//
// The curl at a cell comes from the velocity at the centres of its six faces. There the two components that don't stand
// on the face are means of four, so that each difference is one of cell-centre values on both sides:
//
//   w.x = ((W(j + 1) - W(j - 1)) - (V(k + 1) - V(k - 1))) / 2h,   U, V, W means of a cell's two faces

#include "fluids/grids/Grid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// The three components; u has one more in x, v in y, w in z.
struct MacComponents {
  GridView<const double> u, v, w;
  VecInt3D cells() const { return {u.dims.x - 1, u.dims.y, u.dims.z}; }
};

// The curl, less mean, at the cells [begin, end) of a row; out stands at cell begin. The cells are inner ones.
void CurlRow(const MacComponents& velocity, double inverseCellSize, const Vec3D& mean, std::int32_t j, std::int32_t k,
             std::int32_t begin, std::int32_t end, double* outX, double* outY, double* outZ);

// The mean curl of the inner cells. Inside the grid the differences cancel, so only its outer two layers are read.
Vec3D MeanCurl(const MacComponents& velocity, double inverseCellSize, WorkerPool& pool);

// |curl - mean| of the inner cells into magnitude, which has the cells' dims; 0 in the outermost layer.
void CurlMagnitude(const MacComponents& velocity, double inverseCellSize, const Vec3D& mean, Grid<double>& magnitude,
                   WorkerPool& pool);

struct Confinement {
  double inverseCellSize = 0;
  Vec3D mean;          // of the curl, 1/s
  double epsilon = 0;  // a gradient that isn't above it has no direction
  bool alongFlow = false;
};

// A row of inner cells. Pointers stand at cell 0.
struct ConfinementRow {
  std::int32_t begin = 0, end = 0, j = 0, k = 0;
  const double* amounts = nullptr;  // eps h, times what constraints leave
  double* force[3] = {};
};

// Adds the confinement to a row.
void AddConfinement(const MacComponents& velocity, const GridView<const double>& magnitude, const Confinement& terms,
                    const ConfinementRow& row);

}  // namespace orlix
