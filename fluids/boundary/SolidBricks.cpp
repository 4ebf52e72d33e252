#include "fluids/boundary/SolidBricks.h"

#include <algorithm>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// As wide as the values, so that the loop vectorises.
ORLIX_MULTIVERSION bool AnyBelowZero(const double* row, int count) {
  std::uint64_t any = 0;
  for (int i = 0; i < count; ++i) any |= row[i] < 0 ? ~std::uint64_t(0) : 0;
  return any != 0;
}

}  // namespace

void SolidBricks::Build(const GridView<const double>& nodes) {
  const VecInt3D n = nodes.dims;
  min_ = n, max_ = {};
  depth_ = 0;
  bricksX_ = static_cast<std::size_t>(n.x >> kShift) + 1;
  bricksY_ = static_cast<std::size_t>(n.y >> kShift) + 1;
  marks_.assign(bricksX_ * bricksY_ * (static_cast<std::size_t>(n.z >> kShift) + 1), 0);
  if (!nodes.data) return;
  for (int k = 1; k < n.z - 1; ++k) {
    for (int j = 1; j < n.y - 1; ++j) {
      const double* row = nodes.data + nodes.Index(0, j, k);
      if (!AnyBelowZero(row + 1, n.x - 2)) continue;
      for (int i = 1; i < n.x - 1; ++i) {
        if (!(row[i] < 0)) continue;
        depth_ = std::max(depth_, -row[i]);
        Mark(i, j, k);
      }
    }
  }
}

// All cells that touch the node.
void SolidBricks::Mark(int i, int j, int k) {
  min_ = Min(min_, VecInt3D(i - 1, j - 1, k - 1));
  max_ = Max(max_, VecInt3D(i, j, k));
  for (int c = (k - 1) >> kShift; c <= k >> kShift; ++c) {
    for (int b = (j - 1) >> kShift; b <= j >> kShift; ++b) {
      for (int a = (i - 1) >> kShift; a <= i >> kShift; ++a) {
        marks_[(static_cast<std::size_t>(c) * bricksY_ + static_cast<std::size_t>(b)) * bricksX_ +
               static_cast<std::size_t>(a)] = 1;
      }
    }
  }
}

}  // namespace orlix
