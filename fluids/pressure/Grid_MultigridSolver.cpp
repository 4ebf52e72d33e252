#include "fluids/pressure/Grid_MultigridSolver.h"

#include <optional>

#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/PressureRows.h"

namespace orlix {

PressureOutcome Grid_MultigridSolver::Solve(const PressureSystem& system, const PressureSettings& settings,
                                            const PressureTools& tools, double* rhs, double* pressure) {
  WorkerPool& pool = tools.pool;
  auto search = tools.scratch.Take<double>(system.dims), product = tools.scratch.Take<double>(system.dims);
  ZeroBorder(search->dims, search->data);
  // Not kept for the next solve: to build the levels is 3% of a sub-step, and their memory serves the advection.
  std::optional<MultigridCycle> cycle;
  const auto precondition = [&](double largest) {
    if (!cycle) cycle.emplace(system, pool, tools.scratch);
    return cycle->Apply(rhs, largest);
  };
  return ConjugateGradients(system, {rhs, pressure, search->data, product->data},
                            {settings.iterationLimit, settings.toleranceFactor}, pool, precondition);
}

}  // namespace orlix
