#include <algorithm>
#include <new>

#include "fluids/grids/ActiveBox.h"

namespace orlix {

namespace {

// Cell c of the target takes the source's cell c + offset, or fillValue where there is none. No source: everywhere.
void CopyLayers(const ScalarGrid* source, ScalarGrid& target, const VecInt3D& offset, double fillValue, int k0,
                int k1) {
  const VecInt3D n = target.dims, from = source ? source->dims : VecInt3D();
  const VecInt3D low = Min(Max(-offset, VecInt3D()), n), high = Max(Min(from - offset, n), low);
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < n.y; ++j) {
      double* row = &target(0, j, k);
      const bool overlaps = k >= low.z && k < high.z && j >= low.y && j < high.y && low.x < high.x;
      const int first = overlaps ? low.x : n.x, last = overlaps ? high.x : n.x;
      std::fill(row, row + first, fillValue);
      if (overlaps) {
        std::copy_n(&(*source)(first + offset.x, j + offset.y, k + offset.z), last - first, row + first);
      }
      std::fill(row + last, row + n.x, fillValue);
    }
  }
}

struct Limits {
  double empty, max;
};

// With limits the new grid is tidied, layer by layer while it is near.
bool Resize(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims, const GridSpace& target,
            const Limits* limits, WorkerPool* pool) {
  if (!grid) return true;
  std::unique_ptr<ScalarGrid> resized;
  try {
    resized = std::make_unique<ScalarGrid>(arrayDims, target.hostSize, target.cellSize, grid->gridType, target.hostMin);
  } catch (const std::bad_alloc&) {
    return false;
  }
  resized->valueOffset = grid->valueOffset;
  resized->valueScale = grid->valueScale;
  const ScalarGrid* source = grid->count > 1 && resized->count > 1 ? grid.get() : nullptr;
  // Both lattices are snapped to the cell size, so their content differs by a whole number of cells.
  const VecInt3D offset = source ? resized->space.voxelMin - source->space.voxelMin : VecInt3D();
  ActiveBoxScan scan(*resized, limits ? limits->empty : 0, limits ? limits->max : 0, false);
  const auto fill = [&](int k0, int k1, int worker) {
    for (int k = k0; k < k1; ++k) {
      CopyLayers(source, *resized, offset, fillValue, k, k + 1);
      if (limits) scan.Tidy(k, k + 1, worker);
    }
  };
  const int layers = resized->count > 0 ? resized->dims.z : 0;
  pool ? ParallelRange(*pool, 0, layers, fill) : fill(0, layers, 0);
  if (limits) scan.Record();
  grid = std::move(resized);
  return true;
}

}  // namespace

bool ResizeKeepingContent(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims,
                          const GridSpace& target, WorkerPool* pool) {
  return Resize(grid, fillValue, arrayDims, target, nullptr, pool);
}

bool ResizeAndFindActiveBox(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims,
                            const GridSpace& target, double empty, double max, WorkerPool& pool) {
  const Limits limits{empty, max};
  return Resize(grid, fillValue, arrayDims, target, &limits, &pool);
}

}  // namespace orlix
