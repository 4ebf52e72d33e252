#include "fluids/pressure/Grid_GaussSolver.h"

#include "fluids/pressure/GaussSweeps.h"

namespace orlix {

bool Grid_GaussSolver::ReadParameters() {
  if (!handler.HasObject()) return false;
  iterationLimit = handler.GetInt(1021);
  return true;
}

void Grid_GaussSolver::Prepare(iBase*) {
  SetFlag(NodeActive, owner != nullptr);
  if (!owner) return;
  for (ScratchPool::Lease<double>* vector : {&rhs, &pressure}) {
    *vector = scene->scratch().Take<double>(gridSize);
    (*vector)->Fill(0, &scene->pool());
  }
}

void Grid_GaussSolver::ClearState(bool deactivate) {
  Release();
  iObject::ClearState(deactivate);
}

std::int32_t Grid_GaussSolver::Sweep(const PressureSystem& system) {
  GaussSweeps sweeps(system, rhs->data, scene->pool(), scene->scratch());
  const std::int32_t ran = sweeps.Run(iterationLimit, [this] { return scene->TestBreak(); });
  sweeps.Store(pressure->data);
  return ran;
}

}  // namespace orlix
