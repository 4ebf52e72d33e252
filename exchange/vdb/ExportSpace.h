#pragma once
// How results lie in the space of another program: its unit of length, and which axis points up there.

#include "globals/Vec.h"

namespace orlix {

struct ExportSpace {
  double scale = 1;  // lengths of the other program a host unit
  bool upZ = false;  // a quarter turn about x: y, upwards here, becomes z

  Vec3D operator()(const Vec3D& v) const { return (upZ ? Vec3D(v.x, -v.z, v.y) : v) * scale; }
};

}  // namespace orlix
