#include "fluids/dynamics/MultigridCycle.h"

#include <algorithm>
#include <cmath>

#include "fluids/dynamics/PressureRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kCoarsestCells = 4;     // an axis
constexpr int kCoarsestSweeps = 20;   // of both colours, in each direction
constexpr int kFinestHalfSweeps = 3;  // of one colour, before and after the correction
constexpr int kCoarseHalfSweeps = 6;  // coarse levels cost little
constexpr float kRelaxation = 1.15f;  // best for red-black sweeps in three dimensions (Yavneh 1996)
constexpr int kSerialCells = 32768;   // a level below it isn't worth the workers

// Hides from the compiler that two pointers lead into one row: gcc 12 gives up on a row's own neighbours even where
// ORLIX_INDEPENDENT tells it that they don't matter.
ORLIX_INLINE const float* Unrelated(const float* p) {
  __asm__("" : "+r"(p));
  return p;
}

// The pointers of a row of cells; index 0 is the ghost cell before it.
struct LevelRow {
  const float *xLow, *xHigh, *yLow, *yHigh, *zLow, *zHigh, *inverse, *right;
  float* u;
  const float *uXLow, *uXHigh, *uYLow, *uYHigh, *uZLow, *uZHigh;

  ORLIX_INLINE LevelRow(const MultigridLevel& level, int j, int k) {
    const std::int64_t at = level.At(j, k), row = level.row, slab = level.slab;
    xLow = level.x + at, yLow = level.y + at, zLow = level.z + at;
    xHigh = xLow + 1, yHigh = yLow + row, zHigh = zLow + slab;
    inverse = level.inverse + at, right = level.right + at;
    u = level.solution + at;
    uXLow = Unrelated(u - 1), uXHigh = Unrelated(u + 1);
    uYLow = u - row, uYHigh = u + row, uZLow = u - slab, uZHigh = u + slab;
  }
  // The right side and what the neighbours add to it.
  ORLIX_INLINE float Sum(int i) const {
    return (right[i] + (xLow[i] * uXLow[i] + xHigh[i] * uXHigh[i])) +
           ((yLow[i] * uYLow[i] + yHigh[i] * uYHigh[i]) + (zLow[i] * uZLow[i] + zHigh[i] * uZHigh[i]));
  }
};

// One over-relaxed half sweep over the cells of a colour. All cells are computed and half of them kept, so that rows
// run in whole vectors; a cell's neighbours have the other colour and don't change.
ORLIX_MULTIVERSION void SmoothLayer(const MultigridLevel& level, int k, int colour) {
  const int width = level.width;
  for (int j = 1; j <= level.cells.y; ++j) {
    const LevelRow row(level, j, k);
    const int parity = (j + k + colour) & 1;
    ORLIX_INDEPENDENT
    for (int i = 1; i <= width; ++i) {
      const float relaxed = row.u[i] + kRelaxation * (row.Sum(i) * row.inverse[i] - row.u[i]);
      row.u[i] = (i & 1) == parity ? relaxed : row.u[i];
    }
  }
}

// The first half sweep, from zero.
ORLIX_MULTIVERSION void StartLayer(const MultigridLevel& level, int k) {
  for (int j = 1; j <= level.cells.y; ++j) {
    const std::int64_t at = level.At(j, k);
    const float *inverse = level.inverse + at, *right = level.right + at;
    float* __restrict u = level.solution + at;
    const int parity = (j + k) & 1, width = level.width;
    for (int i = 1; i <= width; ++i) {
      const float relaxed = kRelaxation * (right[i] * inverse[i]);
      u[i] = (i & 1) == parity ? relaxed : 0.0f;
    }
  }
}

ORLIX_MULTIVERSION void NarrowLayer(const VecInt3D& dims, const double* residual, double scale,
                                    const MultigridLevel& level, int k) {
  for (int j = 1; j < dims.y - 1; ++j) {
    const double* from = residual + std::int64_t(dims.x) * (std::int64_t(dims.y) * k + j);
    float* to = level.right + level.At(j, k);
    for (int i = 1; i < dims.x - 1; ++i) to[i] = static_cast<float>(from[i] * scale);
  }
}

// Adds the block's correction to its cells.
ORLIX_MULTIVERSION void CorrectLayer(const MultigridLevel& fine, const MultigridLevel& coarse, int k) {
  for (int j = 1; j <= fine.cells.y; ++j) {
    const std::int64_t at = fine.At(j, k);
    const float* correction = coarse.solution + coarse.At((j + 1) / 2, (k + 1) / 2);
    const float* inverse = fine.inverse + at;
    float* __restrict u = fine.solution + at;
    for (int i = 1; i <= coarse.cells.x; ++i) {
      u[2 * i - 1] += inverse[2 * i - 1] > 0 ? correction[i] : 0.0f;
      u[2 * i] += inverse[2 * i] > 0 ? correction[i] : 0.0f;
    }
  }
}

// Adds the residuals of row j, k to sums.
ORLIX_INLINE void AddResidualRow(const MultigridLevel& level, int j, int k, float* __restrict sums) {
  const LevelRow row(level, j, k);
  const int width = level.width;
  for (int i = 1; i <= width; ++i) {
    const float diagonal = 1 / row.inverse[i];
    const float residual = row.Sum(i) - row.u[i] * diagonal;
    sums[i] += row.inverse[i] > 0 ? residual : 0.0f;
  }
}

// The residual of a block is the sum of its cells'.
ORLIX_MULTIVERSION void RestrictLayer(const MultigridLevel& fine, const MultigridLevel& coarse, int k, float* sums) {
  for (int j = 1; j <= coarse.cells.y; ++j) {
    std::fill(sums, sums + fine.row, 0.0f);
    for (int kk = 2 * k - 1; kk <= std::min(2 * k, fine.cells.z); ++kk) {
      for (int jj = 2 * j - 1; jj <= std::min(2 * j, fine.cells.y); ++jj) AddResidualRow(fine, jj, kk, sums);
    }
    float* right = coarse.right + coarse.At(j, k);
    for (int i = 1; i <= coarse.cells.x; ++i) right[i] = sums[2 * i - 1] + sums[2 * i];
  }
}

// Runs steps 0 to steps - 1 over the layers 1 to layers, where step s on a layer needs step s - 1 on it and its two
// neighbours. Workers go through their layers once, one step behind the other, leaving out what needs a neighbour's
// layers; a second round fills the gaps at the borders.
template <class F>
void RunSteps(WorkerPool& pool, int layers, int steps, bool serial, F&& step) {
  const int pieces = serial ? 1 : std::clamp(layers / (2 * steps), 1, pool.count());
  const auto border = [&](int piece) { return 1 + static_cast<int>(static_cast<long long>(layers) * piece / pieces); };
  pool.Run(pieces, [&](int piece) {
    const int from = border(piece), to = border(piece + 1);
    const int low = piece > 0 ? 1 : 0, high = piece + 1 < pieces ? 1 : 0;
    for (int front = from; front < to + steps; ++front) {
      for (int s = 0; s < steps; ++s) {
        const int k = front - s;
        if (k >= from + low * s && k < to - high * s) step(s, k);
      }
    }
  });
  if (pieces == 1) return;
  pool.Run(pieces - 1, [&](int piece) {
    const int middle = border(piece + 1);
    for (int s = 1; s < steps; ++s) {
      for (int k = middle - s; k < middle + s; ++k) step(s, k);
    }
  });
}

int HalfSweeps(int index) { return index == 0 ? kFinestHalfSweeps : kCoarseHalfSweeps; }
bool IsSerial(const MultigridLevel& level) { return CellCount(level.cells) < kSerialCells; }

}  // namespace

MultigridCycle::MultigridCycle(const PressureSystem& system, WorkerPool& pool, ScratchPool& scratch)
    : pool_(pool), dims_(system.dims) {
  VecInt3D cells = system.dims - VecInt3D(2, 2, 2);
  levels_.emplace_back().Allocate(cells, true, scratch, pool);
  BuildFinestLevel(system, levels_.back(), pool);
  while (std::max({cells.x, cells.y, cells.z}) > kCoarsestCells) {
    cells = CoarserCells(cells);
    MultigridLevel coarse;
    coarse.Allocate(cells, false, scratch, pool);
    BuildCoarserLevel(levels_.back(), levels() - 1, coarse, pool);
    levels_.push_back(std::move(coarse));
  }
}

void MultigridCycle::Smooth(int index, const double* residual, double scale) {
  const MultigridLevel& level = levels_[index];
  RunSteps(pool_, level.cells.z, HalfSweeps(index), IsSerial(level), [&](int s, int k) {
    if (s > 0) return SmoothLayer(level, k, s & 1);
    if (residual) NarrowLayer(dims_, residual, scale, level, k);
    StartLayer(level, k);
  });
}

void MultigridCycle::CorrectAndSmooth(int index) {
  const MultigridLevel &level = levels_[index], &coarse = levels_[index + 1];
  const int sweeps = HalfSweeps(index);
  RunSteps(pool_, level.cells.z, sweeps + 1, IsSerial(level), [&](int s, int k) {
    if (s == 0) return CorrectLayer(level, coarse, k);
    SmoothLayer(level, k, (sweeps - s) & 1);
  });
}

void MultigridCycle::SolveCoarsest() {
  const MultigridLevel& level = levels_.back();
  const auto halfSweep = [&](int colour) {
    for (int k = 1; k <= level.cells.z; ++k) SmoothLayer(level, k, colour);
  };
  for (int k = 1; k <= level.cells.z; ++k) StartLayer(level, k);
  for (int s = 1; s < 2 * kCoarsestSweeps; ++s) halfSweep(s & 1);
  for (int s = 2 * kCoarsestSweeps; s > 0; --s) halfSweep((s - 1) & 1);
}

void MultigridCycle::Descend(int index) {
  if (index + 1 == levels()) return SolveCoarsest();
  if (index > 0) Smooth(index, nullptr, 1);
  const MultigridLevel &fine = levels_[index], &coarse = levels_[index + 1];
  const auto restrictLayers = [&](int from, int to, int) {
    std::vector<float> sums(std::size_t(fine.row));
    for (int k = from; k < to; ++k) RestrictLayer(fine, coarse, k, sums.data());
  };
  if (IsSerial(fine))
    restrictLayers(1, coarse.cells.z + 1, 0);
  else
    ParallelRange(pool_, 1, coarse.cells.z + 1, restrictLayers);
  Descend(index + 1);
  CorrectAndSmooth(index);
}

PreconditionedVector MultigridCycle::Apply(const double* residual, double largest) {
  // A power of two brings the residual into single precision's range and leaves its bits alone.
  const int exponent = largest > 0 && std::isfinite(largest) ? std::ilogb(largest) : 0;
  Smooth(0, residual, std::ldexp(1.0, -exponent));
  Descend(0);
  const MultigridLevel& level = levels_.front();
  return {nullptr, level.solution, level.row, level.slab, std::ldexp(1.0, exponent)};
}

}  // namespace orlix
