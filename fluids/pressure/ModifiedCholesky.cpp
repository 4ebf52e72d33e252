#include "fluids/pressure/ModifiedCholesky.h"

#include <cmath>

#include "fluids/grids/RowPipeline.h"
#include "fluids/pressure/PressureRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// Entries towards cells that have no row of their own are no part of a column; they lie on the high border, or are
// masked.
struct RowPresence {
  const PressureSystem& system;

  double X(int i, std::int64_t c) const { return Has(c + 1, i + 1 < system.dims.x - 1); }
  double Y(int j, std::int64_t c) const { return Has(c + system.row(), j + 1 < system.dims.y - 1); }
  double Z(int k, std::int64_t c) const { return Has(c + system.slab(), k + 1 < system.dims.z - 1); }

 private:
  double Has(std::int64_t neighbour, bool inside) const {
    return inside && (!system.equation || system.equation[neighbour]) ? 1.0 : 0.0;
  }
};

template <class W>
class Factorisation {
 public:
  Factorisation(const PressureSystem& system, const GridView<const W> (&faces)[3], const CholeskyLimits& limits,
                double* inverse)
      : system_(system), faces_(faces), limits_(limits), inverse_(inverse) {}

  void Row(int j, int k) {
    const FaceRow<W> row(faces_, j, k), rowBelow(faces_, j - 1, k), layerBelow(faces_, j, k - 1);
    const std::int64_t start = system_.slab() * k + system_.row() * j;
    for (int i = 1; i < system_.dims.x - 1; ++i) {
      const std::int64_t c = start + i;
      inverse_[c] = 0;
      if (system_.equation && !system_.equation[c]) continue;
      const double s = system_.scale;
      const double xl = row.x[i] * s, yl = row.yLow[i] * s, zl = row.zLow[i] * s;
      const double diagonal = ((((row.x[i + 1] * s + xl) + row.yHigh[i] * s) + yl) + row.zHigh[i] * s) + zl;
      if (diagonal == 0) continue;
      double pivot = diagonal;
      const std::int64_t z = c - system_.slab(), y = c - system_.row(), x = c - 1;
      Eliminate(pivot, zl, inverse_[z], layerBelow.x[i + 1] * s * has_.X(i, z), layerBelow.yHigh[i] * s * has_.Y(j, z));
      Eliminate(pivot, yl, inverse_[y], rowBelow.x[i + 1] * s * has_.X(i, y), rowBelow.zHigh[i] * s * has_.Z(k, y));
      Eliminate(pivot, xl, inverse_[x], row.yHigh[i - 1] * s * has_.Y(j, x), row.zHigh[i - 1] * s * has_.Z(k, x));
      if (pivot < limits_.minDiagonalRatio * diagonal) pivot = diagonal;
      inverse_[c] = 1 / std::sqrt(pivot);
    }
  }

 private:
  // Takes a column off the pivot: the square of its entry, and its share of what has no place in this row.
  void Eliminate(double& pivot, double coefficient, double columnInverse, double dropped1, double dropped2) const {
    const double entry = coefficient * columnInverse;
    pivot -= entry * entry;
    pivot -= limits_.modificationParameter * entry * (dropped1 * columnInverse + dropped2 * columnInverse);
  }

  const PressureSystem& system_;
  const GridView<const W> (&faces_)[3];
  const CholeskyLimits limits_;
  double* inverse_;
  const RowPresence has_{system_};
};

// x(c) = (r(c) - L(c, -z) x(-z) - L(c, -y) x(-y) - L(c, -x) x(-x)) inverse(c). The first two terms of a row are formed
// at once; only the last one is a recurrence.
template <class W>
ORLIX_INLINE void ForwardRow(const PressureSystem& system, const FaceRow<W>& faces, const double* inverse,
                             const double* r, double* __restrict x) {
  const std::int64_t row = system.row(), slab = system.slab();
  const int nx = system.dims.x;
  const double s = system.scale;
  const double *inverseZ = inverse - slab, *inverseY = inverse - row, *xz = x - slab, *xy = x - row;
  for (int i = 1; i < nx - 1; ++i) {
    const double zl = faces.zLow[i] * s * inverseZ[i], yl = faces.yLow[i] * s * inverseY[i];
    x[i] = (r[i] + zl * xz[i]) + yl * xy[i];
  }
  double last = 0;
  for (int i = 1; i < nx - 1; ++i) {
    const double xl = faces.x[i] * s * inverse[i - 1];
    x[i] = last = (x[i] + xl * last) * inverse[i];
  }
}

// x(c) = (x(c) - L(+x, c) x(+x) - L(+y, c) x(+y) - L(+z, c) x(+z)) inverse(c): the recurrence comes first.
template <class W>
ORLIX_INLINE void BackwardRow(const PressureSystem& system, const FaceRow<W>& faces, const double* inverse,
                              double* __restrict x) {
  const std::int64_t row = system.row(), slab = system.slab();
  const int nx = system.dims.x;
  const double s = system.scale;
  double last = 0;
  for (int i = nx - 2; i > 0; --i) {
    const double own = inverse[i];
    double v = x[i] + faces.x[i + 1] * s * own * last;
    v += faces.yHigh[i] * s * own * x[i + row];
    v += faces.zHigh[i] * s * own * x[i + slab];
    x[i] = last = v * own;
  }
}

template <class W>
ORLIX_INLINE void ForwardRows(const PressureSystem& system, const GridView<const W> (&faces)[3], int k, int from,
                              int to, const double* inverse, const double* r, double* x) {
  for (int j = from; j < to; ++j) {
    const std::int64_t at = system.slab() * k + system.row() * j;
    ForwardRow(system, FaceRow<W>(faces, j, k), inverse + at, r + at, x + at);
  }
}

template <class W>
ORLIX_INLINE void BackwardRows(const PressureSystem& system, const GridView<const W> (&faces)[3], int k, int from,
                               int to, const double* inverse, double* x) {
  for (int j = to - 1; j >= from; --j) {
    const std::int64_t at = system.slab() * k + system.row() * j;
    BackwardRow(system, FaceRow<W>(faces, j, k), inverse + at, x + at);
  }
}

ORLIX_MULTIVERSION void ForwardBand(const PressureSystem& system, int k, int from, int to, const double* inverse,
                                    const double* r, double* x) {
  if (system.weight[0].data)
    ForwardRows(system, system.weight, k, from, to, inverse, r, x);
  else
    ForwardRows(system, system.share, k, from, to, inverse, r, x);
}

ORLIX_MULTIVERSION void BackwardBand(const PressureSystem& system, int k, int from, int to, const double* inverse,
                                     double* x) {
  if (system.weight[0].data)
    BackwardRows(system, system.weight, k, from, to, inverse, x);
  else
    BackwardRows(system, system.share, k, from, to, inverse, x);
}

}  // namespace

void FactorModifiedCholesky(const PressureSystem& system, const CholeskyLimits& limits, WorkerPool& pool,
                            double* inverse) {
  ZeroBorder(system.dims, inverse);
  WithWeights(system, [&](const auto& faces) {
    Factorisation factorisation(system, faces, limits, inverse);
    PipelineRows(pool, system.dims.y, system.dims.z, false, [&](int k, int from, int to) {
      for (int j = from; j < to; ++j) factorisation.Row(j, k);
    });
  });
}

void ApplyModifiedCholesky(const PressureSystem& system, const double* inverse, const double* r, WorkerPool& pool,
                           double* z) {
  PipelineRows(pool, system.dims.y, system.dims.z, false,
               [&](int k, int from, int to) { ForwardBand(system, k, from, to, inverse, r, z); });
  PipelineRows(pool, system.dims.y, system.dims.z, true,
               [&](int k, int from, int to) { BackwardBand(system, k, from, to, inverse, z); });
}

}  // namespace orlix
