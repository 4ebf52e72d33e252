#include "fluids/pressure/MultigridCycle.h"

#include <algorithm>
#include <cmath>

#include "fluids/pressure/PairedRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kCoarsestCells = 4;     // an axis
constexpr int kCoarsestSweeps = 20;   // of both colours, in each direction
constexpr int kFinestHalfSweeps = 3;  // of one colour, before and after the correction
constexpr int kCoarseHalfSweeps = 6;  // coarse levels cost little
constexpr float kRelaxation = 1.15f;  // best for red-black sweeps in three dimensions (Yavneh 1996)
constexpr int kSerialCells = 8192;    // a level below it isn't worth the workers

// The cells of a colour in a row, and their neighbours of the other colour, by pair.
struct ColourRow {
  const float *xLow, *xHigh, *yLow, *yHigh, *zLow, *zHigh, *inverse, *right;
  const float *uXLow, *uXHigh, *uYLow, *uYHigh, *uZLow, *uZHigh;
  float* u;

  ORLIX_INLINE ColourRow(const MultigridLevel& level, int j, int k, int colour) {
    const std::int64_t at = level.At(j, k), row = level.row, slab = level.slab;
    const MultigridLevel::Colour &own = level.colour[colour], &other = level.colour[1 - colour];
    // An odd cell stands between the pair before it and its partner, an even one between its partner and the next pair.
    const std::int64_t before = MultigridLevel::OddColour(j, k) == colour ? at - 1 : at;
    xLow = own.x + at, yLow = own.y + at, zLow = own.z + at;
    xHigh = other.x + before + 1, yHigh = other.y + at + row, zHigh = other.z + at + slab;
    inverse = own.inverse + at, right = own.right + at, u = own.solution + at;
    uXLow = other.solution + before, uXHigh = uXLow + 1;
    uYLow = other.solution + at - row, uYHigh = other.solution + at + row;
    uZLow = other.solution + at - slab, uZHigh = other.solution + at + slab;
  }
  // The right side and what the neighbours add to it.
  ORLIX_INLINE float Sum(int p) const {
    return (right[p] + (xLow[p] * uXLow[p] + xHigh[p] * uXHigh[p])) +
           ((yLow[p] * uYLow[p] + yHigh[p] * uYHigh[p]) + (zLow[p] * uZLow[p] + zHigh[p] * uZHigh[p]));
  }
};

// One over-relaxed half sweep over the cells of a colour.
ORLIX_MULTIVERSION void SmoothLayer(const MultigridLevel& level, int k, int colour) {
  const int width = level.width;
  for (int j = 1; j <= level.cells.y; ++j) {
    const ColourRow row(level, j, k, colour);
    float* u = row.u;
    ORLIX_INDEPENDENT
    for (int p = 1; p <= width; ++p) u[p] += kRelaxation * (row.Sum(p) * row.inverse[p] - u[p]);
  }
}

// The first half sweep, over colour 0, from zero.
ORLIX_MULTIVERSION void StartLayer(const MultigridLevel& level, int k) {
  const int width = level.width;
  for (int j = 1; j <= level.cells.y; ++j) {
    const std::int64_t at = level.At(j, k);
    const float *inverse = level.colour[0].inverse + at, *right = level.colour[0].right + at;
    float* __restrict u = level.colour[0].solution + at;
    for (int p = 1; p <= width; ++p) u[p] = kRelaxation * (right[p] * inverse[p]);
    std::fill(level.colour[1].solution + at + 1, level.colour[1].solution + at + 1 + width, 0.0f);
  }
}

ORLIX_MULTIVERSION void NarrowLayer(const VecInt3D& dims, const double* residual, double scale,
                                    const MultigridLevel& level, int k) {
  for (int j = 1; j < dims.y - 1; ++j) {
    const double* from = residual + std::int64_t(dims.x) * (std::int64_t(dims.y) * k + j);
    const std::int64_t at = level.At(j, k);
    const int odd = MultigridLevel::OddColour(j, k);
    SplitPairs(from, scale, level.pairs, level.colour[odd].right + at, level.colour[1 - odd].right + at);
  }
}

// Adds the blocks' corrections to their cells. joined: room for a row of blocks.
ORLIX_MULTIVERSION void CorrectLayer(const MultigridLevel& fine, const MultigridLevel& coarse, int k,
                                     float* __restrict joined) {
  const int pairs = fine.pairs;
  for (int j = 1; j <= fine.cells.y; ++j) {
    const int blockJ = (j + 1) / 2, blockK = (k + 1) / 2;
    if (j % 2 != 0) {
      const std::int64_t blocks = coarse.At(blockJ, blockK);
      const int odd = MultigridLevel::OddColour(blockJ, blockK);
      JoinPairs(coarse.colour[odd].solution + blocks, coarse.colour[1 - odd].solution + blocks, coarse.pairs, joined);
    }
    const std::int64_t at = fine.At(j, k);
    for (int c = 0; c < 2; ++c) {
      const float* inverse = fine.colour[c].inverse + at;
      float* __restrict u = fine.colour[c].solution + at;
      for (int p = 1; p <= pairs; ++p) u[p] += inverse[p] > 0 ? joined[p] : 0.0f;
    }
  }
}

// Adds the residuals of a colour of row j, k to sums.
ORLIX_INLINE void AddResiduals(const MultigridLevel& level, int j, int k, int colour, float* __restrict sums) {
  const ColourRow row(level, j, k, colour);
  const int width = level.width;
  ORLIX_INDEPENDENT
  for (int p = 1; p <= width; ++p) {
    const float residual = row.Sum(p) - row.u[p] / row.inverse[p];
    sums[p] += row.inverse[p] > 0 ? residual : 0.0f;
  }
}

// The residual of a block is the sum of its cells'.
ORLIX_MULTIVERSION void RestrictLayer(const MultigridLevel& fine, const MultigridLevel& coarse, int k, float* sums) {
  for (int j = 1; j <= coarse.cells.y; ++j) {
    std::fill(sums, sums + fine.row, 0.0f);
    for (int kk = 2 * k - 1; kk <= std::min(2 * k, fine.cells.z); ++kk) {
      for (int jj = 2 * j - 1; jj <= std::min(2 * j, fine.cells.y); ++jj) {
        AddResiduals(fine, jj, kk, 0, sums);
        AddResiduals(fine, jj, kk, 1, sums);
      }
    }
    const std::int64_t at = coarse.At(j, k);
    const int odd = MultigridLevel::OddColour(j, k);
    SplitPairs(sums, 1.0f, coarse.pairs, coarse.colour[odd].right + at, coarse.colour[1 - odd].right + at);
  }
}

// Runs steps 0 to steps - 1 over the layers 1 to layers, where step s on a layer needs step s - 1 on it and its two
// neighbours. Workers go through their layers once, each step one layer later, leaving out what needs a neighbour's
// layers; a second round fills the gaps at the borders. Those of a piece between two others don't meet.
template <class F>
void RunSteps(WorkerPool& pool, int layers, int steps, bool serial, F&& step) {
  const int most = layers >= 2 * steps ? std::max(layers / (2 * steps), 2) : 1;
  const int pieces = serial ? 1 : std::min(most, pool.count());
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

double MultigridCycle::Bytes(const VecInt3D& dims) {
  VecInt3D cells = dims - VecInt3D(2, 2, 2);
  double bytes = MultigridLevel::Bytes(cells, true);
  while (std::max({cells.x, cells.y, cells.z}) > kCoarsestCells) {
    cells = CoarserCells(cells);
    bytes += MultigridLevel::Bytes(cells, false);
  }
  return bytes;
}

void MultigridCycle::SmoothAndRestrict(int index, const double* residual, double scale) {
  const MultigridLevel &level = levels_[index], &coarse = levels_[index + 1];
  const int sweeps = HalfSweeps(index);
  // A block takes two layers, so that its residual needs the sweeps two layers around: an idle step lies between.
  RunSteps(pool_, level.cells.z, sweeps + 2, IsSerial(level), [&](int s, int k) {
    if (s == 0) {
      if (residual) NarrowLayer(dims_, residual, scale, level, k);
      StartLayer(level, k);
    } else if (s < sweeps) {
      SmoothLayer(level, k, s & 1);
    } else if (s > sweeps && (k % 2 == 0 || k == level.cells.z)) {
      std::vector<float> sums(std::size_t(level.row));
      RestrictLayer(level, coarse, (k + 1) / 2, sums.data());
    }
  });
}

void MultigridCycle::CorrectAndSmooth(int index) {
  const MultigridLevel &level = levels_[index], &coarse = levels_[index + 1];
  const int sweeps = HalfSweeps(index);
  RunSteps(pool_, level.cells.z, sweeps + 1, IsSerial(level), [&](int s, int k) {
    if (s == 0) {
      std::vector<float> joined(std::size_t(coarse.row) * 2);
      return CorrectLayer(level, coarse, k, joined.data());
    }
    SmoothLayer(level, k, (sweeps - s) & 1);
  });
}

void MultigridCycle::SolveCoarsest(const double* residual, double scale) {
  const MultigridLevel& level = levels_.back();
  const auto halfSweep = [&](int colour) {
    for (int k = 1; k <= level.cells.z; ++k) SmoothLayer(level, k, colour);
  };
  for (int k = 1; k <= level.cells.z; ++k) {
    if (residual) NarrowLayer(dims_, residual, scale, level, k);
    StartLayer(level, k);
  }
  for (int s = 1; s < 2 * kCoarsestSweeps; ++s) halfSweep(s & 1);
  for (int s = 2 * kCoarsestSweeps; s > 0; --s) halfSweep((s - 1) & 1);
}

void MultigridCycle::Descend(int index, const double* residual, double scale) {
  if (index + 1 == levels()) return SolveCoarsest(residual, scale);
  SmoothAndRestrict(index, residual, scale);
  Descend(index + 1, nullptr, 1);
  CorrectAndSmooth(index);
}

PreconditionedVector MultigridCycle::Apply(const double* residual, double largest) {
  // A power of two brings the residual into single precision's range and leaves its bits alone.
  const int exponent = largest > 0 && std::isfinite(largest) ? std::ilogb(largest) : 0;
  Descend(0, residual, std::ldexp(1.0, -exponent));
  const MultigridLevel& level = levels_.front();
  return {
      nullptr, {level.colour[0].solution, level.colour[1].solution}, level.row, level.slab, std::ldexp(1.0, exponent)};
}

}  // namespace orlix
