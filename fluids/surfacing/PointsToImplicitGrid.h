#pragma once
// A level set on nodes from particles: at each node from those nearer than R = R0 x radius factor, R0 = particle
// radius x radius scale, and of these the k nearest.
//
//   Spherical   |x - mean place| - R0, the mean with weights (1 - (d / R)^4)^3 (Zhu and Bridson 2005). With the density
//               correction R0 shrinks where few particles are near the mean: thin sheets stay thin.
//   Density     R0 - sum of (mass / divisor) (1 - q^2)^3, times the particle radius; q = |G (x - centre)| / ball reach
//   Average     min(|mean of G (x - centre)|, R0) - R0, the mean with weights (1 - (q / R)^2)^3
//
// G draws a particle's ball out along its neighbourhood (Yu and Turk 2013). Nodes that no particle reaches, and the
// outermost layer, keep the far value.

#include "fluids/grids/EGrid.h"
#include "fluids/helpers/Kernel.h"
#include "fluids/surfacing/PointCells.h"

namespace orlix {

enum class ReconstructionMethod : std::int32_t { Spherical = 0, Density = 1, Average = 2 };

struct ReconstructionSettings {
  ReconstructionMethod method = ReconstructionMethod::Spherical;
  double particleRadius = 0;  // m
  double radiusScale = 1, radiusFactor = 3;
  // With fewer, only the nearest counts.
  std::int32_t minNeighbours = 1;
  std::int32_t maxNeighbours = 100;  // k
  bool useMassRatio = false;         // Spherical: weights times mass / divisor
  bool densityCorrection = false;
  // The density at which the radius is 0, and from which on it is whole.
  double lowerDensity = 0, upperDensity = 1.05;
  double ballReach = 1;                // m, of Density; 0 for R
  const KernelBase* kernel = nullptr;  // instead of the weights above; not owned

  double Radius() const { return particleRadius * radiusScale; }   // R0
  double SearchRadius() const { return Radius() * radiusFactor; }  // R
  double BallReach() const { return ballReach > 0 ? ballReach : SearchRadius(); }
  double RadiusShare(double density) const;  // of a neighbourhood of this density
};

struct ReconstructionPoints {
  std::span<const Vec3D> places;         // where the search finds them
  std::span<const double> ratios;        // mass / divisor; empty for all 1
  std::span<const StretchedBall> balls;  // Density and Average
};

// Fills the grid. False after a break. Throws std::bad_alloc.
bool PointsToImplicitGrid(WorkerPool& pool, const ReconstructionSettings& settings, const ReconstructionPoints& points,
                          double farValue, ScalarGrid& grid, const BaseThread* hostThread = nullptr);

}  // namespace orlix
