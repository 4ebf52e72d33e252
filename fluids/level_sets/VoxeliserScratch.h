#pragma once
// What the stages of the voxeliser hand to each other.

#include <cstdint>

#include "fluids/grids/Grid.h"
#include "fluids/grids/GridSpace.h"
#include "fluids/level_sets/TriangleDistance.h"

namespace orlix {

// A node's closest triangle so far, with the number of the sweep that found it above the index: 0 the exact band, s + 1
// sweep s. Below 0: none.
inline constexpr int kSweepTagShift = 27;
inline constexpr std::int32_t kTriangleMask = (std::int32_t(1) << kSweepTagShift) - 1;
inline constexpr std::int32_t kNoTriangle = -1;

// The nodes of the lattice. World position of node (i, j, k): index x spacing + origin.
struct NodeLattice {
  VecInt3D dims;
  Vec3D origin, spacing, inverseSpacing;

  NodeLattice(const VecInt3D& nodes, const GridSpace& space)
      : dims(nodes), origin(space.simMin), spacing(space.simPerVoxel), inverseSpacing(space.voxelsPerSim) {}
  Vec3D World(int i, int j, int k) const { return Vec3D(i, j, k) * spacing + origin; }
  Vec3D Index(const Vec3D& world) const { return (world - origin) * inverseSpacing; }
};

// Triangles with finite corners, in the mesh's order, without gaps. A grid, as its large pages are read by index
// without misses of the page table.
using TriangleList = Grid<TriangleTerms>;

// For a lower bound of the distance to a triangle, in cells and single precision: the distance from its plane, and how
// far beyond each edge a point lies in that. The lanes of x, y, z are unit vectors: the plane's normal, and what points
// out of the edges 1-2, 1-3, 2-3, and offset is what their products with the node's index have on these. All 0 for a
// triangle that is too thin or too far off for it, which bounds nothing.
using BoundLanes = float __attribute__((vector_size(16)));
struct alignas(64) SweepBound {
  BoundLanes x{}, y{}, z{}, offset{};
};

inline constexpr int kGuessStride = 4;  // nodes from one of the guess to the next
inline constexpr std::uint8_t kAllSweeps = 255;

struct VoxeliserScratch {
  VoxeliserScratch(const VecInt3D& nodes, std::int32_t triangleCount)
      : closest(nodes, kGridScratch),
        crossings(nodes, kGridScratch),
        triangles({triangleCount, 1, 1}, kGridScratch),
        bounds({triangleCount, 1, 1}, kGridScratch),
        sweeps((nodes - VecInt3D(1, 1, 1)) / kGuessStride + VecInt3D(1, 1, 1), kGridScratch) {
    sweeps.Fill(kAllSweeps);
  }

  Grid<std::int32_t> closest;
  // How often the mesh crosses the row between the node before this one and this one, modulo 256: only odd or even
  // matters.
  Grid<std::uint8_t> crossings;
  TriangleList triangles;
  Grid<SweepBound> bounds;  // of these
  // For each cell between nodes of the guess a bit for each sweep that visits its nodes.
  Grid<std::uint8_t> sweeps;
  double boundError = 0;  // cells, beside kBoundRelative
};

}  // namespace orlix
