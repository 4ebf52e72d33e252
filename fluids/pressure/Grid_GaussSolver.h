#pragma once
// Gauss-Seidel relaxation with a fixed number of sweeps in the order of the cells, without a test of the residual.

#include "fluids/pressure/PressureSolver.h"

namespace orlix {

class Grid_GaussSolver final : public PressureSolver {
 public:
  // The outcome has the sweeps that ran: fewer than asked for only when it was stopped.
  PressureOutcome Solve(const PressureSystem& system, const PressureSettings& settings, const PressureTools& tools,
                        double* rhs, double* pressure) override;
};

}  // namespace orlix
