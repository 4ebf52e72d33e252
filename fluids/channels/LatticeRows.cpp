#include "fluids/channels/LatticeRows.h"

namespace orlix {

void LatticeRows::Bind(const ScalarGrid* grid, const GridSpace& lattice) {
  grid_ = grid && grid->count > 0 ? grid : nullptr;
  if (!grid_) return;
  direct_ = grid_->space.Equals(lattice) && ExtraCells(grid_->gridType) == VecInt3D() &&
            CellSampleOffset(grid_->gridType) == Vec3D(0.5);
  if (direct_) return;
  scale_ = lattice.simPerVoxel * grid_->space.voxelsPerSim;
  origin_ = grid_->space.VoxelOfSim(lattice.simMin + lattice.simPerVoxel * 0.5) - CellSampleOffset(grid_->gridType);
  cells_ = lattice.dims.x;
  sampled_.resize(static_cast<std::size_t>(cells_) * WorkerPool::kMaxWorkers);
}

void LatticeRows::Sample(std::int32_t begin, std::int32_t end, std::int32_t j, std::int32_t k, double* values) const {
  const double y = j * scale_.y + origin_.y, z = k * scale_.z + origin_.z;
  for (std::int32_t i = begin; i < end; ++i) {
    values[i] = SampleGrid(*grid_, i * scale_.x + origin_.x, y, z, Interpolation::Trilinear);
  }
}

}  // namespace orlix
