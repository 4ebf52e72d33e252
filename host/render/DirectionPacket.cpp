#include "host/render/DirectionPacket.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "globals/LaneMath.h"
#include "globals/Multiversion.h"
#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

ORLIX_MULTIVERSION void Fill(const Vec3D& normal, const Vec3D& side, const Vec3D& other, const double* first,
                             const double* second, int count, DirectionPacket& packet) {
  for (int i = 0; i < count; ++i) {
    double sine, cosine;
    SinCosOf(second[i] * (2 * std::numbers::pi), sine, cosine);
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
