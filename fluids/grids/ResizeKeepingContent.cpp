#include <algorithm>
#include <new>

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

// Cell c of the target takes the source's cell c + offset, or fillValue where there is none.
void CopyLayers(const ScalarGrid& source, ScalarGrid& target, const VecInt3D& offset, double fillValue, int k0,
                int k1) {
  const VecInt3D n = target.dims, low = Min(Max(-offset, VecInt3D()), n), high = Max(Min(source.dims - offset, n), low);
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < n.y; ++j) {
      double* row = &target(0, j, k);
      const bool overlaps = k >= low.z && k < high.z && j >= low.y && j < high.y && low.x < high.x;
      const int first = overlaps ? low.x : n.x, last = overlaps ? high.x : n.x;
      std::fill(row, row + first, fillValue);
      if (overlaps) {
        std::copy_n(&source(first + offset.x, j + offset.y, k + offset.z), last - first, row + first);
      }
      std::fill(row + last, row + n.x, fillValue);
    }
  }
}

}  // namespace

bool ResizeKeepingContent(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims,
                          const GridSpace& target, WorkerPool* pool) {
  if (!grid) return true;
  std::unique_ptr<ScalarGrid> resized;
  try {
    resized = std::make_unique<ScalarGrid>(arrayDims, target.hostSize, target.cellSize, grid->gridType, target.hostMin);
  } catch (const std::bad_alloc&) {
    return false;
  }
  resized->valueOffset = grid->valueOffset;
  resized->valueScale = grid->valueScale;
  if (grid->count > 1 && resized->count > 1) {
    // Both lattices are snapped to the cell size, so their content differs by a whole number of cells.
    const VecInt3D offset = resized->space.voxelMin - grid->space.voxelMin;
    const auto copy = [&](int k0, int k1, int) { CopyLayers(*grid, *resized, offset, fillValue, k0, k1); };
    pool ? ParallelRange(*pool, 0, resized->dims.z, copy) : copy(0, resized->dims.z, 0);
  } else {
    resized->Fill(fillValue, pool);
  }
  grid = std::move(resized);
  return true;
}

}  // namespace orlix
