#include "fluids/level_sets/ParticleToLevelset.h"

#include <cassert>
#include <vector>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

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

void ParticleToLevelset::FillHoles(WorkerPool& pool, const GridView<std::uint8_t>& mask,
                                   const GridView<const double>& solid) const {
  const VecInt3D n = mask.dims;
  const auto inSolid = [&](int i, int j, int k) {
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) sum += solid(i + (corner & 1), j + (corner >> 1 & 1), k + (corner >> 2));
    return sum < 0;
  };
  std::vector<std::vector<std::int64_t>> holes(std::size_t(pool.count()));
  ParallelRange(pool, 1, n.z - 1, [&](int from, int to, int worker) {
    for (int k = from; k < to; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const std::uint8_t *m = &mask(0, j, k), *below = m - n.x, *above = m + n.x, *before = m - mask.slab,
                           *behind = m + mask.slab;
        for (int i = 1; i < n.x - 1; ++i) {
          if (m[i] || !(m[i - 1] | m[i + 1] | below[i] | above[i] | before[i] | behind[i])) continue;
          const auto closed = [&](std::uint8_t liquid, int di, int dj, int dk) {
            return liquid || (solid.data && inSolid(i + di, j + dj, k + dk));
          };
          if (closed(m[i - 1], -1, 0, 0) && closed(m[i + 1], 1, 0, 0) && closed(below[i], 0, -1, 0) &&
              closed(above[i], 0, 1, 0) && closed(before[i], 0, 0, -1) && closed(behind[i], 0, 0, 1)) {
            holes[std::size_t(worker)].push_back(mask.slab * k + std::int64_t(n.x) * j + i);
          }
        }
      }
    }
  });
  for (const auto& found : holes) {
    for (const std::int64_t cell : found) mask[cell] = 1;
  }
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
  double reach = Reach();
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
    if (fillHoles) FillHoles(pool, *mask, solid);
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
