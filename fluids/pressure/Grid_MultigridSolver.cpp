#include "fluids/pressure/Grid_MultigridSolver.h"

#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/PressureRows.h"

namespace orlix {

void Grid_MultigridSolver::Forget() {
  cycle_.reset();
  builtFor_ = 0;
}

PressureOutcome Grid_MultigridSolver::Solve(const PressureSystem& system, const PressureSettings& settings,
                                            const PressureTools& tools, double* rhs, double* pressure) {
  WorkerPool& pool = tools.pool;
  if (system.revision == 0 || builtFor_ != system.revision || !(builtDims_ == system.dims)) Forget();
  auto search = tools.scratch.Take<double>(system.dims), product = tools.scratch.Take<double>(system.dims);
  ZeroBorder(search->dims, search->data);
  const auto precondition = [&](double largest) {
    if (!cycle_) cycle_ = std::make_unique<MultigridCycle>(system, pool, tools.scratch);
    return cycle_->Apply(rhs, largest);
  };
  const PressureOutcome outcome =
      ConjugateGradients(system, {rhs, pressure, search->data, product->data},
                         {settings.iterationLimit, settings.toleranceFactor}, pool, precondition);
  builtFor_ = system.revision;
  builtDims_ = system.dims;
  if (system.revision == 0) Forget();
  return outcome;
}

}  // namespace orlix
