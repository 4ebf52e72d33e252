#pragma once
// Volume, centre and moments of what a closed mesh encloses, with a density of 1 (integrals over its surface; Mirtich
// 1996, Eberly 2003).

#include <span>

#include "globals/Vec.h"

namespace orlix {

struct MassProperties {
  bool closed = false;  // the triangles' areas cancel out; otherwise the rest means nothing
  double volume = 0;    // m^3; below 0 where the triangles face inwards
  Vec3D centre;
  LMatrix axes;   // the main axes of turning, at the centre, right handed
  Vec3D inertia;  // about them, m^5
};

MassProperties MassPropertiesOf(std::span<const Vec3D> points, std::span<const VecInt3D> triangles);

}  // namespace orlix
