#pragma once
// Where a gas's lattice holds nothing, by blocks of cells: a walk along a ray by equal steps passes over such a block
// without a look at the gas, and meets all the rest at the same places as without.

#include <cstdint>
#include <vector>

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct MarchRay;

// Blocks in which linear reads of a grid find nothing above a threshold.
class EmptySpace {
 public:
  static constexpr int kSide = 4;  // cells

  // Of a grid with samples in the middles of cells. Throws std::bad_alloc.
  void Build(const ScalarGrid& grid, double threshold, WorkerPool& pool);
  void Clear() { filled_.clear(); }

 private:
  friend class EmptySpaceWalk;
  VecInt3D blocks_, cells_;
  Vec3D scale_, offset_;  // from host space to array coordinates: x * scale - offset
  double margin_ = 0;     // host units
  std::vector<std::uint8_t> filled_;
};

class EmptySpaceWalk {
 public:
  EmptySpaceWalk() = default;
  // Without blocks nothing is known to be empty.
  EmptySpaceWalk(const EmptySpace& space, const MarchRay& ray);
  // Whether there is nothing at origin + direction * t, as far as blocks tell. Asked with a growing t, or again from
  // the place before the last.
  bool IsEmptyAt(double t) { return t < emptyUntil_ || (space_ && Look(t)); }

 private:
  bool Look(double t);
  const EmptySpace* space_ = nullptr;
  Vec3D start_, direction_;  // array coordinates
  double emptyUntil_ = -1, filledUntil_ = -1;
};

}  // namespace orlix
