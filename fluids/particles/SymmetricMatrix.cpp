#include "fluids/particles/SymmetricMatrix.h"

#include <algorithm>
#include <utility>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kMostSweeps = 32;           // five are enough for all but the worst
constexpr int kMatrices = 32, kStep = 8;  // side by side; and whole vectors of them

// The matrices that are turned, element by element, and in the columns of v the turns so far.
struct Turning {
  double a[3][3][kMatrices];  // the upper triangle
  double v[3][3][kMatrices];
  double size[kMatrices];  // of all elements, squared; negative once the others have gone
};

// Turns axes P and Q so that their element vanishes, R being the third one. A matrix that is done, and one whose
// element is 0 already, turns by nothing.
template <int P, int Q, int R>
ORLIX_INLINE void Rotate(Turning& t, int count) {
  double(&pq)[kMatrices] = t.a[P][Q], (&rp)[kMatrices] = t.a[std::min(R, P)][std::max(R, P)],
  (&rq)[kMatrices] = t.a[std::min(R, Q)][std::max(R, Q)];
  for (int n = 0; n < count; ++n) {
    const double off = pq[n], theta = (t.a[Q][Q][n] - t.a[P][P][n]) / (2 * off);
    const double tangent = std::copysign(1.0, theta) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
    const double tan = (off != 0) & (t.size[n] >= 0) ? tangent : 0.0;
    const double c = 1 / std::sqrt(tan * tan + 1), s = tan * c;
    t.a[P][P][n] -= tan * off, t.a[Q][Q][n] += tan * off;
    pq[n] = tan != 0 ? 0.0 : off;
    const double kp = rp[n], kq = rq[n];
    rp[n] = c * kp - s * kq, rq[n] = s * kp + c * kq;
    for (int k = 0; k < 3; ++k) {
      const double vp = t.v[k][P][n], vq = t.v[k][Q][n];
      t.v[k][P][n] = c * vp - s * vq, t.v[k][Q][n] = s * vp + c * vq;
    }
  }
}

// One turn about each pair of axes. False when all are diagonal.
ORLIX_MULTIVERSION bool Sweep(Turning& t, int count) {
  double most = -1;
  for (int n = 0; n < count; ++n) {
    const double xy = t.a[0][1][n], xz = t.a[0][2][n], yz = t.a[1][2][n];
    t.size[n] = xy * xy + xz * xz + yz * yz > 1e-30 * t.size[n] ? t.size[n] : -1.0;
    most = std::max(most, t.size[n]);
  }
  if (most < 0) return false;
  Rotate<0, 1, 2>(t, count);
  Rotate<0, 2, 1>(t, count);
  Rotate<1, 2, 0>(t, count);
  return true;
}

}  // namespace

void FindEigenSystems(std::span<const Matrix3> symmetric, std::span<EigenSystem> systems) {
  Turning t;
  for (std::size_t from = 0; from < symmetric.size(); from += kMatrices) {
    const int many = static_cast<int>(std::min<std::size_t>(symmetric.size() - from, kMatrices));
    const int count = (many + kStep - 1) / kStep * kStep;
    for (int n = 0; n < count; ++n) {
      const Matrix3& m = symmetric[from + static_cast<std::size_t>(std::min(n, many - 1))];
      t.size[n] = 0;
      for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
          t.a[r][c][n] = m.m[r][c], t.v[r][c][n] = r == c;
          t.size[n] += m.m[r][c] * m.m[r][c];
        }
      }
    }
    for (int sweep = 0; sweep < kMostSweeps && Sweep(t, count);) ++sweep;
    for (int n = 0; n < many; ++n) {
      EigenSystem& system = systems[from + static_cast<std::size_t>(n)];
      int largest = 0;
      for (int k = 0; k < 3; ++k) {
        system.values[k] = t.a[k][k][n];
        system.vectors[k] = {t.v[0][k][n], t.v[1][k][n], t.v[2][k][n]};
        if (system.values[k] > system.values[largest]) largest = k;
      }
      std::swap(system.values[0], system.values[largest]);
      std::swap(system.vectors[0], system.vectors[largest]);
    }
  }
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
