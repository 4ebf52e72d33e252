#include "fluids/grids/ActiveBox.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "fluids/grids/GridTypes.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kTiny = 1e-6;

// Cells are active from a threshold on, limited to max, and otherwise set to empty.
struct ChannelRule {
  double empty, threshold, max;
  bool Active(double v) const { return v >= threshold; }
  double Tidied(double v) const { return v >= threshold ? (max < v ? max : v) : empty; }
};

// Velocity components: active when away from 0, otherwise set to 0 exactly.
struct VelocityRule {
  bool Active(double v) const { return !(std::fabs(v) <= kTiny); }
  double Tidied(double v) const { return std::fabs(v) <= kTiny ? 0.0 : v; }
};

template <class Rule>
inline void TidyRow(const Rule& rule, double* row, int from, int to, int j, int k, VecInt3D& min, VecInt3D& max) {
  // Masks as wide as the values, and the tidied one first: so the loop vectorises.
  std::uint64_t any = 0, changed = 0;
  for (int i = from; i < to; ++i) {
    const double v = row[i], tidied = rule.Tidied(v);
    changed |= std::bit_cast<std::uint64_t>(v) ^ std::bit_cast<std::uint64_t>(tidied);
    any |= rule.Active(v) ? ~std::uint64_t(0) : 0;
  }
  if (any != 0) {
    int first = from, last = to - 1;
    while (first < min.x && !rule.Active(row[first])) ++first;
    while (last > max.x && !rule.Active(row[last])) --last;
    min = Min(min, VecInt3D(first, j, k));
    max = Max(max, VecInt3D(last, j, k));
  }
  if (changed == 0) return;  // a write costs twice the read
  for (int i = from; i < to; ++i) row[i] = rule.Tidied(row[i]);
}

ORLIX_MULTIVERSION void TidyChannelLayers(GridView<double> grid, const ChannelRule& rule, bool clearBorder, int k0,
                                          int k1, VecInt3D& min, VecInt3D& max) {
  const VecInt3D n = grid.dims;
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < n.y; ++j) {
      double* row = grid.data + grid.Index(0, j, k);
      if (clearBorder && (k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1)) {
        std::fill(row, row + n.x, rule.empty);
      } else if (clearBorder) {
        row[0] = row[n.x - 1] = rule.empty;
        TidyRow(rule, row, 1, n.x - 1, j, k, min, max);
      } else {
        TidyRow(rule, row, 0, n.x, j, k, min, max);
      }
    }
  }
}

ORLIX_MULTIVERSION void TidyVelocityLayers(GridView<double> grid, int k0, int k1, VecInt3D& min, VecInt3D& max) {
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < grid.dims.y; ++j) {
      TidyRow(VelocityRule(), grid.data + grid.Index(0, j, k), 0, grid.dims.x, j, k, min, max);
    }
  }
}

}  // namespace

ActiveBoxScan::ActiveBoxScan(Grid<double>& grid, double empty, double max, bool clearBorder)
    : grid_(grid), empty_(empty), max_(max), clearBorder_(clearBorder) {
  for (Box& box : boxes_) box = {grid.dims, VecInt3D(-1, -1, -1)};
}

void ActiveBoxScan::Tidy(int k0, int k1, int worker) {
  Box& box = boxes_[worker];
  if (grid_.gridType <= kGridVelocityW)
    TidyVelocityLayers(grid_, k0, k1, box.min, box.max);
  else
    TidyChannelLayers(grid_, {empty_, empty_ + kTiny, max_}, clearBorder_, k0, k1, box.min, box.max);
}

void ActiveBoxScan::Record() {
  grid_.ResetActiveBox();
  for (const Box& box : boxes_) {
    grid_.activeMin = Min(grid_.activeMin, box.min), grid_.activeMax = Max(grid_.activeMax, box.max);
  }
  if (grid_.activeMin == grid_.activeMax) grid_.activeMax += VecInt3D(1, 1, 1);
}

template <>
void Grid<double>::FindActiveBox(double empty, double max, bool clearBorder, WorkerPool* pool) {
  ActiveBoxScan scan(*this, empty, max, clearBorder);
  const auto tidy = [&](int k0, int k1, int worker) { scan.Tidy(k0, k1, worker); };
  if (count > 0) {
    if (pool)
      ParallelRange(*pool, 0, dims.z, tidy);
    else
      tidy(0, dims.z, 0);
  }
  scan.Record();
}

void FillDoubles(double* data, std::int64_t count, double value, WorkerPool* pool) {
  constexpr std::int64_t kBlock = 1 << 16;
  const int blocks = static_cast<int>((count + kBlock - 1) / kBlock);
  const auto fill = [&](int from, int to, int) {
    std::fill(data + from * kBlock, data + std::min(count, to * kBlock), value);
  };
  if (pool)
    ParallelRange(*pool, 0, blocks, fill);
  else
    fill(0, blocks, 0);
}

}  // namespace orlix
