#pragma once
// New diffuse particles on their way into a list.

#include <span>

#include "fluids/foam/FoamSettings.h"
#include "fluids/grids/CountedVector.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/ParticleList.h"

namespace orlix {

struct DiffuseBirth {
  Vec3D position, velocity;  // m, m/s
  double life = 0;           // s
  DiffuseClass kind = DiffuseClass::Foam;
};
using DiffuseBirths = CountedVector<DiffuseBirth>;

// Appends the pieces in their order. Spray flies a first step at birth: it falls, and moves on but for what drag takes.
// Gives how many. Throws std::bad_alloc.
std::int64_t AppendBirths(const FoamSettings& settings, std::span<const DiffuseBirths> pieces, ParticleList& list,
                          WorkerPool& pool);

// Two directions across d, which has length 1, and with it a right-angled frame.
struct CrossFrame {
  Vec3D a, b;
  explicit CrossFrame(const Vec3D& d) : a(Normalized(Cross(Vec3D(d.y, d.z, d.x), d))), b(Normalized(Cross(d, a))) {}
};

}  // namespace orlix
