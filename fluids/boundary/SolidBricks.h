#pragma once
// Where a solid distance may be negative: a byte for each 4 x 4 x 4 cells. Kernels ask for the distance only there.
//
// A point that was clamped to the domain samples no node of the outermost layer, so that walls without obstacles leave
// it empty.

#include <cstdint>
#include <vector>

#include "fluids/grids/Grid.h"

namespace orlix {

class SolidBricks {
 public:
  void Build(const GridView<const double>& nodes);
  bool IsEmpty() const { return min_.x > max_.x; }
  // The cells that hold all marked bricks.
  const VecInt3D& min() const { return min_; }
  const VecInt3D& max() const { return max_; }
  // The largest depth of a node, in the unit of the distances.
  double depth() const { return depth_; }
  // p is an index position.
  bool Touches(const Vec3D& p) const {
    for (int axis = 0; axis < 3; ++axis) {
      if (!(p[axis] >= min_[axis] && p[axis] < max_[axis] + 1)) return false;
    }
    const std::size_t i = static_cast<std::size_t>(p.x) >> kShift, j = static_cast<std::size_t>(p.y) >> kShift;
    const std::size_t k = static_cast<std::size_t>(p.z) >> kShift;
    return marks_[(k * bricksY_ + j) * bricksX_ + i] != 0;
  }

 private:
  static constexpr int kShift = 2;
  void Mark(int i, int j, int k);

  std::vector<std::uint8_t> marks_;
  std::size_t bricksX_ = 0, bricksY_ = 0;
  VecInt3D min_{1, 1, 1}, max_;
  double depth_ = 0;
};

}  // namespace orlix
