#include "fluids/channels/iChannel.h"

#include <new>

#include "fluids/grids/ActiveBox.h"

namespace orlix {

bool ContainerLattice::Of(const GridSpace& sceneSpace, const Vec3D& min, const Vec3D& max, ContainerLattice& lattice) {
  const double c = sceneSpace.cellSize;
  lattice.cells = SnappedCell((max - min) * (1.0 / c));
  const VecInt3D n = lattice.cells;
  if (n.x < 1 || n.y < 1 || n.z < 1) return false;
  // One more in each axis: the largest array of any grid type must be countable too.
  if (n.x >= 1 << 20 || n.y >= 1 << 20 || n.z >= 1 << 20) return false;
  if (CellCount(n + VecInt3D(1, 1, 1)) > kMaxGridCells) return false;
  lattice.space.Build(n, sceneSpace.hostSize * Vec3D(n), sceneSpace.cellSize, sceneSpace.hostSize * min / c);
  return true;
}

bool ContainerLattice::SameAs(const ScalarGrid& grid) const { return grid.space.Equals(space); }

bool EnsureChannelGrid(std::unique_ptr<ScalarGrid>& grid, const GridSpace& sceneSpace, std::uint32_t type,
                       double valueMin, double valueMax, double background) {
  if (!grid) {
    try {
      grid = std::make_unique<ScalarGrid>(VecInt3D(1, 1, 1), sceneSpace.hostSize, sceneSpace.cellSize, type, Vec3D());
    } catch (const std::bad_alloc&) {
      return false;
    }
    grid->Fill(background);
  }
  grid->valueOffset = valueMin;
  grid->valueScale = valueMax;
  return true;
}

bool ApplyContainer(std::unique_ptr<ScalarGrid>& grid, const ContainerLattice& lattice, bool changed, bool clear,
                    double valueMin, double valueMax, double background, WorkerPool& pool) {
  if (!changed && clear) {
    grid->ResetActiveBox();
    grid->Fill(background, &pool);
    return true;
  }
  if (changed) {
    const VecInt3D dims = lattice.cells + ExtraCells(grid->gridType);
    if (!clear) return ResizeAndFindActiveBox(grid, background, dims, lattice.space, valueMin, valueMax, pool);
    if (!ResizeKeepingContent(grid, background, dims, lattice.space, &pool)) return false;
    grid->Fill(background, &pool);
  }
  grid->FindActiveBox(valueMin, valueMax, false, &pool);
  return true;
}

bool ApplyToPrevious(std::unique_ptr<ScalarGrid>& previous, const ScalarGrid& grid, double valueMin, double valueMax,
                     double background, WorkerPool& pool) {
  if (previous && previous->space.Equals(grid.space)) return true;
  if (previous) return ResizeAndFindActiveBox(previous, background, grid.dims, grid.space, valueMin, valueMax, pool);
  try {
    previous = ScalarGrid::CreateLike(grid, grid.gridType);
  } catch (const std::bad_alloc&) {
    return false;
  }
  previous->valueOffset = grid.valueOffset;
  previous->valueScale = grid.valueScale;
  previous->Fill(background, &pool);
  return true;
}

void WidenByActiveBox(const ScalarGrid& grid, Vec3D& min, Vec3D& max) {
  // An empty box lies from the far end to the near end: its corners still keep the present container.
  min = Min(min, Vec3D(grid.activeMin) * grid.space.simPerVoxel + grid.space.simMin);
  max = Max(max, Vec3D(grid.activeMax) * grid.space.simPerVoxel + grid.space.simMin);
}

bool LatticeContainsPoint(const GridSpace& space, const Vec3D& p) {
  return p.x >= space.simMin.x && p.y >= space.simMin.y && p.z >= space.simMin.z && p.x < space.simMax.x &&
         p.y < space.simMax.y && p.z < space.simMax.z;
}

bool LatticeContainsCell(const GridSpace& space, const Vec3D& p, bool interiorOnly) {
  const VecInt3D cell = SnappedCell(space.VoxelOfSim(p));
  const int b = interiorOnly ? 1 : 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (cell[axis] < b || cell[axis] >= space.dims[axis] - b) return false;
  }
  return true;
}

double SampleChannelGrid(const ScalarGrid& grid, const Vec3D& voxel, Interpolation mode) {
  const Vec3D at = voxel - CellSampleOffset(grid.gridType);
  return SampleGrid(grid, at.x, at.y, at.z, mode);
}

}  // namespace orlix
