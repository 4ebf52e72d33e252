#include "fluids/grids/GridSpace.h"

#include <cmath>

namespace orlix {

namespace {

std::int32_t SnappedIndex(double v) {
  const double moved = v >= 0 ? v + 1e-6 : v - 1e-6;
  if (!(moved == moved)) return 0;
  if (moved >= 2147483647.0) return 2147483647;
  if (moved <= -2147483648.0) return -2147483647 - 1;
  return static_cast<std::int32_t>(moved);
}

}  // namespace

VecInt3D SnappedCell(const Vec3D& v) { return {SnappedIndex(v.x), SnappedIndex(v.y), SnappedIndex(v.z)}; }

void GridSpace::Build(const VecInt3D& cells, const Vec3D& size, float cell, const Vec3D& hostOrigin) {
  const Vec3D d(cells);
  cellSize = cell;
  invCellSize = static_cast<float>(1.0 / cell);
  hostSize = size;
  simSize = d * static_cast<double>(cell);
  dims = cells;
  slab = cells.x * cells.y;
  count = slab * cells.z;
  hostPerVoxel = size / d;
  hostPerSim = size / simSize;
  voxelsPerHost = d / size;
  voxelsPerSim = d / simSize;
  simPerHost = simSize / size;
  simPerVoxel = simSize / d;
  halfCell = cell * 0.5f;
  halfHostVoxel = hostPerVoxel * 0.5;
  SetOrigin(hostOrigin);
}

void GridSpace::SetOrigin(const Vec3D& hostOrigin) {
  hostMin = hostOrigin;
  simMin = hostOrigin * simPerHost;
  voxelMin = SnappedCell(simMin * voxelsPerSim);
  hostMax = hostSize + hostOrigin;
  simMax = simSize + simMin;
  voxelMax = SnappedCell(simMax * voxelsPerSim);
}

GridSpace GridSpace::FromScale(double hostUnits, double metres, float cell) {
  GridSpace space;
  space.Build({1, 1, 1}, Vec3D(hostUnits / metres * cell), cell, {});
  return space;
}

bool GridSpace::Equals(const GridSpace& other) const {
  return dims == other.dims && hostSize == other.hostSize && cellSize == other.cellSize && hostMin == other.hostMin;
}

void GridSpace::SnapDown(Vec3D& v, float cell) {
  const double inverse = 1.0 / cell;
  for (int axis = 0; axis < 3; ++axis) v[axis] = std::floor(v[axis] * inverse) * cell;
}

void GridSpace::SnapUp(Vec3D& v, float cell) {
  const double inverse = 1.0 / cell;
  for (int axis = 0; axis < 3; ++axis) v[axis] = std::ceil(v[axis] * inverse) * cell;
}

}  // namespace orlix
