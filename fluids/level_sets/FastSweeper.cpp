#include "fluids/level_sets/FastSweeper.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "fluids/grids/RowPipeline.h"
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

void SpreadInLayer(const GridView<double>& values, int k, double h) {
  const VecInt3D n = values.dims;
  int j = 0;
  for (; j + kRowsAtOnce <= n.y; j += kRowsAtOnce) {
    for (const int step : {1, -1}) TakeAlongRows<kRowsAtOnce>(&values(0, j, k), n.x, n.x, step, h);
  }
  for (; j < n.y; ++j) {
    for (const int step : {1, -1}) TakeAlongRows<1>(&values(0, j, k), n.x, n.x, step, h);
  }
  const auto takeFrom = [&](int to, int from) {
    const double* row = &values(0, from, k);
    TakeFromRows(&values(0, to, k), row, row, row, n.x, h);
  };
  for (j = 1; j < n.y; ++j) takeFrom(j, j - 1);
  for (j = n.y - 2; j >= 0; --j) takeFrom(j, j + 1);
}

// Each layer from the one before it in the direction of step. A worker has a band of rows, which moves down by one from
// layer to layer: what it needs is then its own, or of the bands below, which it waits for.
void SpreadThroughLayers(WorkerPool& pool, const GridView<double>& values, double h, int step) {
  const VecInt3D n = values.dims;
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
        for (int j = begin; j < end; ++j) {
          TakeFromRows(&values(0, j, k), &values(0, std::max(0, j - 1), k - step), &values(0, j, k - step),
                       &values(0, std::min(n.y - 1, j + 1), k - step), n.x, h);
        }
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
  SpreadThroughLayers(pool, values, h, 1);
  SpreadThroughLayers(pool, values, h, -1);
}

void ReinitialiseLevelSet(WorkerPool& pool, ScratchPool& scratch, const GridView<double>& phi, double h) {
  const auto above = scratch.Take<double>(phi.dims), below = scratch.Take<double>(phi.dims);
  const VecInt3D n = phi.dims;
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    std::vector<std::uint8_t> crosses(std::size_t(n.x), 1);
    for (int k = begin; k < end; ++k) {
      for (int j = 0; j < n.y; ++j) {
        MarkCrossings(&phi(0, j, k), &phi(0, std::max(j - 1, 0), k), &phi(0, std::min(j + 1, n.y - 1), k),
                      &phi(0, j, std::max(k - 1, 0)), &phi(0, j, std::min(k + 1, n.z - 1)), n.x, crosses.data());
        for (int i = 0; i < n.x; ++i) {
          const std::int64_t c = phi.Index(i, j, k);
          const double kept = crosses[std::size_t(i)] ? KeptDistance(phi, i, j, k, h) : kFar;
          (*above)[c] = phi[c] >= 0 ? kept : kFar;
          (*below)[c] = phi[c] >= 0 ? kFar : kept;
        }
      }
    }
  });
  // The two sides don't mix: what is kept is at most h, so that a node's own value, or one beside the gap, is
  // never undercut from across it.
  SpreadDistances(pool, *above, h);
  SpreadDistances(pool, *below, h);
  ParallelRange(pool, 0, phi.dims.z, [&](int begin, int end, int) {
    const std::int64_t first = std::int64_t(begin) * phi.slab, last = std::int64_t(end) * phi.slab;
    for (std::int64_t c = first; c < last; ++c) phi[c] = phi[c] >= 0 ? (*above)[c] : -(*below)[c];
  });
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
