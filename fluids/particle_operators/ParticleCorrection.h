#pragma once
// Keeps particles apart: weak springs push neighbours to the distance R, and velocities follow to where they moved.
//
//   q_i  = x_i + dt w_i sum_j (x_i - x_j) / d strength R (1 - d^2 / R^2)
//   v_i  = the mean of the neighbours' velocities at q_i, weights R^2 / d^2 - 1
//
// Pairs nearer than 0.1 R get a random push along the diagonal instead; coincident ones none.

#include <span>

#include "fluids/boundary/SolidView.h"
#include "fluids/particles/ParticleKdTree.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

struct CorrectionSettings {
  double radius = 0, strength = 0;  // R, m; 1/s
  double dt = 0;                    // s
  double amount = 1;                // what a duration leaves
  bool fallbackMean = false;        // without a neighbour in reach: the mean by mass; else the velocity stays
  bool softBoundary = false;        // pushed away from solids within R / 2 instead of out of them
  std::uint64_t seed = 0;           // of the random pushes
  SolidView solid;                  // without data the volumes keep particles out
  double cellSize = 1;              // m
  std::span<const VolumeBase* const> volumes;
};

// What a pass makes of each particle of a list, until it is written back.
struct Corrected {
  std::span<Vec3D> positions, velocities;
  std::span<const double> weights;  // 0: the particle is left alone, but others feel it
};

// Each needs what the ones before it made of all particles of the list. tree is the list's own.
void CorrectPositions(WorkerPool& pool, const CorrectionSettings& settings, ParticleList& list,
                      const ParticleKdTree& tree, const Corrected& corrected);
void CorrectVelocities(WorkerPool& pool, const CorrectionSettings& settings, ParticleList& list,
                       const ParticleKdTree& tree, const Corrected& corrected);
// On the rows of one worker.
void TakeCorrected(const Corrected& corrected, const ParticleRows& rows);

}  // namespace orlix
