#include "fluids/bodies/MassProperties.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

struct Symmetric {
  double m[3][3] = {};
};

// Jacobi's method: a becomes diagonal, the columns of axes its directions.
void Diagonalise(Symmetric& a, Vec3D (&axes)[3]) {
  for (int i = 0; i < 3; ++i) axes[i] = {}, axes[i][i] = 1;
  constexpr int kSweeps = 24;
  const double size = std::abs(a.m[0][0]) + std::abs(a.m[1][1]) + std::abs(a.m[2][2]);
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (std::abs(a.m[p][q]) <= 1e-14 * size) continue;
        const double theta = (a.m[q][q] - a.m[p][p]) / (2 * a.m[p][q]);
        const double t = (theta < 0 ? -1 : 1) / (std::abs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1), s = t * c;
        for (auto& row : a.m) {
          const double x = row[p], y = row[q];
          row[p] = c * x - s * y, row[q] = s * x + c * y;
        }
        for (int k = 0; k < 3; ++k) {
          const double x = a.m[p][k], y = a.m[q][k];
          a.m[p][k] = c * x - s * y, a.m[q][k] = s * x + c * y;
        }
        const Vec3D x = axes[p], y = axes[q];
        axes[p] = x * c - y * s, axes[q] = x * s + y * c;
      }
    }
  }
}

}  // namespace

MassProperties MassPropertiesOf(std::span<const Vec3D> points, std::span<const VecInt3D> triangles) {
  MassProperties result;
  if (points.empty() || triangles.empty()) return result;
  const Vec3D reference = points[0];  // near the mesh: far from the origin the differences would drown
  double volume = 0, area = 0;
  Vec3D first, areas;
  Symmetric second;  // of x x^T
  for (const VecInt3D& t : triangles) {
    const Vec3D a = points[t.x] - reference, b = points[t.y] - reference, c = points[t.z] - reference;
    const Vec3D normal = Cross(b - a, c - a);
    areas += normal;
    area += Length(normal);
    const double six = Dot(a, Cross(b, c));  // six times the tetrahedron with the reference
    const Vec3D sum = a + b + c;
    volume += six / 6;
    first += sum * (six / 24);
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        second.m[i][j] += six / 120 * (sum[i] * sum[j] + a[i] * a[j] + b[i] * b[j] + c[i] * c[j]);
      }
    }
  }
  constexpr double kGap = 1e-6;  // of the area
  result.closed = area > 0 && Length(areas) <= kGap * area && volume != 0;
  result.volume = volume;
  if (!result.closed) return result;
  const Vec3D mean = first / volume;
  result.centre = reference + mean;
  // A mesh that faces inwards has all integrals with the other sign.
  const double sign = volume < 0 ? -1 : 1;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) second.m[i][j] = sign * (second.m[i][j] - volume * mean[i] * mean[j]);
  }
  Vec3D axes[3];
  Diagonalise(second, axes);
  if (Dot(axes[0], Cross(axes[1], axes[2])) < 0) axes[2] = -axes[2];
  result.axes = {result.centre, axes[0], axes[1], axes[2]};
  const Vec3D spread(second.m[0][0], second.m[1][1], second.m[2][2]);
  result.inertia = {spread.y + spread.z, spread.x + spread.z, spread.x + spread.y};
  return result;
}

}  // namespace orlix
