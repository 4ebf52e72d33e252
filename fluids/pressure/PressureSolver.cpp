#include "fluids/pressure/PressureSolver.h"

#include "fluids/pressure/Grid_CGSolver.h"
#include "fluids/pressure/Grid_GaussSolver.h"
#include "fluids/pressure/Grid_MultigridSolver.h"

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

std::unique_ptr<PressureSolver> MakePressureSolver(PressureSolverType type) {
  switch (type) {
    case kPressureCG:
      return std::make_unique<Grid_CGSolver>();
    case kPressureMultigrid:
      return std::make_unique<Grid_MultigridSolver>();
    case kPressureGauss:
      break;
  }
  return std::make_unique<Grid_GaussSolver>();
}

}  // namespace orlix
