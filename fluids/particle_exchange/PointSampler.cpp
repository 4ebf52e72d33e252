#include "fluids/particle_exchange/PointSampler.h"

#include <algorithm>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// As LatticeContainsPoint.
ORLIX_MULTIVERSION void MarkInside(const GridSpace& space, const Vec3D* positions, SampledPoints& out) {
  const Vec3D low = space.simMin, high = space.simMax;
  for (std::int32_t n = 0; n < out.count; ++n) {
    const Vec3D& p = positions[n];
    out.inside[n] = (p.x >= low.x) & (p.y >= low.y) & (p.z >= low.z) & (p.x < high.x) & (p.y < high.y) & (p.z < high.z);
  }
}

}  // namespace

void PointSampler::SetScalar(const ScalarGrid& grid, Interpolation mode) {
  grids_ = {&grid, nullptr, nullptr};
  mode_ = mode;
  volumes_.clear();
  velocity_ = {};
}

void PointSampler::SetVector(const std::array<const ScalarGrid*, 3>& grids, Interpolation mode) {
  grids_ = grids;
  mode_ = mode;
  volumes_.clear();
  velocity_ = {};
  bool staggered = true;
  for (int c = 0; c < 3; ++c) {
    Vec3D face(0.5);
    face[c] = 0;
    staggered &= CellSampleOffset(grids[static_cast<std::size_t>(c)]->gridType) == face;
  }
  if (!staggered) return;
  for (int c = 0; c < 3; ++c) velocity_.component[c] = *grids[static_cast<std::size_t>(c)];
  if (!velocity_.HasData()) velocity_ = {};
}

void PointSampler::SetVolumes(std::vector<const VolumeBase*> volumes) {
  grids_ = {};
  velocity_ = {};
  volumes_ = std::move(volumes);
}

void PointSampler::Sample(const Vec3D* positions, std::int32_t count, SampledPoints& out) const {
  out.count = count;
  if (grids_[0]) {
    MarkInside(grids_[0]->space, positions, out);
    return mode_ == Interpolation::Trilinear ? SampleTrilinearRun(positions, out) : SampleGrids(positions, out);
  }
  for (std::int32_t n = 0; n < count; ++n) {
    const auto found = std::find_if(volumes_.begin(), volumes_.end(),
                                    [&](const VolumeBase* volume) { return volume->InBox(positions[n]); });
    out.inside[n] = found != volumes_.end();
    out.real[n] = out.inside[n] ? (*found)->SampleWorld(positions[n]) : 0;
  }
}

// Point by point: the dearer kernels.
void PointSampler::SampleGrids(const Vec3D* positions, SampledPoints& out) const {
  const GridSpace& space = grids_[0]->space;
  for (std::int32_t n = 0; n < out.count; ++n) {
    if (!out.inside[n]) continue;
    const Vec3D voxel = space.VoxelOfSim(positions[n]);
    if (!GivesVectors()) {
      out.real[n] = SampleChannelGrid(*grids_[0], voxel, mode_);
      continue;
    }
    for (int c = 0; c < 3; ++c) {
      out.vector[n][c] = SampleChannelGrid(*grids_[static_cast<std::size_t>(c)], voxel, mode_);
    }
  }
}

void PointSampler::SampleTrilinearRun(const Vec3D* positions, SampledPoints& out) const {
  const GridSpace& space = grids_[0]->space;
  const double cell = space.cellSize;
  PointRun points, found;
  if (velocity_.HasData()) {
    points.Load(positions, out.count, -space.simMin);
    SampleVelocity(velocity_, space.voxelsPerSim.x, points, found);
    found.count = out.count;
    found.Unload(out.vector);
    return;
  }
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid* grid = grids_[static_cast<std::size_t>(c)];
    if (!grid) return;
    if (std::min({grid->dims.x, grid->dims.y, grid->dims.z}) < 2) return SampleGrids(positions, out);
    points.Load(positions, out.count, -space.simMin - CellSampleOffset(grid->gridType) * cell);
    SampleNodes(*grid, cell, points, found.x);
    for (std::int32_t n = 0; n < out.count; ++n) {
      if (GivesVectors()) {
        out.vector[n][c] = found.x[n];
      } else {
        out.real[n] = found.x[n];
      }
    }
  }
}

}  // namespace orlix
