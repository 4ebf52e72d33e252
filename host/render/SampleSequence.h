#pragma once
// Points that fill the unit square evenly, and what is made of them.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "globals/Vec.h"

namespace orlix {

// Point index of the additive sequence of the plastic number (Roberts 2018, "R2"), turned by an offset.
inline Vec2D SquarePoint(std::uint64_t index, const Vec2D& offset) {
  constexpr double kFirst = 0.7548776662466927, kSecond = 0.5698402909980532;
  const double i = static_cast<double>(index) + 1, x = offset.x + kFirst * i, y = offset.y + kSecond * i;
  return {x - std::floor(x), y - std::floor(y)};
}

// An offset for each pixel, so that neighbours err in different directions.
inline Vec2D PixelOffset(int x, int y, std::uint32_t seed) {
  std::uint64_t h = (static_cast<std::uint64_t>(static_cast<std::uint32_t>(y)) << 32) ^ static_cast<std::uint32_t>(x);
  h += static_cast<std::uint64_t>(seed) * 0x9e3779b97f4a7c15ull;
  // The finaliser of SplitMix64 (Steele et al. 2014).
  h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9ull;
  h = (h ^ (h >> 27)) * 0x94d049bb133111ebull;
  h ^= h >> 31;
  constexpr double kUnit = 1.0 / 4294967296.0;
  return {static_cast<double>(h & 0xffffffffu) * kUnit, static_cast<double>(h >> 32) * kUnit};
}

// Where sample index of count lies in its pixel, (0, 0) to (1, 1): the middle for one sample, otherwise spread (the
// points of Hammersley 1960).
inline Vec2D PlaceInPixel(int index, int count) {
  if (count <= 1) return {0.5, 0.5};
  std::uint32_t bits = static_cast<std::uint32_t>(index);
  double inverse = 0, digit = 0.5;
  for (; bits != 0; bits >>= 1, digit *= 0.5) inverse += (bits & 1u) ? digit : 0;
  return {(index + 0.5) / count, inverse + 0.5 / count};
}

// A direction about a unit normal with a density of cosine / pi (Malley's method).
inline Vec3D CosineDirection(const Vec3D& normal, const Vec2D& square) {
  const double radius = std::sqrt(square.x), angle = 2 * std::numbers::pi * square.y;
  const Vec3D side = Normalized(Cross(normal, std::abs(normal.x) < 0.5 ? Vec3D{1, 0, 0} : Vec3D{0, 0, 1}));
  const Vec3D other = Cross(normal, side);
  return Normalized(side * (radius * std::cos(angle)) + other * (radius * std::sin(angle)) +
                    normal * std::sqrt(std::max(0.0, 1 - square.x)));
}

}  // namespace orlix
