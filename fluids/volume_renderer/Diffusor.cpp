#include "fluids/volume_renderer/Diffusor.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <vector>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kLargestSigma = 1000;  // far beyond any grid; the radius stays countable

// Adds the weighted rows to out and divides; the neighbours outside the grid are left out of the sum and of its weight.
ORLIX_MULTIVERSION void BlurRow(const double* const* rows, const double* weights, int count, double* out, int n,
                                double lower, double upper) {
  double total = 0;
  for (int r = 0; r < count; ++r) total += weights[r];
  std::fill(out, out + n, 0.0);
  for (int r = 0; r < count; ++r) {
    const double w = weights[r];
    const double* row = rows[r];
    for (int i = 0; i < n; ++i) out[i] += w * (row[i] - lower);
  }
  for (int i = 0; i < n; ++i) {
    const double v = out[i] / total + lower;
    out[i] = upper < v ? upper : v;
  }
}

ORLIX_MULTIVERSION void BlurAlongRow(const double* in, const double* weights, int radius, double* out, int n,
                                     double lower, double upper) {
  for (int i = 0; i < n; ++i) {
    const int from = std::max(-radius, -i), to = std::min(radius, n - 1 - i);
    double sum = 0, total = 0;
    for (int d = from; d <= to; ++d) sum += weights[d + radius] * (in[i + d] - lower), total += weights[d + radius];
    const double v = sum / total + lower;
    out[i] = upper < v ? upper : v;
  }
}

struct Pass {
  GridView<const double> in;
  GridView<double> out;
  const std::vector<double>& weights;
  int radius;
  double lower, upper;

  void Row(int axis, int j, int k) const {
    double* target = out.data + out.Index(0, j, k);
    const int n = in.dims.x;
    if (axis == 0) return BlurAlongRow(&in(0, j, k), weights.data(), radius, target, n, lower, upper);
    const int at = axis == 1 ? j : k, size = in.dims[axis];
    const int from = std::max(-radius, -at), to = std::min(radius, size - 1 - at);
    thread_local std::vector<const double*> rows;
    rows.clear();
    for (int d = from; d <= to; ++d) rows.push_back(axis == 1 ? &in(0, j + d, k) : &in(0, j, k + d));
    BlurRow(rows.data(), weights.data() + from + radius, to - from + 1, target, n, lower, upper);
  }
};

bool RunPass(WorkerPool& pool, const BaseThread* hostThread, const Pass& pass, int axis) {
  std::atomic<bool> whole{true};
  ParallelRange(pool, 0, pass.in.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      if (hostThread && hostThread->TestBreak()) {
        whole.store(false, std::memory_order_relaxed);
        return;
      }
      for (int j = 0; j < pass.in.dims.y; ++j) pass.Row(axis, j, k);
    }
  });
  return whole.load();
}

}  // namespace

bool Blur(WorkerPool& pool, const BaseThread* hostThread, const ScalarGrid& source, ScalarGrid& target, double sigma,
          int iterations, double lower, double upper) {
  if (iterations <= 0 || !(sigma > 0) || source.count < 1 || source.dims != target.dims) return true;
  const int radius = static_cast<int>(3 * std::min(sigma, kLargestSigma));
  std::vector<double> weights(2 * radius + 1);
  double total = 0;
  for (int i = 0; i <= 2 * radius; ++i) {
    weights[i] = std::exp(-double(i - radius) * (i - radius) / (sigma * sigma));
    total += weights[i];
  }
  for (double& w : weights) w /= total;
  try {
    Grid<double> first(source.dims, kGridScratch), second(source.dims, kGridScratch);
    for (int n = 0; n < iterations; ++n) {
      const GridView<const double> input(n == 0 ? source : target);
      if (!RunPass(pool, hostThread, {input, first, weights, radius, lower, upper}, 0)) return false;
      if (!RunPass(pool, hostThread, {first, second, weights, radius, lower, upper}, 1)) return false;
      if (!RunPass(pool, hostThread, {second, target, weights, radius, lower, upper}, 2)) return false;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

}  // namespace orlix
