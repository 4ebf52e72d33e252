#pragma once
// Keeps the volume of a liquid that particles carry. A projection leaves no divergence at the instant, but particles
// that end a step beyond the surface moved through velocities that were only carried out there: they come closer
// together, and what is lost stays lost. So cells in which particles are denser than at the start get a divergence that
// drives them apart, and those where they are thinner one that closes up (Losasso, Talton, Kwatra and Fedkiw 2008):
//
//   source(c) += rate (n / n0 - 1),    n the particles in the 27 cells around c, n0 what stands there when all are full
//
// The first hundredths of a deviation count for nothing, so that a liquid at rest stays at rest. Beside air, where
// cells aren't full, particles are only driven apart.

#include "fluids/grids/ScratchPool.h"
#include "fluids/particles/ParticleSort.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct VolumeKeeping {
  double rate = 0;       // 1/s; 0 is off
  double particles = 8;  // of a full cell
};

// phi: the level set that goes with the sort; open: open shares of the same cells; source: 1/s, is added to in the
// cells where phi is negative. Throws std::bad_alloc.
void AddVolumeSource(const VolumeKeeping& keeping, const ParticleSort& sort, const GridView<const double>& phi,
                     const GridView<const float>& open, ScratchPool& scratch, const GridView<double>& source,
                     WorkerPool& pool);

}  // namespace orlix
