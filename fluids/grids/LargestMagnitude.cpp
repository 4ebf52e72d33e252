#include "fluids/grids/LargestMagnitude.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kLanes = 32;  // of vectors that don't wait for each other

// By lanes, so that the loop vectorises: a maximum doesn't depend on the order.
ORLIX_MULTIVERSION double Largest(const double* values, std::int64_t count) {
  std::array<double, kLanes> most{};
  std::int64_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (int lane = 0; lane < kLanes; ++lane) {
      const double v = std::fabs(values[i + lane]);
      most[lane] = most[lane] < v ? v : most[lane];
    }
  }
  for (; i < count; ++i) most[0] = std::max(most[0], std::fabs(values[i]));
  return *std::max_element(most.begin(), most.end());
}

}  // namespace

double LargestMagnitude(const GridView<const double>& values, WorkerPool& pool) {
  std::array<double, WorkerPool::kMaxWorkers> most{};
  ParallelRange(pool, 0, values.dims.z, [&](int k0, int k1, int worker) {
    most[static_cast<std::size_t>(worker)] = Largest(&values(0, 0, k0), values.slab * (k1 - k0));
  });
  return *std::max_element(most.begin(), most.end());
}

}  // namespace orlix
