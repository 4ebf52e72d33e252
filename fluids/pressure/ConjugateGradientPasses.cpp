#include "fluids/pressure/ConjugateGradientPasses.h"

#include <algorithm>

#include "fluids/pressure/PairedRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A row of the matrix adds its terms in the order of the columns: -z, -y, -x, the diagonal, +x, +y, +z; the diagonal
// adds its faces in the order +x, -x, +y, -y, +z, -z.
template <class W>
ORLIX_INLINE void MultiplyRow(const FaceRow<W>& faces, double scale, const double* below, const double* s,
                              const double* above, std::int64_t row, int nx, double* __restrict product) {
  for (int i = 1; i < nx - 1; ++i) {
    const double xl = faces.x[i] * scale, xh = faces.x[i + 1] * scale;
    const double yl = faces.yLow[i] * scale, yh = faces.yHigh[i] * scale;
    const double zl = faces.zLow[i] * scale, zh = faces.zHigh[i] * scale;
    const double diagonal = ((((xh + xl) + yh) + yl) + zh) + zl;
    product[i] = ((
        (((diagonal * s[i] - ((zl * below[i] + yl * s[i - row]) + xl * s[i - 1])) - xh * s[i + 1]) - yh * s[i + row]) -
        zh * above[i]));
  }
}

ORLIX_INLINE void KeepEquations(const std::uint8_t* equation, int nx, double* product) {
  for (int i = 1; i < nx - 1; ++i) product[i] = equation[i] ? product[i] : 0.0;
}

template <class W>
ORLIX_INLINE double MultiplyLayer(const PressureSystem& system, const GridView<const W> (&faces)[3], int k,
                                  const double* below, const double* middle, const double* above, double* product) {
  const int nx = system.dims.x;
  const std::int64_t row = system.row();
  EightSums dot;
  for (int j = 1; j < system.dims.y - 1; ++j) {
    const std::int64_t at = j * row;
    const FaceRow<W> rows(faces, j, k);
    MultiplyRow(rows, system.scale, below + at, middle + at, above + at, row, nx, product + at);
    if (system.equation) KeepEquations(system.equation + k * system.slab() + at, nx, product + at);
    dot.Add(middle + at + 1, product + at + 1, nx - 2);
  }
  return dot.Total();
}

ORLIX_MULTIVERSION double MultiplyLayerOfShares(const PressureSystem& system, int k, const double* below,
                                                const double* middle, const double* above, double* product) {
  return MultiplyLayer(system, system.share, k, below, middle, above, product);
}
ORLIX_MULTIVERSION double MultiplyLayerOfWeights(const PressureSystem& system, int k, const double* below,
                                                 const double* middle, const double* above, double* product) {
  return MultiplyLayer(system, system.weight, k, below, middle, above, product);
}

struct SearchStep {
  double alpha, beta;
  bool first;
};

template <class Z>
ORLIX_INLINE void NewSearchRow(const Z* z, double zScale, const SearchStep& step, const double* search, double* result,
                               int nx, double* target) {
  if (step.first) {
    for (int i = 1; i < nx - 1; ++i) target[i] = z[i] * zScale;
    return;
  }
  if (result) {
    for (int i = 1; i < nx - 1; ++i) result[i] += step.alpha * search[i];
  }
  for (int i = 1; i < nx - 1; ++i) target[i] = z[i] * zScale + step.beta * search[i];
}

// A row of floats, joined from its pairs. joined: room for it.
ORLIX_INLINE const float* JoinedRow(const PreconditionedVector& z, const VecInt3D& dims, int j, int k, float* joined) {
  const std::int64_t at = k * z.slab + j * z.row;
  const int odd = (j + k + 1) & 1;
  JoinPairs(z.floats[odd] + at, z.floats[1 - odd] + at, (dims.x - 1) / 2, joined);
  return joined;
}

// target: the layer of search itself, or a copy that leaves result and search alone.
ORLIX_MULTIVERSION void NewSearchLayer(const PressureSystem& system, const PreconditionedVector& z, int k,
                                       const SearchStep& step, const double* search, double* result, double* target,
                                       float* joined) {
  for (int j = 1; j < system.dims.y - 1; ++j) {
    const std::int64_t at = j * system.row();
    double* resultRow = result ? result + at : nullptr;
    if (z.doubles) {
      NewSearchRow(z.doubles + k * system.slab() + at, 1.0, step, search + at, resultRow, system.dims.x, target + at);
    } else {
      NewSearchRow(JoinedRow(z, system.dims, j, k, joined), z.scale, step, search + at, resultRow, system.dims.x,
                   target + at);
    }
  }
}

ORLIX_MULTIVERSION void UpdateResidualLayer(const VecInt3D& dims, double alpha, const double* product, double* residual,
                                            double* squared, double* largest) {
  EightSums sums;
  EightMaxima maxima;
  for (int j = 1; j < dims.y - 1; ++j) {
    double* __restrict r = residual + std::int64_t(j) * dims.x;
    const double* p = product + std::int64_t(j) * dims.x;
    for (int i = 1; i < dims.x - 1; ++i) r[i] -= alpha * p[i];
    maxima.Add(r + 1, dims.x - 2);
    if (squared) sums.Add(r + 1, r + 1, dims.x - 2);
  }
  *largest = maxima.Largest();
  if (squared) *squared = sums.Total();
}

ORLIX_MULTIVERSION double DotLayer(const VecInt3D& dims, const double* a, const double* b) {
  EightSums sums;
  for (int j = 1; j < dims.y - 1; ++j) {
    const std::int64_t at = std::int64_t(j) * dims.x + 1;
    sums.Add(a + at, b + at, dims.x - 2);
  }
  return sums.Total();
}

ORLIX_MULTIVERSION double DotLayer(const VecInt3D& dims, const PreconditionedVector& a, int k, const double* b,
                                   float* joined) {
  EightSums sums;
  const int count = dims.x - 2;
  for (int j = 1; j < dims.y - 1; ++j) {
    const float* ar = JoinedRow(a, dims, j, k, joined) + 1;
    const double* br = b + std::int64_t(j) * dims.x + 1;
    int i = 0;
    for (; i + 8 <= count; i += 8) {
      for (int l = 0; l < 8; ++l) sums.lane[l] += (ar[i + l] * a.scale) * br[i + l];
    }
    for (int l = 0; i < count; ++i, ++l) sums.lane[l] += (ar[i] * a.scale) * br[i];
  }
  return sums.Total();
}

ORLIX_MULTIVERSION void AddScaledLayer(const VecInt3D& dims, double alpha, const double* search, double* result) {
  for (int j = 1; j < dims.y - 1; ++j) {
    const double* s = search + std::int64_t(j) * dims.x;
    double* __restrict r = result + std::int64_t(j) * dims.x;
    for (int i = 1; i < dims.x - 1; ++i) r[i] += alpha * s[i];
  }
}

ORLIX_MULTIVERSION double LargestOfLayer(const VecInt3D& dims, const double* values) {
  EightMaxima maxima;
  for (int j = 1; j < dims.y - 1; ++j) maxima.Add(values + std::int64_t(j) * dims.x + 1, dims.x - 2);
  return maxima.Largest();
}

}  // namespace

ConjugateGradientPasses::ConjugateGradientPasses(const PressureSystem& system, const ConjugateGradientVectors& vectors,
                                                 WorkerPool& pool)
    : system_(system), v_(vectors), pool_(pool), layerSums_(system.dims.z), layerMaxima_(system.dims.z) {
  halo_.resize(std::size_t(2) * pool.count() * system.slab());
}

template <class F>
void ConjugateGradientPasses::ForLayers(F&& f) {
  ParallelRange(pool_, 1, system_.dims.z - 1, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) f(k);
  });
}

double ConjugateGradientPasses::SearchAndMultiply(const PreconditionedVector& z, double alpha, double beta,
                                                  bool first) {
  const std::int64_t slab = system_.slab();
  const SearchStep step{alpha, beta, first};
  // A worker's outermost layers need the new search one layer further on, which its neighbour will overwrite in place:
  // both sides of each border are formed beforehand, in copies.
  ParallelRange(pool_, 1, system_.dims.z - 1, [&](int from, int to, int worker) {
    double* above = halo_.data() + (2 * std::int64_t(worker) + 1) * slab;
    double* below = halo_.data() + 2 * std::int64_t(worker) * slab;
    std::vector<float> joined(RowRoom());
    NewSearchLayer(system_, z, from, step, v_.search + from * slab, nullptr, below, joined.data());
    NewSearchLayer(system_, z, to - 1, step, v_.search + (to - 1) * slab, nullptr, above, joined.data());
  });
  ParallelRange(pool_, 1, system_.dims.z - 1, [&](int from, int to, int worker) {
    std::vector<float> joined(RowRoom());
    const auto update = [&](int k) {
      NewSearchLayer(system_, z, k, step, v_.search + k * slab, v_.result + k * slab, v_.search + k * slab,
                     joined.data());
    };
    update(from);
    for (int k = from; k < to; ++k) {
      if (k + 1 < to) update(k + 1);
      const double* below = k > from || k == 1 ? v_.search + (k - 1) * slab : halo_.data() + (2 * worker - 1) * slab;
      const double* above = k + 1 < to || k + 1 == system_.dims.z - 1 ? v_.search + (k + 1) * slab
                                                                      : halo_.data() + (2 * worker + 2) * slab;
      const double* middle = v_.search + k * slab;
      double* product = v_.product + k * slab;
      layerSums_[k] = system_.weight[0].data ? MultiplyLayerOfWeights(system_, k, below, middle, above, product)
                                             : MultiplyLayerOfShares(system_, k, below, middle, above, product);
    }
  });
  return SumOfLayers(layerSums_);
}

double ConjugateGradientPasses::UpdateResidual(double alpha, double* residualSquared) {
  const std::int64_t slab = system_.slab();
  ForLayers([&](int k) {
    UpdateResidualLayer(system_.dims, alpha, v_.product + k * slab, v_.residual + k * slab,
                        residualSquared ? &layerSums_[k] : nullptr, &layerMaxima_[k]);
  });
  if (residualSquared) *residualSquared = SumOfLayers(layerSums_);
  return LargestOfLayers(layerMaxima_);
}

void ConjugateGradientPasses::UpdateResult(double alpha) {
  const std::int64_t slab = system_.slab();
  ForLayers([&](int k) { AddScaledLayer(system_.dims, alpha, v_.search + k * slab, v_.result + k * slab); });
}

double ConjugateGradientPasses::DotResidual(const PreconditionedVector& z) {
  const std::int64_t slab = system_.slab();
  ParallelRange(pool_, 1, system_.dims.z - 1, [&](int from, int to, int) {
    std::vector<float> joined(RowRoom());
    for (int k = from; k < to; ++k) {
      const double* residual = v_.residual + k * slab;
      layerSums_[k] = z.doubles ? DotLayer(system_.dims, z.doubles + k * slab, residual)
                                : DotLayer(system_.dims, z, k, residual, joined.data());
    }
  });
  return SumOfLayers(layerSums_);
}

double ConjugateGradientPasses::LargestResidual() {
  const std::int64_t slab = system_.slab();
  ForLayers([&](int k) { layerMaxima_[k] = LargestOfLayer(system_.dims, v_.residual + k * slab); });
  return LargestOfLayers(layerMaxima_);
}

}  // namespace orlix
