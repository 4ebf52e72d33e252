#include "fluids/particles/SymmetricMatrix.h"

#include <utility>

namespace orlix {

namespace {

constexpr int kMostSweeps = 32;  // five are enough for all but the worst

// Turns axes p and q so that a[p][q] vanishes; v gathers the turns in its columns.
void Rotate(double (&a)[3][3], double (&v)[3][3], int p, int q) {
  if (a[p][q] == 0) return;
  const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
  const double t = std::copysign(1.0, theta) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
  const double c = 1 / std::sqrt(t * t + 1), s = t * c;
  for (int k = 0; k < 3; ++k) {
    const double kp = a[k][p], kq = a[k][q];
    a[k][p] = c * kp - s * kq, a[k][q] = s * kp + c * kq;
  }
  for (int k = 0; k < 3; ++k) {
    const double pk = a[p][k], qk = a[q][k];
    a[p][k] = c * pk - s * qk, a[q][k] = s * pk + c * qk;
    const double vp = v[k][p], vq = v[k][q];
    v[k][p] = c * vp - s * vq, v[k][q] = s * vp + c * vq;
  }
}

}  // namespace

EigenSystem EigenSystemOf(const Matrix3& symmetric) {
  double a[3][3], v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  double size = 0;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) a[r][c] = symmetric.m[r][c], size += a[r][c] * a[r][c];
  }
  for (int sweep = 0; sweep < kMostSweeps; ++sweep) {
    const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
    if (!(off > 1e-30 * size)) break;
    Rotate(a, v, 0, 1), Rotate(a, v, 0, 2), Rotate(a, v, 1, 2);
  }
  EigenSystem system;
  for (int k = 0; k < 3; ++k) system.values[k] = a[k][k], system.vectors[k] = {v[0][k], v[1][k], v[2][k]};
  int largest = 0;
  for (int k = 1; k < 3; ++k) {
    if (system.values[k] > system.values[largest]) largest = k;
  }
  std::swap(system.values[0], system.values[largest]);
  std::swap(system.vectors[0], system.vectors[largest]);
  return system;
}

Matrix3 StretchAlong(const Vec3D axes[3], const double d[3]) {
  Matrix3 stretch;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      stretch.m[r][c] =
          d[0] * axes[0][r] * axes[0][c] + d[1] * axes[1][r] * axes[1][c] + d[2] * axes[2][r] * axes[2][c];
    }
  }
  return stretch;
}

}  // namespace orlix
