#pragma once
// Symmetric 3x3 matrices: their eigenvalues by Jacobi rotations (Golub and Van Loan 2013, 8.5), and stretches along
// given axes.

#include <bit>
#include <cmath>
#include <cstdint>
#include <span>

#include "globals/Vec.h"

namespace orlix {

// Rows one after the other.
struct Matrix3 {
  double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  bool operator==(const Matrix3&) const = default;
  Vec3D Row(int r) const { return {m[r][0], m[r][1], m[r][2]}; }
  Vec3D operator*(const Vec3D& v) const { return {Dot(Row(0), v), Dot(Row(1), v), Dot(Row(2), v)}; }
};

// The largest value first; vectors are of length 1 and stand at right angles.
struct EigenSystem {
  double values[3];
  Vec3D vectors[3];
};
// Of many at once, which are turned side by side; each comes out as if it were alone. As many systems as matrices.
void FindEigenSystems(std::span<const Matrix3> symmetric, std::span<EigenSystem> systems);
inline EigenSystem EigenSystemOf(const Matrix3& symmetric) {
  EigenSystem system;
  FindEigenSystems({&symmetric, 1}, {&system, 1});
  return system;
}

// The sum of d[k] times the outer product of axes[k] with itself.
Matrix3 StretchAlong(const Vec3D axes[3], const double d[3]);

// The cube root to about five digits: a third of the exponent, then one step of Halley's method (Kahan).
inline double FastCubeRoot(double a) {
  constexpr std::uint32_t kBias = 715094163;
  const auto high = static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(a) >> 32) / 3 + kBias;
  const double y = std::bit_cast<double>(std::uint64_t(high) << 32), cube = y * y * y;
  return y * (cube + 2 * a) / (2 * cube + a);
}

}  // namespace orlix
