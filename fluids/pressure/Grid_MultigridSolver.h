#pragma once
// Conjugate gradients preconditioned with one multigrid V-cycle in single precision (McAdams, Sifakis and Teran 2010),
// held to the limits of Grid_CGSolver.

#include "fluids/pressure/MultigridCycle.h"
#include "fluids/pressure/PressureSolver.h"

namespace orlix {

class Grid_MultigridSolver final : public PressureSolver {
 public:
  // Levels are kept for the next solve while the system's revision stays.
  PressureOutcome Solve(const PressureSystem& system, const PressureSettings& settings, const PressureTools& tools,
                        double* rhs, double* pressure) override;
  void Forget() override;

 private:
  std::unique_ptr<MultigridCycle> cycle_;
  std::uint64_t builtFor_ = 0;
  VecInt3D builtDims_;
};

}  // namespace orlix
