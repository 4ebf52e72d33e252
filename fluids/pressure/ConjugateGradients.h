#pragma once
// Preconditioned conjugate gradients on a pressure system, from a zero start, until the largest residual is not above a
// share of the largest right side.

#include <cmath>

#include "fluids/pressure/BodyCoupling.h"
#include "fluids/pressure/ConjugateGradientPasses.h"

namespace orlix {

struct ConjugateGradientLimits {
  std::int32_t iterations = 200;
  double tolerance = 1e-8;  // share of the largest right side
};

// residual holds the right side at first, result 0; the border of search is 0. precondition() approximates the inverse
// applied to the residual. Preconditioner: PreconditionedVector operator()(double largestResidual).
template <class Preconditioner>
PressureOutcome ConjugateGradients(const PressureSystem& system, const ConjugateGradientVectors& vectors,
                                   const ConjugateGradientLimits& limits, WorkerPool& pool,
                                   Preconditioner&& precondition) {
  PressureOutcome outcome;
  if (!system.HasInterior()) {
    outcome.converged = true;
    return outcome;
  }
  ConjugateGradientPasses passes(system, vectors, pool);
  const double largest = passes.LargestResidual();
  outcome.absoluteResidual = largest;
  outcome.converged = largest == 0;
  if (outcome.converged) return outcome;
  outcome.residual = 1;
  const double tolerance = largest * limits.tolerance;
  if (limits.iterations < 1) return outcome;

  PreconditionedVector z = precondition(largest);
  double rho = passes.DotResidual(z), alpha = 0, beta = 0;
  if (rho == 0 || !std::isfinite(rho)) return outcome;
  for (std::int32_t i = 0; i < limits.iterations && !pool.Broken(); ++i) {
    double curvature = passes.SearchAndMultiply(z, alpha, beta, i == 0);
    if (system.bodies) curvature += system.bodies->AddProduct(vectors.search, vectors.product, system.dt, pool);
    alpha = rho / curvature;
    if (!std::isfinite(alpha)) return outcome;  // a residual that rounding has emptied, or no numbers at all
    outcome.absoluteResidual = passes.UpdateResidual(alpha);
    outcome.residual = outcome.absoluteResidual / largest;
    outcome.iterations = i + 1;
    outcome.converged = !(outcome.absoluteResidual > tolerance);
    if (outcome.converged || i + 1 == limits.iterations) break;
    z = precondition(outcome.absoluteResidual);
    const double rhoNew = passes.DotResidual(z);
    beta = rho == 0 ? 0 : rhoNew / rho;
    rho = rhoNew;
  }
  passes.UpdateResult(alpha);
  return outcome;
}

}  // namespace orlix
