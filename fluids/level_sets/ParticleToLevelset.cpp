#include "fluids/level_sets/ParticleToLevelset.h"

#include <cassert>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kPerCell = 1 / (0.5 * 0.5 * 0.5);  // particles of a full cell that stand half a cell apart

// f(cell, entries) for each occupied cell, on the pool.
template <class F>
void ForCells(WorkerPool& pool, const ParticleSort& sort, F&& f) {
  const auto cells = sort.Cells(), begins = sort.CellBegins(), entries = sort.AllEntries();
  ParallelRange(pool, 0, static_cast<int>(cells.size()), [&](int from, int to, int) {
    for (auto n = static_cast<std::size_t>(from); n < static_cast<std::size_t>(to); ++n) {
      const auto first = static_cast<std::size_t>(begins[n]), last = static_cast<std::size_t>(begins[n + 1]);
      f(cells[n], entries.subspan(first, last - first));
    }
  });
}

ORLIX_MULTIVERSION void ReachInRow(const double* low, const double* lowNext, const double* high, const double* highNext,
                                   int count, double reach, double* values) {
  for (int i = 0; i < count; ++i) {
    const double sum =
        low[i] + low[i + 1] + lowNext[i] + lowNext[i + 1] + high[i] + high[i + 1] + highNext[i] + highNext[i + 1];
    values[i] = (values[i] <= reach) & (sum * 0.125 < 0) ? -reach : values[i];
  }
}

}  // namespace

void ParticleToLevelset::MarkCells(WorkerPool& pool, const ParticleSort& sort,
                                   const GridView<std::uint8_t>& mask) const {
  ForCells(pool, sort, [&](std::int32_t cell, std::span<const std::int32_t> entries) {
    std::int32_t counted = 0;
    // Most cells are decided by their first particles.
    for (std::size_t n = 0; n < entries.size() && counted <= minimumCount; ++n) {
      const ParticleSort::Place place = sort.PlaceOf(entries[n]);
      const ParticleList& list = *sort.groups()[static_cast<std::size_t>(place.group)]->list(sort.kind());
      counted += (list.Flags(place.index) & ParticleFlag::Inserted) == 0;
    }
    mask[cell] = counted > minimumCount;
  });
}

void ParticleToLevelset::SubtractDensities(WorkerPool& pool, const ParticleSort& sort, ScalarGrid& target) const {
  ForCells(pool, sort, [&](std::int32_t cell, std::span<const std::int32_t> entries) {
    double sum = 0;
    for (const std::int32_t entry : entries) sum += sort.ParticleAt(entry).GetRealOr(PP::Density, 1);
    target[cell] -= sum;
  });
}

void ParticleToLevelset::Build(WorkerPool& pool, ScratchPool& scratch, const ParticleSort& sort,
                               const GridView<const double>& solid, ScalarGrid& target) const {
  assert(target.dims == sort.space().dims);
  double reach = kPerCell * iso;
  if (mode == Mass) {
    target.Fill(reach, &pool);
    SubtractDensities(pool, sort, target);
  } else {
    reach = 0.5 * target.space.cellSize;
    const auto mask = scratch.Take<std::uint8_t>(target.dims);
    const std::int64_t slab = mask->slab;
    ParallelRange(pool, 0, target.dims.z,
                  [&](int from, int to, int) { std::fill(mask->data + from * slab, mask->data + to * slab, 0); });
    MarkCells(pool, sort, *mask);
    LevelSetFromMask(pool, *mask, target, kFar, true);
  }
  if (solid.data) ReachIntoSolids(pool, solid, reach, target);
}

void ReachIntoSolids(WorkerPool& pool, const GridView<const double>& solid, double reach, ScalarGrid& target) {
  assert(solid.dims == target.dims + VecInt3D(1, 1, 1));
  ParallelRange(pool, 0, target.dims.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < target.dims.y; ++j) {
        ReachInRow(&solid(0, j, k), &solid(0, j + 1, k), &solid(0, j, k + 1), &solid(0, j + 1, k + 1), target.dims.x,
                   reach, &target(0, j, k));
      }
    }
  });
}

}  // namespace orlix
