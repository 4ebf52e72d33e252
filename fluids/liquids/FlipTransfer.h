#pragma once
// What moves velocities from particles to faces and back (Brackbill and Ruppel 1986; Zhu and Bridson 2005).
//
// Particles come by cells, in the order of the cells, so that a face's sum has one order at any number of workers, and
// a row of faces stays in the cache while a row of cells adds to it.

#include <cmath>
#include <span>

#include "fluids/grids/ScratchPool.h"
#include "fluids/helpers/Kernel.h"
#include "fluids/liquids/FaceStencil.h"
#include "fluids/particles/ParticleSort.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// The lattice on which a liquid's faces stand: positions in metres are carried to cells by (x - origin) / cellSize.
struct FlipLattice {
  Vec3D origin;
  double inverseCell = 1;
  GridView<double> faces[3];  // the velocity components, m/s
};

// Trilinear splat: faces = sum of weight x velocity / sum of weights; faces that no particle reaches become -0, which
// WasReached tells from those whose particles rest.
// About 16 bytes of scratch a face. Throws std::bad_alloc.
void SplatVelocities(const ParticleSort& sort, const FlipLattice& lattice, ScratchPool& scratch, WorkerPool& pool);

inline bool WasReached(double face) { return face != 0 || !std::signbit(face); }

// How faces gather: within radius cells, with w = max(R^2 / max(d^2, 1e-5) - 1, 0) or what the kernel gives.
struct Gathering {
  double radius = 1.4;
  const Kernel* kernel = nullptr;
};
// faces = sum of w m v / sum of w m over the particles around each; m is "Mass", 1 without it. -0 where none are. It
// searches around each face, which costs about ten times a splat.
void GatherVelocities(const ParticleSort& sort, const FlipLattice& lattice, const Gathering& how, WorkerPool& pool);

// The new velocity of each sorted particle: ratio (v + change) + (1 - ratio) current, both sampled trilinearly; from
// ratio 1 on v + change, at 0 and below current alone, without a look at change. change holds the velocity before
// the forces, and afterwards what was sampled: current - ratio x before.
void BlendVelocities(const ParticleSort& sort, const FlipLattice& lattice, const GridView<double> (&change)[3],
                     double ratio, WorkerPool& pool);

}  // namespace orlix
