#pragma once
// Conjugate gradients preconditioned with one multigrid V-cycle in single precision (McAdams, Sifakis and Teran 2010),
// held to the limits of Grid_CGSolver.

#include "fluids/pressure/MultigridCycle.h"
#include "fluids/pressure/PressureSolver.h"

namespace orlix {

class Grid_MultigridSolver final : public PressureSolver {
 public:
  PressureOutcome Solve(const PressureSystem& system, const PressureSettings& settings, const PressureTools& tools,
                        double* rhs, double* pressure) override;
};

}  // namespace orlix
