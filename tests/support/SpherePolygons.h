#pragma once
// A sphere as polygons.

#include <cmath>
#include <numbers>

#include "host/geometry/GeneratedGeometry.h"

namespace orlix::test {

// Rings of quads about the origin, triangles at the poles.
inline PolygonObject SpherePolygons(double radius, int segments, int rings) {
  PolygonObject polygons;
  std::vector<ProfilePoint> profile{{0, -radius}};
  for (int r = 1; r < rings; ++r) {
    const double angle = std::numbers::pi * r / rings;
    profile.push_back({radius * std::sin(angle), -radius * std::cos(angle)});
  }
  profile.push_back({0, radius});
  Revolve(profile, false, segments, polygons);
  return polygons;
}

}  // namespace orlix::test
