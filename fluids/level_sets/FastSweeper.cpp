#include "fluids/level_sets/FastSweeper.h"

#include <algorithm>
#include <new>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// v[i] = min(v[i], the three neighbours in row + h) for nodes that are no seeds.
ORLIX_MULTIVERSION void TakeFromRow(double* v, const double* row, int n, double h) {
  for (int i = 0; i < n; ++i) {
    double least = row[i];
    if (i > 0) least = row[i - 1] < least ? row[i - 1] : least;
    if (i < n - 1) least = row[i + 1] < least ? row[i + 1] : least;
    const double c = least + h;
    v[i] = v[i] >= 0 && c < v[i] ? c : v[i];
  }
}

void TakeAlongRow(double* v, int n, double h, int step) {
  for (int i = step > 0 ? 1 : n - 2; i >= 0 && i < n; i += step) {
    const double c = v[i - step] + h;
    if (v[i] >= 0 && c < v[i]) v[i] = c;
  }
}

// One raster pass, forwards or backwards: the half of the 26 neighbours that was visited before.
void RasterPass(ScalarGrid& grid, double h, int step) {
  const VecInt3D n = grid.dims;
  for (int kk = 0; kk < n.z; ++kk) {
    const int k = step > 0 ? kk : n.z - 1 - kk;
    for (int jj = 0; jj < n.y; ++jj) {
      const int j = step > 0 ? jj : n.y - 1 - jj;
      double* row = &grid(0, j, k);
      const int layer = k - step;
      if (layer >= 0 && layer < n.z) {
        for (int y = std::max(0, j - 1); y <= std::min(n.y - 1, j + 1); ++y)
          TakeFromRow(row, &grid(0, y, layer), n.x, h);
      }
      if (j - step >= 0 && j - step < n.y) TakeFromRow(row, &grid(0, j - step, k), n.x, h);
      TakeAlongRow(row, n.x, h, step);
    }
  }
}

}  // namespace

void SweepDistances(ScalarGrid& grid) {
  if (grid.count < 1) return;
  const double h = grid.space.cellSize;
  RasterPass(grid, h, 1);
  RasterPass(grid, h, -1);
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
  const double seed = -0.5 * target.space.cellSize;
  const VecInt3D n = source.dims;
  const auto forInner = [&](auto&& work) {
    ParallelRange(pool, 1, n.z - 1, [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        for (int j = 1; j < n.y - 1; ++j) {
          for (int i = 1; i < n.x - 1; ++i) work(source.Index(i, j, k));
        }
      }
    });
  };
  mask->Fill(0);
  forInner([&](std::int64_t c) {
    (*mask)[c] = !(source[c] < threshold);
    target[c] = (*mask)[c] ? seed : farValue;
  });
  // Only the outermost layer of the region keeps its seeds.
  forInner([&](std::int64_t c) {
    const Grid<std::uint8_t>& m = *mask;
    const bool buried = m[c - 1] && m[c + 1] && m[c - n.x] && m[c + n.x] && m[c - m.slab] && m[c + m.slab];
    if (buried) target[c] = farValue;
  });
  SweepDistances(target);
  if (signInterior) {
    forInner([&](std::int64_t c) {
      if ((*mask)[c] && !(static_cast<float>(target[c]) < 0)) target[c] = -target[c];
    });
  }
  return true;
}

}  // namespace orlix
