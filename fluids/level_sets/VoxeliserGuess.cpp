#include "fluids/level_sets/VoxeliserGuess.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "fluids/level_sets/TriangleLanes.h"
#include "fluids/level_sets/VoxeliserSweeps.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kStride = 4;
static_assert(kStride == kLanes, "nodes between two coarse ones are measured at once");

// A row of nodes, and the coarse row nearest to it.
struct GuessRow {
  const double* x;  // world positions
  double y, z;
  int count, coarseCount;
  const std::int32_t* coarse;
  double* distance;
  std::int32_t* closest;
};

ORLIX_MULTIVERSION void FillGuessRow(const GuessRow& row, const TriangleTerms* triangles) {
  const Lanes zero{}, y = zero + row.y, z = zero + row.z;
  for (int next = 0; next < row.count; next += kLanes) {
    // The last lanes are moved back into the row; to look at a node twice changes nothing.
    const int i = std::min(next, row.count - kLanes), last = i + kLanes - 1;
    std::int32_t before = kNoTriangle;
    for (int c = i / kStride; c <= std::min(last / kStride + 1, row.coarseCount - 1); ++c) {
      const std::int32_t triangle = row.coarse[c] < 0 ? kNoTriangle : row.coarse[c] & kTriangleMask;
      if (triangle == before || triangle < 0) continue;
      before = triangle;
      LaneTriangle<double> lanes;
      Broadcast(lanes, triangles[triangle]);
      Lanes x, squared;
      std::memcpy(&x, row.x + i, sizeof x);
      LaneSquaredDistances(squared, LaneVector<Lanes>{x, y, z}, lanes);
      for (int l = i; l <= last; ++l) {
        const double distance = std::sqrt(squared[l - i]);
        if (distance < row.distance[l]) row.distance[l] = distance, row.closest[l] = triangle;
      }
    }
  }
}

}  // namespace

bool GuessClosestTriangles(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch,
                           GridView<double> distances, WorkerPool& pool, int workers, const BaseThread* hostThread) {
  const VecInt3D& n = lattice.dims;
  if (std::min({n.x, n.y, n.z}) <= 2 * kStride) return true;
  const VecInt3D coarse = (n - VecInt3D(1, 1, 1)) / kStride + VecInt3D(1, 1, 1);
  Grid<double> coarseDistances(coarse, kGridScratch);
  Grid<std::int32_t> coarseClosest(coarse, kGridScratch);
  ParallelRange(pool, 0, coarse.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < coarse.y; ++j) {
        for (int i = 0; i < coarse.x; ++i) {
          coarseDistances(i, j, k) = distances(i * kStride, j * kStride, k * kStride);
          coarseClosest(i, j, k) = scratch.closest(i * kStride, j * kStride, k * kStride);
        }
      }
    }
  });
  if (!SweepClosestTriangles(lattice, kStride, exactBand, scratch, coarseDistances, coarseClosest.data, pool, workers,
                             hostThread)) {
    return false;
  }
  std::vector<double> x;
  for (int i = 0; i < n.x; ++i) x.push_back(lattice.World(i, 0, 0).x);
  const auto nearest = [](int node, int coarseNodes) {
    return std::min((node + kStride / 2) / kStride, coarseNodes - 1);
  };
  ParallelRange(pool, 0, n.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < n.y; ++j) {
        const Vec3D world = lattice.World(0, j, k);
        const std::int32_t* near = &coarseClosest(0, nearest(j, coarse.y), nearest(k, coarse.z));
        FillGuessRow({x.data(), world.y, world.z, n.x, coarse.x, near, distances.data + distances.Index(0, j, k),
                      &scratch.closest(0, j, k)},
                     scratch.triangles.data);
      }
    }
  });
  return true;
}

}  // namespace orlix
