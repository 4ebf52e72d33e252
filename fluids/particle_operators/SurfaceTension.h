#pragma once
// Surface tension between the particles of one list.
//
// By the mean: a particle is pulled to the weighted middle of its neighbours where its density is that of a surface.
//
// By cohesion and curvature (after Akinci, Akinci and Teschner 2013), with x = x_i - x_j, d its length, h the radius:
//   C(d)  = 32 / (pi h^9) (h - d)^3 d^3                        for 2 d > h, else 32 / (pi h^9) (2 (h - d)^3 d^3 - h^6 /
//   64) n_i   = h sum_j m_j / rho_j grad W(d) F_ij  = -2 strength m_i / (rho_i + rho_j) (m_j C(d) x / d + n_i - n_j)
// For each of its neighbours a particle takes dt w F, w being what constraints leave of the particle, and so does the
// neighbour. Between two that see each other, of equal mass and weight, this cancels.

#include <span>

#include "fluids/particles/ParticleKdTree.h"

namespace orlix {

struct TensionSettings {
  double strength = 0, radius = 0;  // m
  double dt = 0;                    // s
  // By the mean only.
  double minimumDensity = 0, maximumDensity = 1;
  double halfCell = 0;  // m, neighbours nearer than that have no weight
};

// weights has an entry for each particle of the list, 0 where it is left out. tree is the list's own.
void AddMeanTension(WorkerPool& pool, const TensionSettings& settings, ParticleList& list, const ParticleKdTree& tree,
                    std::span<const double> weights);

// The normals n_i / h, as property SurfaceNormal. Cohesion needs those of all particles.
void FindTensionNormals(WorkerPool& pool, const TensionSettings& settings, ParticleList& list,
                        const ParticleKdTree& tree);
// Over the whole list. Those that a sheet inserted stay out. What neighbours are given is kept for a while and added in
// the order of the givers, so that the sums don't depend on the workers.
void AddCohesion(WorkerPool& pool, const TensionSettings& settings, ParticleList& list, const ParticleKdTree& tree,
                 std::span<const double> weights);

}  // namespace orlix
