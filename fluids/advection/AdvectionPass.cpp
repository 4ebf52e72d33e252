#include "fluids/advection/AdvectionPass.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>

#include "fluids/grids/LargestMagnitude.h"
#include "globals/Multiversion.h"

#define ORLIX_ROWS advection_baseline
#define ORLIX_ROWS_TARGET
#define ORLIX_ROWS_LANES 4
#include "fluids/advection/AdvectionRows.h"

#if defined(__x86_64__)
#undef ORLIX_ROWS
#undef ORLIX_ROWS_TARGET
#define ORLIX_ROWS_AVX
#define ORLIX_ROWS advection_avx2
#define ORLIX_ROWS_TARGET __attribute__((target("avx2")))
#include "fluids/advection/AdvectionRows.h"

#undef ORLIX_ROWS
#undef ORLIX_ROWS_TARGET
#undef ORLIX_ROWS_LANES
#define ORLIX_ROWS_AVX512
#define ORLIX_ROWS advection_avx512
#define ORLIX_ROWS_TARGET __attribute__((target("avx2,avx512f,avx512dq,avx512vl")))
#define ORLIX_ROWS_LANES 8
#include "fluids/advection/AdvectionRows.h"
#endif

namespace orlix {

namespace {

#define ORLIX_KERNELS_OF(rows) \
  AdvectionRunKernels { rows::kLanes, rows::FirstVelocity, rows::TraceRun, rows::SampleRun, rows::CorrectRun }

std::atomic<int> widest{512};

AdvectionRunKernels ChooseKernels() {
#if defined(__x86_64__)
  if (widest >= 512 && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl")) {
    return ORLIX_KERNELS_OF(advection_avx512);
  }
  if (widest >= 256 && __builtin_cpu_supports("avx2")) return ORLIX_KERNELS_OF(advection_avx2);
#endif
  return ORLIX_KERNELS_OF(advection_baseline);
}

// The source stands on the velocity's lattice. A sample on a face or corner has one more array cell along that axis.
bool SameLattice(const VelocityView& velocity, const AdvectionSource& source) {
  const VecInt3D cells = velocity.component[0].dims - VecInt3D(1, 0, 0);
  VecInt3D extra;
  for (int axis = 0; axis < 3; ++axis) extra[axis] = source.offset[axis] == 0 ? 1 : 0;
  return velocity.component[1].dims == cells + VecInt3D(0, 1, 0) &&
         velocity.component[2].dims == cells + VecInt3D(0, 0, 1) && source.values.dims == cells + extra;
}

Interpolation ModeOf(AdvectionSampling sampling) {
  return sampling == AdvectionSampling::QuadraticBSpline ? Interpolation::QuadraticBSpline
         : sampling == AdvectionSampling::MonotoneCubic  ? Interpolation::MonotoneCubic
                                                         : Interpolation::Trilinear;
}

// Calls f(block, first cell) for each marked block of cells.
template <class F>
void ForEachBlock(std::uint32_t blocks, int lanes, int count, F&& f) {
  for (; blocks != 0; blocks &= blocks - 1) {
    const int block = __builtin_ctz(blocks);
    f(1u << block, std::min(block * lanes, count - lanes));
  }
}

double CorrectCell(const MacCormackRow& row, int l, double back) {
  const double source = row.source[l], forward = row.forward[l];
  const std::int32_t cell = row.traced[l];
  if (cell == kMovedCell) return forward;
  if (cell == kSolidCell) return row.strength * source;
  const double* p = row.grid.data + cell;
  const std::int64_t nx = row.grid.dims.x, slab = row.grid.slab;
  double low = p[0], high = p[0];
  for (const std::int64_t corner : {std::int64_t(1), nx, nx + 1, slab, slab + 1, slab + nx, slab + nx + 1}) {
    low = p[corner] < low ? p[corner] : low;
    high = high < p[corner] ? p[corner] : high;
  }
  const double corrected = forward + row.strength * (source - back);
  return corrected < low ? low : high < corrected ? high : corrected;
}

constexpr int kWidestBlock = 8;

// Each row of a box becomes the hull of the rows up to reach away along y (axis 1) or z.
void WidenAlong(RowSpans& rows, const VecInt3D& n, const VecInt3D& low, const VecInt3D& high, int axis, int reach,
                WorkerPool& pool) {
  const RowSpans before = rows;
  ParallelRange(pool, low.z, high.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = low.y; j < high.y; ++j) {
        const int at = axis == 1 ? j : k, stride = axis == 1 ? 1 : n.y, row = k * n.y + j;
        RowSpan hull{n.x - 1, n.x - 1};
        for (int a = std::max(at - reach, 0); a <= std::min(at + reach, n[axis] - 1); ++a) {
          hull.Include(before[static_cast<std::size_t>(row + (a - at) * stride)]);
        }
        rows[static_cast<std::size_t>(row)] = hull;
      }
    }
  });
}

}  // namespace

void LimitAdvectionVectors(int bits) { widest = bits; }

RowSpans Widened(const RowSpans& rows, const VecInt3D& n, const VecInt3D& reach, WorkerPool& pool) {
  VecInt3D low = n, high;
  for (int k = 0; k < n.z; ++k) {
    for (int j = 0; j < n.y; ++j) {
      if (rows[static_cast<std::size_t>(k) * n.y + j].IsEmpty()) continue;
      low = Min(low, VecInt3D(0, j, k)), high = Max(high, VecInt3D(0, j + 1, k + 1));
    }
  }
  low = Max(low - reach, VecInt3D()), high = Min(high + reach, n);
  RowSpans wide = rows;
  WidenAlong(wide, n, low, high, 1, reach.y, pool);
  WidenAlong(wide, n, low, high, 2, reach.z, pool);
  for (RowSpan& span : wide) {
    if (span.IsEmpty()) continue;
    span = {std::max(span.first - reach.x, 1), std::min(span.last + reach.x, n.x - 1)};
    // Cells that don't fill a block are traced one by one, each for as long as a block takes.
    span.first = std::max(std::min(span.first, span.last - kWidestBlock), 1);
    span.last = std::min(std::max(span.last, span.first + kWidestBlock), n.x - 1);
  }
  return wide;
}

std::vector<int> LayerShares(std::span<const AdvectionPass> passes, int workers) {
  constexpr std::int64_t kRowCost = 4;   // what a row costs beside its cells, in cells
  std::vector<std::int64_t> upTo = {0};  // the cost of a layer and all below it
  for (int k = 1;; ++k) {
    std::int64_t cost = 0;
    for (const AdvectionPass& pass : passes) {
      for (int j = 1; k < pass.dims().z - 1 && j < pass.dims().y - 1; ++j) {
        const RowSpan reached = pass.Reached(j, k);
        cost += kRowCost + (reached.IsEmpty() ? 0 : reached.last - reached.first);
      }
    }
    if (cost == 0) break;
    upTo.push_back(upTo.back() + cost);
  }
  std::vector<int> ends = {1};
  for (int share = 1; share <= workers; ++share) {
    const auto last = std::ranges::lower_bound(upTo, upTo.back() * share / workers);
    ends.push_back(std::max(ends.back(), static_cast<int>(last - upTo.begin()) + 1));
  }
  return ends;
}

// Each stage of an integrator is a mean of velocities, so that no point moves further than the top speed takes it.
VecInt3D FurthestReach(const AdvectionField& field, AdvectionSampling sampling, const VecInt3D& n, WorkerPool& pool) {
  // A trilinear sample reaches less than a cell; the clamp to the domain adds a thousandth. The others reach two, and
  // one more where points beside the array are sampled or moved.
  double spread = sampling == AdvectionSampling::Trilinear && field.solid.HasData() ? 1.01 : 3;
  if (field.solid.HasData() && !field.bricks->IsEmpty()) {
    spread += field.bricks->depth() / static_cast<double>(field.cellSize) + 1;
  }
  VecInt3D reach;
  for (int axis = 0; axis < 3; ++axis) {
    const double cells = std::fabs(field.Step()) * LargestMagnitude(field.velocity.component[axis], pool) + spread;
    reach[axis] = cells < n[axis] ? static_cast<std::int32_t>(std::ceil(cells)) - 1 : n[axis];
  }
  return reach;
}

AdvectionPass::AdvectionPass(const AdvectionField& field, const AdvectionSource& source, const RowSpans& reached)
    : field_(field),
      source_(source),
      blocks_(IsKnown(field.integrator) && SameLattice(field.velocity, source)),
      kernels_(ChooseKernels()),
      reached_(reached) {}

// One cell, from its start to its source cell.
void AdvectionPass::TraceCell(AdvectionRun& run, int l) const {
  Vec3D point = field_.Trace({run.start.x + l, run.start.y, run.start.z});
  const std::uint64_t bit = std::uint64_t(1) << l;
  run.moved = field_.Resolve(point) ? run.moved | bit : run.moved & ~bit;
  for (int axis = 0; axis < 3; ++axis) run.place[axis][l] = point[axis];
  const VecInt3D n = source_.values.dims;
  const Vec3D at = point - source_.offset;
  run.cell[l] = static_cast<std::int32_t>(
      source_.values.Index(LinearAxis(at.x, n.x).i, LinearAxis(at.y, n.y).i, LinearAxis(at.z, n.z).i));
}

void AdvectionPass::Trace(AdvectionRun& run) const {
  run.start = Vec3D(run.begin, run.j, run.k) + source_.offset;
  run.again = run.near = 0, run.moved = 0;
  if (!InBlocks(run)) {
    for (int l = 0; l < run.count; ++l) TraceCell(run, l);
    return;
  }
  kernels_.firstVelocity(field_.velocity, source_.offset, run);
  kernels_.trace(field_, source_, run);
  ForEachBlock(run.near, kernels_.lanes, run.count, [&](std::uint32_t block, int first) {
    for (int l = first; l < first + kernels_.lanes; ++l) {
      if (field_.bricks->Touches({run.place[0][l], run.place[1][l], run.place[2][l]})) run.again |= block;
    }
  });
  ForEachBlock(run.again, kernels_.lanes, run.count, [&](std::uint32_t, int first) {
    for (int l = first; l < first + kernels_.lanes; ++l) TraceCell(run, l);
  });
}

void AdvectionPass::SampleCell(const AdvectionSource& source, AdvectionRun& run, int l) const {
  const Vec3D at = Vec3D(run.place[0][l], run.place[1][l], run.place[2][l]) - source.offset;
  run.value[l] = SampleGrid(source.values, at.x, at.y, at.z, ModeOf(source.sampling));
}

void AdvectionPass::Sample(const AdvectionSource& source, AdvectionRun& run) const {
  if (!InBlocks(run)) {
    for (int l = 0; l < run.count; ++l) SampleCell(source, run, l);
    return;
  }
  kernels_.sample(source, run);
  ForEachBlock(run.again, kernels_.lanes, run.count, [&](std::uint32_t, int first) {
    for (int l = first; l < first + kernels_.lanes; ++l) SampleCell(source, run, l);
  });
}

void AdvectionPass::Correct(const MacCormackRow& row, AdvectionRun& run) const {
  if (run.count >= kernels_.lanes) return kernels_.correct(row, run);
  for (int l = 0; l < run.count; ++l) row.result[l] = CorrectCell(row, l, run.value[l]);
}

}  // namespace orlix
