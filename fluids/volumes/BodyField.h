#pragma once
// The level set of a body in its own axes, voxelised once: where the body goes, its place on the scene's lattice is
// filled by reading this one, which costs a small share of what its triangles would.

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "fluids/level_sets/LevelSetView.h"
#include "fluids/level_sets/VolumeVoxeliser.h"

namespace orlix {

class BodyField {
 public:
  // Of nodes at half the scene's cell, or at the cell where that would be too many. False where the mesh gives none.
  bool Build(std::span<const Vec3D> points, const std::vector<VecInt3D>& triangles, double cell,
             const VoxeliserSettings& settings, WorkerPool& pool);
  // Nodes below which a grid is filled by the calling worker alone: for hundreds of small bodies, the workers' coming
  // together would take longer than each.
  static constexpr std::int64_t kSmall = 1 << 15;
  // The distances of the body in this pose.
  void Fill(const LMatrix& pose, ScalarGrid& levelSet, WorkerPool& pool) const;

  const std::optional<double>& maximumDepth() const { return voxeliser_.maximumDepth(); }
  const VoxeliserSettings& settings() const { return voxeliser_.settings; }
  std::int64_t Bytes() const { return grid_ ? grid_->MemorySize() : 0; }

 private:
  VolumeVoxeliser voxeliser_;
  std::unique_ptr<ScalarGrid> grid_;
  LevelSetView view_;
};

}  // namespace orlix
