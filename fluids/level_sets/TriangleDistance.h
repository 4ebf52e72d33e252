#pragma once
// The exact distance from a point to a triangle (Eberly 2006, "Geometric Tools": barycentric test, then the two edges
// that can be nearest).
//
// Kernels compare squared distances: the square root keeps their order, so one root at the end gives the same result.

#include <algorithm>

#include "globals/Vec.h"

namespace orlix {

// A triangle with what its distances need, two cache lines. x13 is x1 - x3, and so on.
struct alignas(64) TriangleTerms {
  Vec3D x1, x2, x3;
  double m13, m23, d;          // x13 . x13, x23 . x23, x13 . x23
  double inverseDeterminant;   // of the barycentric system; bounded where the triangle has no area
  double inv12, inv13, inv23;  // 1 / |edge|^2; 0 for an edge without length
};

inline TriangleTerms MakeTriangleTerms(const Vec3D& x1, const Vec3D& x2, const Vec3D& x3) {
  const auto inverse = [](double squared) { return squared > 0 ? 1 / squared : 0; };
  const Vec3D x13 = x1 - x3, x23 = x2 - x3;
  TriangleTerms t;
  t.x1 = x1, t.x2 = x2, t.x3 = x3;
  t.m13 = LengthSquared(x13), t.m23 = LengthSquared(x23), t.d = Dot(x13, x23);
  t.inverseDeterminant = 1 / std::max(t.m13 * t.m23 - t.d * t.d, 1e-30);
  t.inv12 = inverse(LengthSquared(x1 - x2));
  t.inv13 = inverse(t.m13);
  t.inv23 = inverse(t.m23);
  return t;
}

// To the segment from a to b, with 1 / |a - b|^2.
inline double SquaredDistanceToSegment(const Vec3D& p, const Vec3D& a, const Vec3D& b, double inverse) {
  double s = Dot(a - p, a - b) * inverse;
  s = s > 0 ? (s < 1 ? s : 1) : 0;
  return LengthSquared(p - (b * s + a * (1 - s)));
}

inline double SquaredDistance(const Vec3D& p, const TriangleTerms& t) {
  const Vec3D x13 = t.x1 - t.x3, x23 = t.x2 - t.x3, x03 = p - t.x3;
  const double a = Dot(x13, x03), b = Dot(x23, x03);
  const double w23 = t.inverseDeterminant * (t.m23 * a - t.d * b);
  const double w31 = t.inverseDeterminant * (t.m13 * b - t.d * a);
  const double w12 = 1 - w23 - w31;
  if (w23 >= 0 && w31 >= 0 && w12 >= 0) return LengthSquared(p - (t.x1 * w23 + t.x2 * w31 + t.x3 * w12));
  if (w23 > 0) {
    return std::min(SquaredDistanceToSegment(p, t.x1, t.x2, t.inv12), SquaredDistanceToSegment(p, t.x1, t.x3, t.inv13));
  }
  if (w31 > 0) {
    return std::min(SquaredDistanceToSegment(p, t.x1, t.x2, t.inv12), SquaredDistanceToSegment(p, t.x2, t.x3, t.inv23));
  }
  return std::min(SquaredDistanceToSegment(p, t.x1, t.x3, t.inv13), SquaredDistanceToSegment(p, t.x2, t.x3, t.inv23));
}

}  // namespace orlix
