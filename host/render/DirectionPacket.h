#pragma once
// Directions that go to the ray tracer together: a packet costs it two fifths of what its rays cost one by one.

#include <cstdint>

#include "globals/Vec.h"

namespace orlix {

struct DirectionPacket {
  static constexpr int kSize = 16;
  alignas(64) double x[kSize], y[kSize], z[kSize];

  Vec3D operator[](int i) const { return {x[i], y[i], z[i]}; }
};

// Unit directions about a unit normal with a density of cosine / pi (Malley's method), of the points index,
// index + 1 ... of Sobol's sequence turned by an offset. The first count of the packet are filled.
void FillWithCosineDirections(const Vec3D& normal, std::uint32_t index, int count, const Vec2D& offset,
                              DirectionPacket& packet);

}  // namespace orlix
