#include "fluids/boundary/FractionShapes.h"

#include <cmath>
#include <utility>

namespace orlix {

namespace {

float AwayFromZero(float v) { return std::abs(v) < 1e-10f ? (v > 0 ? 1e-10f : -1e-10f) : v; }

// A corner triangle with sides of these shares.
float CornerTriangle(float s, float t) { return 0.5f * s * t; }

// a and c inside, b and d outside.
float OppositeCorners(float a, float b, float c, float d, bool meanInside) {
  if (meanInside) {
    const float atB = CornerTriangle(1 - FractionInsideSegment(b, a), 1 - FractionInsideSegment(b, c));
    const float atD = CornerTriangle(1 - FractionInsideSegment(d, c), 1 - FractionInsideSegment(d, a));
    return 1 - (atB + atD);
  }
  return CornerTriangle(FractionInsideSegment(a, d), FractionInsideSegment(a, b)) +
         CornerTriangle(FractionInsideSegment(c, b), FractionInsideSegment(c, d));
}

// The part of the edge from an inside value to an outside one that is inside.
double EdgeShare(double in, double out) { return in / (in - out); }

}  // namespace

float FractionInsideSegment(float a, float b) {
  a = AwayFromZero(a), b = AwayFromZero(b);
  if (a < 0) return b < 0 ? 1.0f : a / (a - b);
  return b < 0 ? b / (b - a) : 0.0f;
}

float FractionInsideSquare(float a, float b, float c, float d, bool strict) {
  const auto inside = [strict](float v) { return strict ? !(v > 0) : v < 0; };
  const auto rotate = [&] {
    const float first = a;
    a = b, b = c, c = d, d = first;
  };
  const int count = int(inside(a)) + int(inside(b)) + int(inside(c)) + int(inside(d));
  switch (count) {
    case 0:
      return 0;
    case 1:
      while (!inside(a)) rotate();
      return CornerTriangle(FractionInsideSegment(a, d), FractionInsideSegment(a, b));
    case 3:
      while (inside(a)) rotate();
      return 1 - CornerTriangle(1 - FractionInsideSegment(a, d), 1 - FractionInsideSegment(a, b));
    case 4:
      return 1;
    default:
      break;
  }
  if (inside(a) == inside(c)) {
    if (!inside(a)) rotate();
    return OppositeCorners(a, b, c, d, inside((a + b + c + d) * 0.25f));
  }
  while (!(inside(a) && inside(b))) rotate();
  return 0.5f * (FractionInsideSegment(a, d) + FractionInsideSegment(b, c));
}

double FractionInsideTetrahedron(double a, double b, double c, double d) {
  double v[4] = {a, b, c, d};
  int inside = 0;
  for (int n = 0; n < 4; ++n) {
    if (v[n] < 0) std::swap(v[n], v[inside++]);
  }
  switch (inside) {
    case 0:
      return 0;
    case 1:
      return EdgeShare(v[0], v[1]) * EdgeShare(v[0], v[2]) * EdgeShare(v[0], v[3]);
    case 2: {
      const double ac = EdgeShare(v[0], v[2]), ad = EdgeShare(v[0], v[3]);
      const double bc = EdgeShare(v[1], v[2]), bd = EdgeShare(v[1], v[3]);
      return ac * ad + ac * bd * (1 - ad) + (1 - ac) * bc * bd;
    }
    case 3:
      return 1 - (1 - EdgeShare(v[0], v[3])) * (1 - EdgeShare(v[1], v[3])) * (1 - EdgeShare(v[2], v[3]));
    default:
      return 1;
  }
}

double FractionInsideCube(const double p[8]) {
  // A corner tetrahedron has half the size of a central one.
  const double corners =
      FractionInsideTetrahedron(p[1], p[0], p[3], p[5]) +  //
      FractionInsideTetrahedron(p[2], p[0], p[3], p[6]) + FractionInsideTetrahedron(p[4], p[0], p[5], p[6]) +
      FractionInsideTetrahedron(p[7], p[3], p[5], p[6]) + FractionInsideTetrahedron(p[0], p[1], p[2], p[4]) +
      FractionInsideTetrahedron(p[3], p[1], p[2], p[7]) + FractionInsideTetrahedron(p[5], p[1], p[4], p[7]) +
      FractionInsideTetrahedron(p[6], p[2], p[4], p[7]);
  const double centres =
      FractionInsideTetrahedron(p[0], p[3], p[5], p[6]) + FractionInsideTetrahedron(p[1], p[2], p[4], p[7]);
  return (corners + 2 * centres) * (1.0 / 12.0);
}

}  // namespace orlix
