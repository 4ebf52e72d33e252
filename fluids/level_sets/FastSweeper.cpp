#include "fluids/level_sets/FastSweeper.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <vector>

#include "fluids/grids/RowPipeline.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kRowsAtOnce = 8;     // rows whose chains of dependent steps run beside one another
constexpr int kLayersAtOnce = 16;  // layers that workers pass without waiting for all others
constexpr double kFar = std::numeric_limits<double>::max();

// v[i] = min(v[i], v[i - 1] + h) along rows that are stride apart; with step -1 the other way.
template <int kRows>
void TakeAlongRows(double* rows, std::int64_t stride, int n, int step, double h) {
  double last[kRows];
  for (double& value : last) value = kFar;
  for (int i = step > 0 ? 0 : n - 1; i >= 0 && i < n; i += step) {
    for (int r = 0; r < kRows; ++r) {
      double& v = rows[r * stride + i];
      last[r] = last[r] + h < v ? last[r] + h : v;
      v = last[r];
    }
  }
}

// v[i] = min(v[i], the least of the rows and of their neighbours in x, + h).
ORLIX_MULTIVERSION void TakeFromRows(double* __restrict v, const double* below, const double* beside,
                                     const double* above, int n, double h) {
  const auto least = [&](int i) {
    const double first = below[i] < beside[i] ? below[i] : beside[i];
    return above[i] < first ? above[i] : first;
  };
  const auto take = [&](int i, double value) { v[i] = value + h < v[i] ? value + h : v[i]; };
  for (int i = 1; i < n - 1; ++i) {
    const double low = least(i - 1), middle = least(i), high = least(i + 1);
    const double ends = low < high ? low : high;
    take(i, ends < middle ? ends : middle);
  }
  take(0, n > 1 && least(1) < least(0) ? least(1) : least(0));
  if (n > 1) take(n - 1, least(n - 2) < least(n - 1) ? least(n - 2) : least(n - 1));
}

ORLIX_INLINE void Transpose(Lanes (&r)[kLanes]) {
  const Lanes a = __builtin_shufflevector(r[0], r[1], 0, 4, 2, 6), b = __builtin_shufflevector(r[0], r[1], 1, 5, 3, 7);
  const Lanes c = __builtin_shufflevector(r[2], r[3], 0, 4, 2, 6), d = __builtin_shufflevector(r[2], r[3], 1, 5, 3, 7);
  r[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5), r[1] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
  r[2] = __builtin_shufflevector(a, c, 2, 3, 6, 7), r[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
}

// TakeAlongOwnSide for kRowsAtOnce rows of at least kLanes nodes: a lane for each row.
ORLIX_MULTIVERSION void TakeAlongRowLanes(double* rows, std::int64_t stride, int n, int step, double h) {
  using Words = std::int64_t __attribute__((vector_size(sizeof(Lanes))));
  constexpr int kGroups = kRowsAtOnce / kLanes;
  const Words sign = Words{} + std::numeric_limits<std::int64_t>::min();
  const Lanes far = Lanes{} + kFar;
  Lanes last[kGroups] = {};
  Words lastSign[kGroups] = {};
  const int blocks = (n + kLanes - 1) / kLanes;
  for (int block = 0; block < blocks; ++block) {
    // The last block is moved back into the row: its first node was visited already, as if it were the row's first.
    const int begin = step > 0 ? std::min(block * kLanes, n - kLanes) : std::max(n - kLanes - block * kLanes, 0);
    const bool first = block == 0 || (block == blocks - 1 && n % kLanes != 0);
    // All rows are read before any is written: rows that lie pages apart would wait for each other's writes.
    Lanes node[kGroups][kLanes];
    for (int r = 0; r < kRowsAtOnce; ++r) std::memcpy(node[0] + r, rows + r * stride + begin, sizeof(Lanes));
    for (Lanes(&group)[kLanes] : node) Transpose(group);
    for (int c = 0; c < kLanes; ++c) {
      for (int g = 0; g < kGroups; ++g) {
        Lanes& v = node[g][step > 0 ? c : kLanes - 1 - c];
        const Words bits = __builtin_bit_cast(Words, v), side = bits & sign;
        const Lanes size = __builtin_bit_cast(Lanes, bits & ~sign);
        Lanes nearest = last[g] + h;
        nearest = side == lastSign[g] ? nearest : far;
        if (c == 0 && first) nearest = far;
        last[g] = nearest < size ? nearest : size;
        lastSign[g] = side;
        v = __builtin_bit_cast(Lanes, __builtin_bit_cast(Words, last[g]) | side);
      }
    }
    for (Lanes(&group)[kLanes] : node) Transpose(group);
    for (int r = 0; r < kRowsAtOnce; ++r) std::memcpy(rows + r * stride + begin, node[0] + r, sizeof(Lanes));
  }
}
// The same of values of both signs, whose magnitudes are taken from nodes of the same sign; 0 counts as positive.
template <int kRows>
void TakeAlongOwnSide(double* rows, std::int64_t stride, int n, int step, double h) {
  if constexpr (kRows == kRowsAtOnce) {
    if (n >= kLanes) return TakeAlongRowLanes(rows, stride, n, step, h);
  }
  for (int r = 0; r < kRows; ++r) {
    double* row = rows + r * stride;
    double last = row[step > 0 ? 0 : n - 1];
    for (int i = step > 0 ? 1 : n - 2; i >= 0 && i < n; i += step) {
      const double nearest = std::signbit(last) == std::signbit(row[i]) ? std::abs(last) + h : kFar;
      last = row[i] = std::copysign(std::min(std::abs(row[i]), nearest), row[i]);
    }
  }
}
// Calls work(first row, how many, which is kRowsAtOnce or 1) for the rows of a layer.
template <class F>
void ForRowGroups(int rows, F&& work) {
  int j = 0;
  for (; j + kRowsAtOnce <= rows; j += kRowsAtOnce) work(j, std::integral_constant<int, kRowsAtOnce>());
  for (; j < rows; ++j) work(j, std::integral_constant<int, 1>());
}
ORLIX_MULTIVERSION void TakeFromOwnSide(double* to, const double* own, const double* below, const double* beside,
                                        const double* above, int n, double h, double* __restrict nearest) {
  double *positive = nearest + 1, *negative = nearest + n + 3;
  positive[-1] = positive[n] = kFar, negative[-1] = negative[n] = -kFar;
  for (int i = 0; i < n; ++i) {
    const double a = below[i] >= 0 ? below[i] : kFar, b = beside[i] >= 0 ? beside[i] : kFar,
                 c = above[i] >= 0 ? above[i] : kFar;
    const double p = below[i] >= 0 ? -kFar : below[i], q = beside[i] >= 0 ? -kFar : beside[i],
                 r = above[i] >= 0 ? -kFar : above[i];
    const double low = a < b ? a : b, high = p > q ? p : q;
    positive[i] = low < c ? low : c;
    negative[i] = high > r ? high : r;
  }
  for (int i = 0; i < n; ++i) {
    const double low = positive[i - 1] < positive[i + 1] ? positive[i - 1] : positive[i + 1];
    const double high = negative[i - 1] > negative[i + 1] ? negative[i - 1] : negative[i + 1];
    const double up = (low < positive[i] ? low : positive[i]) + h, down = (high > negative[i] ? high : negative[i]) - h;
    const double v = own[i], least = up < v ? up : v, most = down > v ? down : v;
    to[i] = v >= 0 ? least : most;
  }
}

void SpreadInLayer(const GridView<double>& values, int k, double h) {
  const VecInt3D n = values.dims;
  ForRowGroups(n.y, [&](int j, auto count) {
    for (const int step : {1, -1}) TakeAlongRows<count()>(&values(0, j, k), n.x, n.x, step, h);
  });
  const auto takeFrom = [&](int to, int from) {
    const double* row = &values(0, from, k);
    TakeFromRows(&values(0, to, k), row, row, row, n.x, h);
  };
  for (int j = 1; j < n.y; ++j) takeFrom(j, j - 1);
  for (int j = n.y - 2; j >= 0; --j) takeFrom(j, j + 1);
}

// Calls take(j, k, worker) for the rows of each layer but the first one in the direction of step, when the rows that
// touch it in the layer before are finished. A worker has a band of rows, which moves down by one from layer to layer:
// what it needs is then its own, or of the bands below, which it waits for.
template <class F>
void ThroughLayers(WorkerPool& pool, const VecInt3D& n, int step, F&& take) {
  const int pieces = std::clamp(n.y / (2 * kLayersAtOnce), 1, pool.count());
  for (int first = 1; first < n.z; first += kLayersAtOnce) {
    const int layers = std::min(kLayersAtOnce, n.z - first);
    PipelineProgress progress[WorkerPool::kMaxWorkers];
    pool.Run(pieces, [&](int worker) {
      for (int layer = 0; layer < layers; ++layer) {
        if (worker > 0) AwaitProgress(progress[worker - 1].done, layer);
        const int moved = kLayersAtOnce / 2 - layer;
        const int begin = worker == 0 ? 0 : n.y * worker / pieces + moved;
        const int end = worker == pieces - 1 ? n.y : n.y * (worker + 1) / pieces + moved;
        const int k = step > 0 ? first + layer : n.z - 1 - first - layer;
        for (int j = begin; j < end; ++j) take(j, k, worker);
        progress[worker].done.store(layer + 1, std::memory_order_release);
      }
    });
  }
}

// Calls work(row's first index, count) for the rows of the cells that aren't in the border layer.
template <class F>
void ForInnerRows(WorkerPool& pool, const ScalarGrid& grid, F&& work) {
  const VecInt3D n = grid.dims;
  ParallelRange(pool, 1, n.z - 1, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) work(grid.Index(1, j, k), n.x - 2);
    }
  });
}

// What a node next to the zero of phi keeps; 0 or more, kFar elsewhere.
double KeptDistance(const GridView<double>& phi, int i, int j, int k, double h) {
  const double a = phi(i, j, k);
  const std::int64_t c = phi.Index(i, j, k), strides[3] = {1, phi.dims.x, phi.slab};
  const int at[3] = {i, j, k};
  double kept = kFar;
  for (int axis = 0; axis < 3; ++axis) {
    for (const int side : {-1, 1}) {
      if (at[axis] + side < 0 || at[axis] + side >= phi.dims[axis]) continue;
      const double b = phi[c + side * strides[axis]];
      if ((a >= 0) == (b >= 0)) continue;
      const double apart = std::abs(a) + std::abs(b);
      if (apart > 0.9 * h) {
        kept = std::min(kept, std::abs(a) * (h / apart));
      } else if (kept == kFar) {
        kept = std::abs(a);
      }
    }
  }
  return kept;
}

// Whether a row's nodes, but for the first and last, have a neighbour on the other side of the zero.
ORLIX_MULTIVERSION void MarkCrossings(const double* row, const double* below, const double* above, const double* before,
                                      const double* behind, int n, std::uint8_t* crosses) {
  for (int i = 1; i < n - 1; ++i) {
    const int side = row[i] >= 0;
    crosses[i] =
        static_cast<std::uint8_t>((side ^ (row[i - 1] >= 0)) | (side ^ (row[i + 1] >= 0)) | (side ^ (below[i] >= 0)) |
                                  (side ^ (above[i] >= 0)) | (side ^ (before[i] >= 0)) | (side ^ (behind[i] >= 0)));
  }
}

}  // namespace

void SpreadDistances(WorkerPool& pool, const GridView<double>& values, double h) {
  const VecInt3D n = values.dims;
  if (CellCount(n) < 1) return;
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) SpreadInLayer(values, k, h);
  });
  for (const int step : {1, -1}) {
    ThroughLayers(pool, n, step, [&](int j, int k, int) {
      TakeFromRows(&values(0, j, k), &values(0, std::max(0, j - 1), k - step), &values(0, j, k - step),
                   &values(0, std::min(n.y - 1, j + 1), k - step), n.x, h);
    });
  }
}

// Both sides spread at once, each from nodes of its own: what is kept is at most h, so that the way from a node to a
// seed across the other side is no shorter than that to the seed where it crosses.
void ReinitialiseLevelSet(WorkerPool& pool, ScratchPool& scratch, const GridView<double>& phi, double h) {
  const auto spread = scratch.Take<double>(phi.dims);
  const GridView<double> values(*spread);
  const VecInt3D n = phi.dims;
  // Room for the nearest of each side in a row, and what lies beyond its ends.
  std::vector<std::vector<double>> room(WorkerPool::kMaxWorkers);
  for (int worker = 0; worker < pool.count(); ++worker) room[std::size_t(worker)].resize(2 * std::size_t(n.x + 2));
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int worker) {
    std::vector<std::uint8_t> crosses(std::size_t(n.x), 1);
    for (int k = begin; k < end; ++k) {
      for (int j = 0; j < n.y; ++j) {
        MarkCrossings(&phi(0, j, k), &phi(0, std::max(j - 1, 0), k), &phi(0, std::min(j + 1, n.y - 1), k),
                      &phi(0, j, std::max(k - 1, 0)), &phi(0, j, std::min(k + 1, n.z - 1)), n.x, crosses.data());
        for (int i = 0; i < n.x; ++i) {
          const double kept = crosses[std::size_t(i)] ? KeptDistance(phi, i, j, k, h) : kFar;
          values(i, j, k) = phi(i, j, k) >= 0 ? kept : -kept;
        }
      }
      double* const nearest = room[std::size_t(worker)].data();
      const auto takeFrom = [&](int to, int from) {
        const double* row = &values(0, from, k);
        TakeFromOwnSide(&values(0, to, k), &values(0, to, k), row, row, row, n.x, h, nearest);
      };
      ForRowGroups(n.y, [&](int j, auto count) {
        for (const int step : {1, -1}) TakeAlongOwnSide<count()>(&values(0, j, k), n.x, n.x, step, h);
      });
      for (int j = 1; j < n.y; ++j) takeFrom(j, j - 1);
      for (int j = n.y - 2; j >= 0; --j) takeFrom(j, j + 1);
    }
  });
  const auto take = [&](const GridView<double>& to, int step) {
    ThroughLayers(pool, n, step, [&](int j, int k, int worker) {
      TakeFromOwnSide(&to(0, j, k), &values(0, j, k), &to(0, std::max(0, j - 1), k - step), &to(0, j, k - step),
                      &to(0, std::min(n.y - 1, j + 1), k - step), n.x, h, room[std::size_t(worker)].data());
    });
  };
  take(values, 1);
  std::copy_n(&values(0, 0, n.z - 1), values.slab, &phi(0, 0, n.z - 1));
  take(phi, -1);
}

void LevelSetFromMask(WorkerPool& pool, const GridView<const std::uint8_t>& mask, ScalarGrid& target, double farValue,
                      bool signInterior) {
  const double h = target.space.cellSize;
  const std::int64_t row = target.dims.x, slab = target.slab;
  const std::uint8_t* m = mask.data;
  ParallelRange(pool, 0, target.dims.z, [&](int begin, int end, int) {
    for (std::int64_t c = begin * slab; c < end * slab; ++c) target[c] = m[c] ? -0.5 * h : farValue;
  });
  ForInnerRows(pool, target, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) {
      const bool buried = (m[c] & m[c - 1] & m[c + 1] & m[c - row] & m[c + row] & m[c - slab] & m[c + slab]) != 0;
      target[c] = buried ? farValue : target[c];
    }
  });
  SpreadDistances(pool, target, h);
  if (!signInterior) return;
  ForInnerRows(pool, target, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) {
      const bool flip = m[c] != 0 && !(static_cast<float>(target[c]) < 0);
      target[c] = flip ? -target[c] : target[c];
    }
  });
}

bool DensityToLevelset(WorkerPool& pool, const ScalarGrid& source, ScalarGrid& target, double threshold,
                       double farValue, bool signInterior) {
  if (source.dims != target.dims || source.count < 1) return false;
  std::unique_ptr<Grid<std::uint8_t>> mask;
  try {
    mask = std::make_unique<Grid<std::uint8_t>>(source.dims, kGridLevelset);
  } catch (const std::bad_alloc&) {
    return false;
  }
  mask->Fill(0);
  ForInnerRows(pool, source, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) (*mask)[c] = !(source[c] < threshold);
  });
  LevelSetFromMask(pool, *mask, target, farValue, signInterior);
  return true;
}

}  // namespace orlix
