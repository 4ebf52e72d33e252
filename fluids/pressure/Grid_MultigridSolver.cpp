#include "fluids/pressure/Grid_MultigridSolver.h"

#include "fluids/pressure/ClosedRegions.h"
#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/MultigridCycle.h"
#include "fluids/pressure/PressureRows.h"

namespace orlix {

Grid_MultigridSolver::Grid_MultigridSolver(BaseList2D* solverObject, OrlixScene& ownerScene)
    : Grid_CGSolver(solverObject, ownerScene) {}

Grid_MultigridSolver::~Grid_MultigridSolver() = default;

void Grid_MultigridSolver::Forget() {
  cycle_.reset();
  regions_.reset();
  builtFor_ = 0;
}

void Grid_MultigridSolver::ResetSimulation() {
  Forget();
  Grid_CGSolver::ResetSimulation();
}

void Grid_MultigridSolver::ClearState(bool deactivate) {
  Forget();
  Grid_CGSolver::ClearState(deactivate);
}

PressureOutcome Grid_MultigridSolver::Solve(const PressureSystem& system) {
  WorkerPool& pool = scene->pool();
  if (revision == 0 || builtFor_ != revision || !(builtDims_ == system.dims)) Forget();
  if (!regions_) regions_ = std::make_unique<ClosedRegions>(system, pool);
  regions_->RemoveMeans(rhs->data, pool);
  auto search = scene->scratch().Take<double>(system.dims), product = scene->scratch().Take<double>(system.dims);
  ZeroBorder(search->dims, search->data);
  const auto precondition = [&](double largest) {
    if (!cycle_) cycle_ = std::make_unique<MultigridCycle>(system, pool, scene->scratch());
    return cycle_->Apply(rhs->data, largest);
  };
  const PressureOutcome outcome = ConjugateGradients(system, {rhs->data, result->data, search->data, product->data},
                                                     {iterationLimit, toleranceFactor}, pool, precondition);
  builtFor_ = revision;
  builtDims_ = system.dims;
  if (revision == 0) Forget();
  return outcome;
}

}  // namespace orlix
