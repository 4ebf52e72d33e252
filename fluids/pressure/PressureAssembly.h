#pragma once
// The right side of the pressure system, and the pressure's gradient taken off the velocity.
//
//   b(c) = share(c) source(c) - sum over the faces of (+-) share(f) u(f) / h
//   u(f) = u(f) - (p(c) - p(c below)) k,  k = dt / (density h);  a closed face holds 0

#include "fluids/boundary/FaceVelocity.h"
#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct DivergenceInput {
  GridView<const float> share[3];  // open shares of the faces
  GridView<const float> cellShare;
  GridView<const double> source;  // 1/s; without data, none
  MacView velocity;               // m/s
  float cellSize = 1;             // m

  VecInt3D Cells() const { return velocity[0].dims - VecInt3D(1, 0, 0); }
};

// rhs takes b in the cells with an equation, those with an open face, and 0 elsewhere; with accumulate, b is added to
// what the cell holds. Gives the largest magnitude of what rhs takes; without rhs, of b.
double AssembleDivergence(const DivergenceInput& input, bool accumulate, double* rhs, WorkerPool& pool);

// Weights of a system of variable density: share k / (mean density of the face's two cells), k = dt / (h h). weights:
// the dims of the shares.
void FillDensityWeights(const GridView<const float> (&share)[3], const GridView<const double>& density, double k,
                        GridView<double> (&weights)[3], WorkerPool& pool);

// k: dt / (density h), or with a density by cell dt / h. pressure has the layout of the cells, with 0 in the outermost
// layer.
void ApplyPressureGradient(const GridView<const float> (&share)[3], const double* pressure, double k,
                           const GridView<const double>& density, GridView<double> (&velocity)[3], WorkerPool& pool);

}  // namespace orlix
