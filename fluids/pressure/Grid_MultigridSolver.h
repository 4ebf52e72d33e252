#pragma once
// Conjugate gradients preconditioned with one multigrid V-cycle in single precision (McAdams, Sifakis and Teran 2010),
// held to the limits of Grid_CGSolver. In regions without a fixed pressure the mean of the right side is left out,
// since no pressure can answer it.

#include <memory>

#include "fluids/pressure/Grid_CGSolver.h"

namespace orlix {

class ClosedRegions;
class MultigridCycle;

class Grid_MultigridSolver final : public Grid_CGSolver {
 public:
  Grid_MultigridSolver(BaseList2D* solverObject, OrlixScene& ownerScene);
  ~Grid_MultigridSolver() override;

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  PressureOutcome Solve(const PressureSystem& system) override;

  // Of the system's weights and dims: while it stays and isn't 0, what was built from them is kept between steps.
  std::uint64_t revision = 0;

 private:
  void Forget();

  std::unique_ptr<MultigridCycle> cycle_;
  std::unique_ptr<ClosedRegions> regions_;
  std::uint64_t builtFor_ = 0;
  VecInt3D builtDims_;
};

}  // namespace orlix
