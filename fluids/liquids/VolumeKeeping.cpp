#include "fluids/liquids/VolumeKeeping.h"

#include <algorithm>
#include <vector>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr float kDeadZone = 0.02f;                  // of a deviation that counts for nothing
constexpr float kMostDense = 1, kMostThin = 0.25f;  // the largest deviations that count for more
constexpr int kSums = 3;                            // particles, room for them, cells of air

// Sums over the nine rows around a row, for each i.
struct RowSums {
  explicit RowSums(int n) : values(std::size_t(kSums * n), 0.0f), length(n) {}
  float* of(int sum) { return values.data() + std::size_t(sum) * std::size_t(length); }
  std::vector<float> values;
  int length;
};

ORLIX_MULTIVERSION void AddRow(const float* __restrict count, const double* __restrict phi,
                               const float* __restrict open, int n, float* __restrict particles, float* __restrict room,
                               float* __restrict air) {
  for (int i = 0; i < n; ++i) {
    particles[i] += count[i];
    room[i] += open[i];
    air[i] += (phi[i] >= 0) & (open[i] > 0) ? 1.0f : 0.0f;
  }
}

ORLIX_MULTIVERSION void SourceRow(const float* __restrict particles, const float* __restrict room,
                                  const float* __restrict air, const double* __restrict phi, int n, double rate,
                                  float full, double* __restrict source) {
  for (int i = 1; i < n - 1; ++i) {
    const float there = particles[i - 1] + particles[i] + particles[i + 1];
    const float wanted = full * (room[i - 1] + room[i] + room[i + 1]);
    const float change = wanted > 0 ? there / wanted - 1 : 0;
    const float more = change - kDeadZone, less = change + kDeadZone;
    const float dense = more > 0 ? (more < kMostDense ? more : kMostDense) : 0;
    const float thin = less < 0 ? (less > -kMostThin ? less : -kMostThin) : 0;
    const float counted = dense + (air[i - 1] + air[i] + air[i + 1] > 0 ? 0 : thin);
    source[i] += phi[i] < 0 ? rate * double(counted) : 0;
  }
}

void FillCounts(const ParticleSort& sort, const GridView<float>& counts, WorkerPool& pool) {
  ParallelRange(pool, 0, counts.dims.z, [&](int k0, int k1, int) {
    std::fill(counts.data + counts.slab * k0, counts.data + counts.slab * k1, 0.0f);
  });
  const auto cells = sort.Cells(), begins = sort.CellBegins();
  ParallelRange(pool, 0, static_cast<int>(cells.size()), [&](int from, int to, int) {
    for (auto n = static_cast<std::size_t>(from); n < static_cast<std::size_t>(to); ++n) {
      counts[cells[n]] = static_cast<float>(begins[n + 1] - begins[n]);
    }
  });
}

}  // namespace

void AddVolumeSource(const VolumeKeeping& keeping, const ParticleSort& sort, const GridView<const double>& phi,
                     const GridView<const float>& open, ScratchPool& scratch, const GridView<double>& source,
                     WorkerPool& pool) {
  const VecInt3D n = phi.dims;
  if (!(keeping.rate > 0) || n.x < 3 || n.y < 3 || n.z < 3 || sort.AllEntries().empty()) return;
  const auto lease = scratch.Take<float>(n);
  const GridView<float> counts(*lease);
  FillCounts(sort, counts, pool);
  ParallelRange(pool, 1, n.z - 1, [&](int k0, int k1, int) {
    RowSums sums(n.x);
    for (int k = k0; k < k1; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const double* row = &phi(0, j, k);
        if (std::none_of(row, row + n.x, [](double v) { return v < 0; })) continue;
        std::fill(sums.values.begin(), sums.values.end(), 0.0f);
        for (int near = 0; near < 9; ++near) {
          const int b = j + near % 3 - 1, c = k + near / 3 - 1;
          AddRow(&counts(0, b, c), &phi(0, b, c), &open(0, b, c), n.x, sums.of(0), sums.of(1), sums.of(2));
        }
        SourceRow(sums.of(0), sums.of(1), sums.of(2), row, n.x, keeping.rate, float(keeping.particles),
                  &source(0, j, k));
      }
    }
  });
}

}  // namespace orlix
