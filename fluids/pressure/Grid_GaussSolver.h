#pragma once
// Gauss-Seidel relaxation with a fixed number of sweeps in the order of the cells, without a test of the residual.

#include "fluids/pressure/PressureSystem.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

class Grid_GaussSolver : public iObject {
 public:
  using iObject::iObject;

  bool ReadParameters() override;
  // Leases rhs and pressure, both 0. Not active without an owner.
  void Prepare(iBase* caller = nullptr) override;
  void ResetSimulation() override { Release(); }
  void ClearState(bool deactivate) override;

  // All sweeps, from zero; gives those that ran, fewer only when the scene was asked to stop.
  std::int32_t Sweep(const PressureSystem& system);
  // Gives rhs and pressure back.
  void Release() { rhs = {}, pressure = {}; }

  iObject* owner = nullptr;
  VecInt3D gridSize;  // set by the caller
  std::int32_t iterationLimit = 200;
  ScratchPool::Lease<double> rhs, pressure;
};

}  // namespace orlix
