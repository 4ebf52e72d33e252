#pragma once
// Conjugate gradients with a modified incomplete Cholesky preconditioner of level 0 (Bridson 2015, ch. 5.3), from a
// zero start.

#include "fluids/pressure/PressureSystem.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

// The share of the largest right side at which a solve may stop, for the tolerance setting (parameter 1022).
double ToleranceFactor(double setting);

class Grid_CGSolver : public iObject {
 public:
  using iObject::iObject;

  bool ReadParameters() override;
  // Leases rhs and result, both 0. Not active without an owner.
  void Prepare(iBase* caller = nullptr) override;
  void ResetSimulation() override { Release(); }
  void ClearState(bool deactivate) override;

  // result solves the system for rhs, which holds the residual afterwards.
  virtual PressureOutcome Solve(const PressureSystem& system);
  // Gives rhs and result back.
  void Release() { rhs = {}, result = {}; }

  iObject* owner = nullptr;
  VecInt3D gridSize;  // set by the caller
  std::int32_t iterationLimit = 200;
  double toleranceFactor = 1e-8;
  double minDiagonalRatio = 0.25;
  double modificationParameter = 0.97;
  ScratchPool::Lease<double> rhs, result;
};

}  // namespace orlix
