#pragma once
// The modified incomplete Cholesky factor of level 0 of a pressure system (Bridson 2015, ch. 5.3). On this lattice no
// two neighbours of a cell are neighbours, so that the factor has the matrix's pattern and only its diagonal is new:
// the entry of row c and column n is A(c, n) inverse(n).

#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct CholeskyLimits {
  double minDiagonalRatio = 0.25;       // a smaller pivot gives way to the matrix's diagonal
  double modificationParameter = 0.97;  // share of the dropped entries that the diagonal takes
};

// inverse: one over the factor's diagonal, 0 for a cell without an equation; written for all cells.
void FactorModifiedCholesky(const PressureSystem& system, const CholeskyLimits& limits, WorkerPool& pool,
                            double* inverse);

// z = (L L^T)^-1 r. Cells of the outermost layer are left alone.
void ApplyModifiedCholesky(const PressureSystem& system, const double* inverse, const double* r, WorkerPool& pool,
                           double* z);

}  // namespace orlix
