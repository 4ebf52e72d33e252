#pragma once
// A solver of pressure systems, as a projection sees it.

#include <cstdint>
#include <functional>
#include <memory>

#include "fluids/grids/ScratchPool.h"
#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

enum PressureSolverType : std::int32_t { kPressureCG = 0, kPressureGauss = 1, kPressureMultigrid = 2 };

struct PressureSettings {
  std::int32_t iterationLimit = 200;  // or the number of sweeps
  double toleranceFactor = 1e-8;      // share of the largest right side
  // Of the Cholesky factor.
  double minDiagonalRatio = 0.25;
  double modificationParameter = 0.97;
};

// The share of the largest right side at which a solve may stop, for the setting pressure_accuracy.
double ToleranceFactor(double setting);

// What a solve works with.
struct PressureTools {
  WorkerPool& pool;
  ScratchPool& scratch;
  std::function<bool()> stop;  // asked now and then: true ends the solve early
};

class PressureSolver {
 public:
  virtual ~PressureSolver() = default;
  // rhs and pressure have the layout of the system's cells; pressure is 0 at first. What rhs holds afterwards is the
  // solver's.
  virtual PressureOutcome Solve(const PressureSystem& system, const PressureSettings& settings,
                                const PressureTools& tools, double* rhs, double* pressure) = 0;
};

std::unique_ptr<PressureSolver> MakePressureSolver(PressureSolverType type);

}  // namespace orlix
