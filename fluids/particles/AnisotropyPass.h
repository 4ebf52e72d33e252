#pragma once
// How each particle's ball is to be stretched so that a surface over them is smooth: along the neighbourhood, by the
// principal axes of its weighted covariance (Yu and Turk 2013), or along the velocity.
//
//   w = 1 - (d / h)^3,  m = sum w x / sum w,  C = sum w (x - m)(x - m)^T / sum w
//
// A matrix maps an offset from the particle to the space in which the ball is round: it shrinks along the largest axis.

#include <span>

#include "fluids/particles/ParticleKdTree.h"
#include "fluids/particles/SymmetricMatrix.h"

namespace orlix {

struct AnisotropySettings {
  enum class Mode { ByNeighbourhood = 0, ByVelocity = 1 };
  std::uint32_t maxNeighbours = 32;
  std::uint32_t minNeighbours = 4;  // with so many or fewer there is no stretch
  double radius = 0;                // m, of a particle
  double radiusFactor = 2;          // neighbours lie within radius times this
  double velocityStretch = 0.1;     // per m/s
  double maxRatio = 4;              // of the largest to the smallest principal radius
  Mode mode = Mode::ByNeighbourhood;
};

struct Anisotropy {
  Matrix3 matrix;
  double scale = 1;  // the largest stretch, as a factor of the radius
};

// Of a particle whose neighbours, itself among them, are these.
Anisotropy AnisotropyByNeighbourhood(const AnisotropySettings& settings, std::span<const Vec3D> points,
                                     std::span<const Neighbour> near);
Anisotropy AnisotropyByVelocity(const AnisotropySettings& settings, const Vec3D& velocity);

// Of each particle. points: their positions, or by velocity their velocities.
void RunAnisotropyPass(const AnisotropySettings& settings, std::span<const Vec3D> points, WorkerPool& pool,
                       std::span<Anisotropy> results);

}  // namespace orlix
