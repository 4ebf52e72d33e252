#pragma once
// The rigid motion between two frames of an object.

#include "globals/Vec.h"

namespace orlix {

struct ObjectMotion {
  Vec3D displacement;  // m
  Vec3D rotation;      // axis times angle, rad
  double angle = 0;    // 0 to pi

  bool IsZero() const { return displacement == Vec3D() && rotation == Vec3D(); }
};

// Scale in the axes is left out. Axes that are linearly dependent give no rotation.
ObjectMotion MotionBetween(const LMatrix& from, const LMatrix& to);
// A share of the motion, from there on.
LMatrix MovedBy(const LMatrix& from, const ObjectMotion& motion, double share);

}  // namespace orlix
