#pragma once
// Conjugate gradients with a modified incomplete Cholesky preconditioner of level 0 (Bridson 2015, ch. 5.3).

#include "fluids/pressure/PressureSolver.h"

namespace orlix {

class Grid_CGSolver final : public PressureSolver {
 public:
  // rhs holds the residual afterwards.
  PressureOutcome Solve(const PressureSystem& system, const PressureSettings& settings, const PressureTools& tools,
                        double* rhs, double* pressure) override;
};

}  // namespace orlix
