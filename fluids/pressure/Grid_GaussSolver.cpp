#include "fluids/pressure/Grid_GaussSolver.h"

#include "fluids/pressure/GaussSweeps.h"

namespace orlix {

PressureOutcome Grid_GaussSolver::Solve(const PressureSystem& system, const PressureSettings& settings,
                                        const PressureTools& tools, double* rhs, double* pressure) {
  GaussSweeps sweeps(system, rhs, tools.pool, tools.scratch);
  PressureOutcome outcome;
  outcome.iterations = sweeps.Run(settings.iterationLimit, tools.stop);
  outcome.tested = false;
  sweeps.Store(pressure);
  return outcome;
}

}  // namespace orlix
