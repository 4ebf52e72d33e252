#include "fluids/level_sets/VoxeliserGuess.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "fluids/level_sets/TriangleLanes.h"
#include "fluids/level_sets/VoxeliserSweeps.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kStride = kGuessStride;
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
    Lanes x, least = zero + std::numeric_limits<double>::max();
    std::memcpy(&x, row.x + i, sizeof x);
    auto found = (least < zero) | kNoTriangle;
    std::int32_t before = kNoTriangle;
    for (int c = i / kStride; c <= std::min(last / kStride + 1, row.coarseCount - 1); ++c) {
      const std::int32_t triangle = row.coarse[c] < 0 ? kNoTriangle : row.coarse[c] & kTriangleMask;
      if (triangle == before || triangle < 0) continue;
      before = triangle;
      LaneTriangle<double> lanes;
      Broadcast(lanes, triangles[triangle]);
      Lanes squared;
      LaneSquaredDistances(squared, LaneVector<Lanes>{x, y, z}, lanes);
      const auto nearer = squared < least;
      least = nearer ? squared : least;
      found = nearer ? (found & 0) | triangle : found;
    }
    double roots[kLanes];  // from memory all are taken at once, of lanes one by one
    std::memcpy(roots, &least, sizeof roots);
    for (double& root : roots) root = std::sqrt(root);
    Lanes distance, best;
    std::memcpy(&distance, roots, sizeof distance), std::memcpy(&best, row.distance + i, sizeof best);
    const auto nearer = distance < best;
    best = nearer ? distance : best;
    std::memcpy(row.distance + i, &best, sizeof best);
    for (int l = 0; l < kLanes; ++l) row.closest[i + l] = nearer[l] ? std::int32_t(found[l]) : row.closest[i + l];
  }
}

// From the closest point of a triangle to p, by a difference of the square of the distance, whose gradient is twice
// that.
Vec3D WayFrom(const TriangleTerms& triangle, const Vec3D& p, double cell) {
  const double step = 0.01 * cell, here = SquaredDistance(p, triangle);
  Vec3D way;
  for (int axis = 0; axis < 3; ++axis) {
    Vec3D beside = p;
    beside[axis] += step;
    way[axis] = (SquaredDistance(beside, triangle) - here) / (2 * step);
  }
  return way;
}

// A cell needs the sweeps of all its corners.
void FindSweeps(const NodeLattice& lattice, const TriangleList& triangles, GridView<const std::int32_t> coarse,
                GridView<std::uint8_t> sweeps, WorkerPool& pool) {
  const VecInt3D& n = coarse.dims;
  const double cell = lattice.spacing.x;
  Grid<std::uint8_t> ofNode(n, kGridScratch);
  ParallelRange(pool, 0, n.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          ofNode(i, j, k) = kAllSweeps;
          const std::int32_t closest = coarse(i, j, k);
          if (closest < 0) continue;
          const Vec3D p = lattice.World(i * kStride, j * kStride, k * kStride);
          const Vec3D way = WayFrom(triangles[closest & kTriangleMask], p, cell);
          if (LengthSquared(way) > cell * cell) ofNode(i, j, k) = SweepsAlong(way);
        }
      }
    }
  });
  ParallelRange(pool, 0, n.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          std::uint8_t all = 0;
          for (int c = 0; c < 8; ++c) {
            all |= ofNode(std::min(i + (c & 1), n.x - 1), std::min(j + (c >> 1 & 1), n.y - 1),
                          std::min(k + (c >> 2), n.z - 1));
          }
          sweeps(i, j, k) = all;
        }
      }
    }
  });
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
  FindSweeps(lattice, scratch.triangles, coarseClosest, scratch.sweeps, pool);
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
