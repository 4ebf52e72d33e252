#include "fluids/pressure/Grid_CGSolver.h"

#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/ModifiedCholesky.h"
#include "fluids/pressure/PressureRows.h"

namespace orlix {

double ToleranceFactor(double setting) {
  if (setting == 0) return 0.01;
  constexpr double kFactors[] = {1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9, 1e-10, 1e-11, 1e-12};
  constexpr double kLimits[] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1.0};
  for (int step = 0; step < 10; ++step) {
    if (setting < kLimits[step]) return kFactors[step];
  }
  return 1e-13;
}

bool Grid_CGSolver::ReadParameters() {
  if (!handler.HasObject()) return false;
  iterationLimit = handler.GetInt(1021);
  toleranceFactor = ToleranceFactor(handler.GetDouble(1022));
  minDiagonalRatio = handler.GetDouble(1045);
  modificationParameter = handler.GetDouble(1046);
  return true;
}

void Grid_CGSolver::Prepare(iBase*) {
  SetFlag(NodeActive, owner != nullptr);
  if (!owner) return;
  for (ScratchPool::Lease<double>* vector : {&rhs, &result}) {
    *vector = scene->scratch().Take<double>(gridSize);
    (*vector)->Fill(0, &scene->pool());
  }
}

void Grid_CGSolver::ClearState(bool deactivate) {
  Release();
  iObject::ClearState(deactivate);
}

PressureOutcome Grid_CGSolver::Solve(const PressureSystem& system) {
  WorkerPool& pool = scene->pool();
  auto search = scene->scratch().Take<double>(system.dims), z = scene->scratch().Take<double>(system.dims);
  auto inverse = scene->scratch().Take<double>(system.dims);
  for (Grid<double>* vector : {&*search, &*z}) ZeroBorder(vector->dims, vector->data);
  bool hasFactor = false;
  const auto precondition = [&](double) {
    if (!hasFactor) {
      FactorModifiedCholesky(system, {minDiagonalRatio, modificationParameter}, pool, inverse->data);
      hasFactor = true;
    }
    ApplyModifiedCholesky(system, inverse->data, rhs->data, pool, z->data);
    return PreconditionedVector{z->data, {}, 0, 0, 1};
  };
  return ConjugateGradients(system, {rhs->data, result->data, search->data, z->data}, {iterationLimit, toleranceFactor},
                            pool, precondition);
}

}  // namespace orlix
