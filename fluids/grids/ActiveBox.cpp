#include <algorithm>
#include <bit>
#include <cmath>

#include "fluids/grids/Grid.h"
#include "fluids/grids/GridTypes.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr double kTiny = 1e-6;

struct Box {
  VecInt3D min, max;
};

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
inline void TidyRow(const Rule& rule, double* row, int from, int to, int j, int k, Box& box) {
  // Masks as wide as the values, and the tidied one first: so the loop vectorises.
  std::uint64_t any = 0, changed = 0;
  for (int i = from; i < to; ++i) {
    const double v = row[i], tidied = rule.Tidied(v);
    changed |= std::bit_cast<std::uint64_t>(v) ^ std::bit_cast<std::uint64_t>(tidied);
    any |= rule.Active(v) ? ~std::uint64_t(0) : 0;
  }
  if (any != 0) {
    int first = from, last = to - 1;
    while (first < box.min.x && !rule.Active(row[first])) ++first;
    while (last > box.max.x && !rule.Active(row[last])) --last;
    box.min = Min(box.min, VecInt3D(first, j, k));
    box.max = Max(box.max, VecInt3D(last, j, k));
  }
  if (changed == 0) return;  // a write costs twice the read
  for (int i = from; i < to; ++i) row[i] = rule.Tidied(row[i]);
}

ORLIX_MULTIVERSION void TidyChannelLayers(GridView<double> grid, const ChannelRule& rule, bool clearBorder, int k0,
                                          int k1, Box& box) {
  const VecInt3D n = grid.dims;
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < n.y; ++j) {
      double* row = grid.data + grid.Index(0, j, k);
      if (clearBorder && (k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1)) {
        std::fill(row, row + n.x, rule.empty);
      } else if (clearBorder) {
        row[0] = row[n.x - 1] = rule.empty;
        TidyRow(rule, row, 1, n.x - 1, j, k, box);
      } else {
        TidyRow(rule, row, 0, n.x, j, k, box);
      }
    }
  }
}

ORLIX_MULTIVERSION void TidyVelocityLayers(GridView<double> grid, int k0, int k1, Box& box) {
  for (int k = k0; k < k1; ++k) {
    for (int j = 0; j < grid.dims.y; ++j) {
      TidyRow(VelocityRule(), grid.data + grid.Index(0, j, k), 0, grid.dims.x, j, k, box);
    }
  }
}

}  // namespace

template <>
void Grid<double>::FindActiveBox(double empty, double max, bool clearBorder, WorkerPool* pool) {
  const GridView<double> view(*this);
  const bool velocity = gridType <= kGridVelocityW;
  const ChannelRule rule{empty, empty + kTiny, max};
  Box boxes[WorkerPool::kMaxWorkers];
  for (Box& box : boxes) box = {dims, VecInt3D(-1, -1, -1)};
  const auto tidy = [&](int k0, int k1, int worker) {
    if (velocity)
      TidyVelocityLayers(view, k0, k1, boxes[worker]);
    else
      TidyChannelLayers(view, rule, clearBorder, k0, k1, boxes[worker]);
  };
  if (count > 0) {
    if (pool)
      ParallelRange(*pool, 0, dims.z, tidy);
    else
      tidy(0, dims.z, 0);
  }
  ResetActiveBox();
  for (const Box& box : boxes) activeMin = Min(activeMin, box.min), activeMax = Max(activeMax, box.max);
  if (activeMin == activeMax) activeMax += VecInt3D(1, 1, 1);
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
