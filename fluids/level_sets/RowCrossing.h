#pragma once
// Where a row of nodes, a line along x, passes through a triangle.
//
// Each of the three signed areas that is exactly 0 takes its sign from the edge's coordinates, the second one first, as
// if the row were moved by less than anything (Edelsbrunner and Muecke 1990). Two triangles see a shared edge with
// opposite signs, so a row through it is counted by exactly one of two that lie on either side.

#include <optional>

#include "globals/Vec.h"

namespace orlix {

// The sign of the area between the origin and the edge (y1, z1)-(y2, z2), and the area doubled; 0 only when both ends
// coincide.
inline int EdgeSign(double y1, double z1, double y2, double z2, double& twiceArea) {
  twiceArea = z1 * y2 - y1 * z2;
  if (twiceArea > 0) return 1;
  if (twiceArea < 0) return -1;
  if (z2 > z1) return 1;
  if (z2 < z1) return -1;
  if (y1 > y2) return 1;
  if (y1 < y2) return -1;
  return 0;
}

// The x coordinate of the crossing of the row at (y, z); none when the row passes by.
inline std::optional<double> RowCrossing(double y, double z, const Vec3D& p, const Vec3D& q, const Vec3D& r) {
  const double py = p.y - y, qy = q.y - y, ry = r.y - y, pz = p.z - z, qz = q.z - z, rz = r.z - z;
  double a, b, c;
  const int sign = EdgeSign(qy, qz, ry, rz, a);
  if (sign == 0) return {};
  if (EdgeSign(ry, rz, py, pz, b) != sign || EdgeSign(py, pz, qy, qz, c) != sign) return {};
  if (const double sum = a + b + c; sum != 0) a /= sum, b /= sum, c /= sum;
  return a * p.x + b * q.x + c * r.x;
}

}  // namespace orlix
