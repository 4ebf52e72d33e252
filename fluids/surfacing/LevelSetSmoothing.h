#pragma once
// Curvature flows that take the bumps out of a level set, inside a band around where its surface stood.
//
//   Laplacian    phi += |grad phi| lap(phi) dt,        dt = 0.1 h^2
//   biharmonic   phi -= |grad phi| lap(lap(phi)) dt,   dt = 0.01 h^4 speed
//
// and after each round lower <= phi <= upper, which are phi as it was plus two constants. Only nodes within 4 cells of
// the surface (3 for the biharmonic step) take part. Now and then all three are made distances again.

#include "fluids/grids/EGrid.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct SmoothingSettings {
  std::int32_t laplacianRounds = 15, biharmonicRounds = 250;
  std::int32_t period = 50;  // rounds from one re-initialisation to the next; 0 for none
  double speed = 1;
  double below = 0, above = 0;  // m: lower and upper less phi
  bool reinitialiseFirst = false;
  bool operator==(const SmoothingSettings&) const = default;
};

// Throws std::bad_alloc. False after a break: the level set is then somewhere on its way.
bool SmoothLevelSet(WorkerPool& pool, ScratchPool& scratch, const SmoothingSettings& settings, ScalarGrid& phi,
                    const BaseThread* hostThread = nullptr);

}  // namespace orlix
