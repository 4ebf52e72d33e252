#include "fluids/volume_renderer/EmptySpace.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

namespace {

constexpr int kSide = EmptySpace::kSide;
constexpr double kRounding = 1e-6;  // of a cell, by which places of a walk may be off

}  // namespace

void EmptySpace::Build(const ScalarGrid& grid, double threshold, WorkerPool& pool) {
  filled_.clear();
  const GridSpace& space = grid.space;
  cells_ = space.dims;
  if (std::min({cells_.x, cells_.y, cells_.z}) < 2) return;
  blocks_ = (cells_ + VecInt3D(kSide - 1)) / kSide;
  scale_ = space.voxelsPerHost, offset_ = space.hostMin * space.voxelsPerHost + Vec3D(0.5);
  margin_ = kRounding * std::min({space.hostPerVoxel.x, space.hostPerVoxel.y, space.hostPerVoxel.z});
  filled_.assign(static_cast<std::size_t>(blocks_.x) * blocks_.y * blocks_.z, 0);
  // A linear read from a block's cells reaches one cell further.
  const double limit = threshold - kRounding * std::fabs(threshold);
  const auto isFilled = [&](const VecInt3D& block) {
    const VecInt3D low = block * kSide, high = Min(low + VecInt3D(kSide), cells_ - VecInt3D(1));
    for (int k = low.z; k <= high.z; ++k) {
      for (int j = low.y; j <= high.y; ++j) {
        for (int i = low.x; i <= high.x; ++i) {
          if (!(grid(i, j, k) <= limit)) return true;
        }
      }
    }
    return false;
  };
  ParallelRange(pool, 0, blocks_.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < blocks_.y; ++j) {
        for (int i = 0; i < blocks_.x; ++i) {
          filled_[(std::size_t(k) * blocks_.y + j) * blocks_.x + i] = isFilled({i, j, k});
        }
      }
    }
  });
}

EmptySpaceWalk::EmptySpaceWalk(const EmptySpace& space, const MarchRay& ray)
    : space_(space.filled_.empty() ? nullptr : &space) {
  if (!space_) return;
  start_ = ray.origin * space.scale_ - space.offset_;
  direction_ = ray.direction * space.scale_;
}

// The blocks at the border reach as far as reads do: everywhere.
bool EmptySpaceWalk::Look(double t) {
  if (t < filledUntil_) return false;
  VecInt3D block;
  double until = std::numeric_limits<double>::infinity();
  for (int axis = 0; axis < 3; ++axis) {
    const double at = start_[axis] + direction_[axis] * t, last = space_->cells_[axis] - 2;
    if (!(std::fabs(at) < 1e9)) return false;
    block[axis] = static_cast<int>(std::clamp(std::floor(at), 0.0, last)) / kSide;
    const double low = block[axis] * kSide, high = low + kSide;
    if (direction_[axis] > 0 && high <= last) until = std::min(until, (high - start_[axis]) / direction_[axis]);
    if (direction_[axis] < 0 && low > 0) until = std::min(until, (low - start_[axis]) / direction_[axis]);
  }
  until -= space_->margin_;
  const VecInt3D& n = space_->blocks_;
  const bool filled = space_->filled_[(std::size_t(block.z) * n.y + block.y) * n.x + block.x] != 0;
  (filled ? filledUntil_ : emptyUntil_) = until;
  return !filled && t < until;
}

}  // namespace orlix
