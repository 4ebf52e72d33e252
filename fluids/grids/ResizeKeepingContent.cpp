#include <new>

#include "fluids/grids/EGrid.h"
#include "fluids/grids/GridResampler.h"

namespace orlix {

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
  resized->Fill(fillValue, pool);
  if (grid->count > 1 && resized->count > 1) {
    // Both lattices are snapped to the cell size, so their content differs by a whole number of cells.
    const VecInt3D offset = resized->space.voxelMin - grid->space.voxelMin;
    EGridResampler::Copy(*grid, *resized, {}, resized->dims, offset);
  }
  grid = std::move(resized);
  return true;
}

}  // namespace orlix
