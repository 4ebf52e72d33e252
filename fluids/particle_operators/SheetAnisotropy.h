#pragma once
// How flat the particles around a place lie, by the principal axes of their weighted covariance, and the stretch that a
// ball there gets:
//
//   w = 1 - (d / R)^2,  e1 >= e2 >= e3 the covariance's eigenvalues,  scale = e3 / e1: 0 for a sheet or a thread
//   stretch along axis k: 1 / max(ek, e1 / 4), divided by the cube root of the three's product, in [0.5, 10]

#include <span>

#include "fluids/particles/ParticleKdTree.h"
#include "fluids/particles/SymmetricMatrix.h"

namespace orlix {

struct SheetAnisotropy {
  Matrix3 matrix;  // an offset times this is one in a space in which the ball is round
  Vec3D stretches{1, 1, 1};
  double scale = 1;
};

// list: what the neighbours' indices count in.
SheetAnisotropy SheetAnisotropyAt(const ParticleList& list, std::span<const Neighbour> near, double radius);

// Gives a row the five properties in which particles carry it.
void WriteAnisotropy(const ParticleRows& rows, std::int32_t row, const SheetAnisotropy& anisotropy);

}  // namespace orlix
