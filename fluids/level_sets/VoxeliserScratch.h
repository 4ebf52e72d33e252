#pragma once
// What the stages of the voxeliser hand to each other.

#include <cstdint>
#include <span>
#include <vector>

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

struct VoxeliserScratch {
  explicit VoxeliserScratch(const VecInt3D& nodes) : closest(nodes, kGridScratch), crossings(nodes, kGridScratch) {}

  Grid<std::int32_t> closest;
  // How often the mesh crosses the row between the node before this one and this one, modulo 256: only odd or even
  // matters.
  Grid<std::uint8_t> crossings;
  // Triangles with finite corners, in the mesh's order, without gaps.
  std::vector<TriangleTerms> triangles;
};

}  // namespace orlix
