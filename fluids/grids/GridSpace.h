#pragma once
// The lattice of a grid: it ties host space (host units), simulation space (metres) and index space (cells from the
// corner; "voxel" in names).

#include <cstdint>

#include "globals/Vec.h"

namespace orlix {

struct GridSpace {
  Vec3D hostMin, simMin, hostMax, simMax;
  VecInt3D voxelMin, voxelMax;  // counted from the simulation origin
  Vec3D halfHostVoxel;
  Vec3D hostSize, simSize;
  VecInt3D dims;
  std::int32_t count = 0, slab = 0;
  Vec3D hostPerVoxel, hostPerSim, voxelsPerHost, voxelsPerSim, simPerHost, simPerVoxel;
  float halfCell = 0, invCellSize = 0, cellSize = 0;

  // dims in cells, size of the box and its minimum in host units, cell edge in metres.
  void Build(const VecInt3D& cells, const Vec3D& size, float cell, const Vec3D& hostOrigin);
  void SetOrigin(const Vec3D& hostOrigin);
  // The one-cell space that a scene keeps: hostUnits are metres long.
  static GridSpace FromScale(double hostUnits, double metres, float cell);
  // Exact, without a tolerance: dims, host size, cell size, host minimum.
  bool Equals(const GridSpace& other) const;

  static void SnapDown(Vec3D& v, float cell);
  static void SnapUp(Vec3D& v, float cell);

  // From simulation space to index coordinates of the lattice (no sample offset).
  Vec3D VoxelOfSim(const Vec3D& p) const { return (p - simMin) * voxelsPerSim; }
  Vec3D SimOfVoxel(const Vec3D& v) const { return v * simPerVoxel + simMin; }
  Vec3D VoxelOfHost(const Vec3D& p) const { return (p - hostMin) * voxelsPerHost; }
  Vec3D HostOfVoxel(const Vec3D& v) const { return v * hostPerVoxel + hostMin; }
};

// Truncates towards zero after moving 1e-6 away from it, so that a coordinate a rounding error short of a whole cell
// counts as that cell, and two grids snapped to one cell size agree. Limited to the range of an i32; NaN gives 0.
VecInt3D SnappedCell(const Vec3D& v);

}  // namespace orlix
