#include "host/render/DirectionPacket.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "globals/Multiversion.h"
#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

// Sine and cosine of a turn in [0, 1): an eighth of it at most from a multiple of a quarter, by Taylor's series, with
// errors below 1e-11.
ORLIX_INLINE void SineAndCosine(double turn, double& sine, double& cosine) {
  const double quarter = std::floor(4 * turn + 0.5), a = (turn - 0.25 * quarter) * (2 * std::numbers::pi), s = a * a;
  const double near =
      a * (1 + s * (-1.0 / 6 + s * (1.0 / 120 + s * (-1.0 / 5040 + s * (1.0 / 362880 + s * (-1.0 / 39916800))))));
  const double far =
      1 + s * (-1.0 / 2 + s * (1.0 / 24 + s * (-1.0 / 720 + s * (1.0 / 40320 + s * (-1.0 / 3628800 + s / 479001600)))));
  // Quarters 0 and 4 are the same; 1 and 3 change places of the two.
  const bool odd = quarter == 1 || quarter == 3;
  const double across = odd ? far : near, along = odd ? near : far;
  sine = quarter == 2 || quarter == 3 ? -across : across;
  cosine = quarter == 1 || quarter == 2 ? -along : along;
}

ORLIX_MULTIVERSION void Fill(const Vec3D& normal, const Vec3D& side, const Vec3D& other, const double* first,
                             const double* second, int count, DirectionPacket& packet) {
  for (int i = 0; i < count; ++i) {
    double sine, cosine;
    SineAndCosine(second[i], sine, cosine);
    const double radius = std::sqrt(first[i]), up = std::sqrt(std::max(0.0, 1 - first[i]));
    const double a = radius * cosine, b = radius * sine;
    packet.x[i] = side.x * a + other.x * b + normal.x * up;
    packet.y[i] = side.y * a + other.y * b + normal.y * up;
    packet.z[i] = side.z * a + other.z * b + normal.z * up;
  }
}

}  // namespace

void FillWithCosineDirections(const Vec3D& normal, std::uint32_t index, int count, const Vec2D& offset,
                              DirectionPacket& packet) {
  const Vec3D side = Normalized(Cross(normal, std::abs(normal.x) < 0.5 ? Vec3D{1, 0, 0} : Vec3D{0, 0, 1}));
  double first[DirectionPacket::kSize], second[DirectionPacket::kSize];
  for (int i = 0; i < count; ++i) {
    const Vec2D point = SobolPoint(index + static_cast<std::uint32_t>(i), offset);
    first[i] = point.x, second[i] = point.y;
  }
  Fill(normal, side, Cross(normal, side), first, second, count, packet);
}

}  // namespace orlix
