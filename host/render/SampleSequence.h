#pragma once
// Points that fill the unit square evenly, and what is made of them.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "globals/Vec.h"
#include "host/render/BlueNoise.h"

namespace orlix {

// Point index of the additive sequence of the plastic number (Roberts 2018, "R2"), turned by an offset: for areas.
inline Vec2D SquarePoint(std::uint64_t index, const Vec2D& offset) {
  constexpr double kFirst = 0.7548776662466927, kSecond = 0.5698402909980532;
  const double i = static_cast<double>(index) + 1, x = offset.x + kFirst * i, y = offset.y + kSecond * i;
  return {x - std::floor(x), y - std::floor(y)};
}

// Point index of the first two dimensions of Sobol's sequence (1967), turned by an offset: for directions. Each of its
// coordinates is as even as the pair; as angles, those of SquarePoint crowd about seven directions up to 86 points.
inline Vec2D SobolPoint(std::uint32_t index, const Vec2D& offset) {
  constexpr double kWhole = 1.0 / 4294967296.0;
  std::uint32_t first = 0, second = 0;
  for (std::uint32_t a = 1u << 31, b = a; index != 0; index >>= 1, a >>= 1, b ^= b >> 1) {
    if (index & 1u) first ^= a, second ^= b;
  }
  const double x = offset.x + first * kWhole, y = offset.y + second * kWhole;
  return {x - std::floor(x), y - std::floor(y)};
}

// Offsets for each pixel: blue noise, so that neighbours err in different directions. The seed moves the tile; draws
// are for what a pixel needs beside its square.
inline Vec2D PixelOffset(int x, int y, std::uint32_t seed) {
  const std::uint32_t h = seed * 0x9e3779b9u;
  const int sx = x + static_cast<int>(h >> 26), sy = y + static_cast<int>(h >> 20 & 63u);
  return {BlueNoise(sx, sy), BlueNoise(sx + 23, sy + 41)};
}
// Draw n of a sample in [0, 1): a further offset of the pixel, and the golden ratio's sequence over its samples.
inline double PixelDraw(int x, int y, std::uint32_t seed, int n, int sample) {
  constexpr double kGolden = 0.6180339887498949;
  const Vec2D offset = PixelOffset(x + 11 * (n + 1), y + 37 * (n + 1), seed);
  const double v = offset.x + kGolden * sample;
  return v - std::floor(v);
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

// Where all samples of a pixel lie. Progressive: any number of the first ones is spread, for pixels that may stop
// early.
inline std::vector<Vec2D> PlacesInPixel(int count, bool progressive) {
  std::vector<Vec2D> places;
  for (int n = 0; n < count; ++n) {
    places.push_back(progressive ? SquarePoint(static_cast<std::uint64_t>(n), {}) : PlaceInPixel(n, count));
  }
  return places;
}

// A point of the unit disc, evenly.
inline Vec2D DiscPoint(const Vec2D& square) {
  const double radius = std::sqrt(square.x), angle = 2 * std::numbers::pi * square.y;
  return {radius * std::cos(angle), radius * std::sin(angle)};
}

// When a sample of a pixel looks, from 0 to 1 of the shutter, and through which point of the lens, in the unit disc.
struct SampleMoment {
  double time = 0.5;
  Vec2D lens;
};
inline SampleMoment MomentOf(int x, int y, std::uint32_t seed, int sample, bool shutter, bool lens) {
  SampleMoment moment;
  if (shutter) moment.time = PixelDraw(x, y, seed, 1, sample);
  if (!lens) return moment;
  const Vec2D offset{PixelDraw(x, y, seed, 2, 0), PixelDraw(x, y, seed, 3, 0)};
  moment.lens = DiscPoint(SobolPoint(static_cast<std::uint32_t>(sample), offset));
  return moment;
}

}  // namespace orlix
