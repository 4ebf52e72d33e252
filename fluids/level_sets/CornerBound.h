#pragma once
// A lower bound of a triangle's distance that costs little. The closest point of the triangle lies within its covering
// radius r of some corner, along a direction that is at right angles to that from it to the node (or it is a corner),
// so distance^2 >= (distance to the nearest corner)^2 - r^2.

#include <algorithm>

#include "globals/Vec.h"

namespace orlix {

// The square of the smallest radius at which discs about the corners cover the triangle: the circumradius of an acute
// one, half the longest edge of an obtuse one. Never above a third of the longest edge's square.
inline double SquaredCoveringRadius(const Vec3D& x1, const Vec3D& x2, const Vec3D& x3) {
  const double a = LengthSquared(x2 - x3), b = LengthSquared(x1 - x3), c = LengthSquared(x1 - x2);
  const double longest = std::max({a, b, c});
  if (2 * longest >= a + b + c) return longest / 4;
  const double area = LengthSquared(Cross(x1 - x3, x2 - x3));
  return std::min(a * b * c / (4 * area), longest / 3);
}

}  // namespace orlix
