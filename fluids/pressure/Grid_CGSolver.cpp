#include "fluids/pressure/Grid_CGSolver.h"

#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/ModifiedCholesky.h"
#include "fluids/pressure/PressureRows.h"

namespace orlix {

PressureOutcome Grid_CGSolver::Solve(const PressureSystem& system, const PressureSettings& settings,
                                     const PressureTools& tools, double* rhs, double* pressure) {
  auto search = tools.scratch.Take<double>(system.dims), z = tools.scratch.Take<double>(system.dims);
  auto inverse = tools.scratch.Take<double>(system.dims);
  for (Grid<double>* vector : {&*search, &*z}) ZeroBorder(vector->dims, vector->data);
  bool hasFactor = false;
  const auto precondition = [&](double) {
    if (!hasFactor) {
      FactorModifiedCholesky(system, {settings.minDiagonalRatio, settings.modificationParameter}, tools.pool,
                             inverse->data);
      hasFactor = true;
    }
    ApplyModifiedCholesky(system, inverse->data, rhs, tools.pool, z->data);
    return PreconditionedVector{z->data, {}, 0, 0, 1};
  };
  return ConjugateGradients(system, {rhs, pressure, search->data, z->data},
                            {settings.iterationLimit, settings.toleranceFactor}, tools.pool, precondition);
}

}  // namespace orlix
