#pragma once
// Conjugate gradients on the viscous system, preconditioned by its diagonal. The system is 1 plus a positive part, so
// the velocities are a good start, and iterations grow with the square root of dt mu / h^2 until the walls bound them.

#include "fluids/grids/ScratchPool.h"
#include "fluids/pressure/PressureSystem.h"
#include "fluids/viscosity/ViscousSystem.h"

namespace orlix {

struct ViscousLimits {
  std::int32_t iterations = 200;
  double tolerance = 1e-3;  // share of the largest right side
};

// velocity: m/s on the faces of each axis; solved faces take the result, others stay. solidVelocity: what fixed faces
// hold, 0 on solved ones; without data, all solids rest. Sums run over z layers in their order: the same bits at any
// number of workers. Throws std::bad_alloc.
PressureOutcome SolveViscosity(const ViscousSystem& system, const FaceVector& velocity,
                               const GridView<const double> (&solidVelocity)[3], const ViscousLimits& limits,
                               ScratchPool& scratch, WorkerPool& pool);

}  // namespace orlix
