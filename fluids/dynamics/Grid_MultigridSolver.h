#pragma once
// Conjugate gradients preconditioned with one multigrid V-cycle in single precision (McAdams, Sifakis and Teran 2010),
// held to the limits of Grid_CGSolver.

#include "fluids/dynamics/Grid_CGSolver.h"

namespace orlix {

class Grid_MultigridSolver final : public Grid_CGSolver {
 public:
  using Grid_CGSolver::Grid_CGSolver;
  PressureOutcome Solve(const PressureSystem& system) override;
};

}  // namespace orlix
