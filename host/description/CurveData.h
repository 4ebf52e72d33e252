#pragma once
// The host's custom data: curves, colour gradients, and lists of objects with flags.

#include <cstdint>
#include <span>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

enum class KnotInterpolation { Step, Linear, Cubic };

// A knot of a curve. Tangents are offsets from the knot and used by cubic segments; zero tangents give an ease.
struct SplineKnot {
  double x = 0, y = 0;
  KnotInterpolation interpolation = KnotInterpolation::Linear;
  Vec2D left{}, right{};
  constexpr bool operator==(const SplineKnot&) const = default;
};

// A curve y(x) through knots in ascending x. Before the first and after the last knot it keeps their y.
class SplineData {
 public:
  SplineData() = default;
  // Knots are sorted by x, stably.
  explicit SplineData(std::span<const SplineKnot> knots);
  double ValueAt(double x) const;
  const std::vector<SplineKnot>& knots() const { return knots_; }
  bool operator==(const SplineData&) const = default;

 private:
  std::vector<SplineKnot> knots_;
};

struct GradientKnot {
  double position = 0;  // 0 to 1
  Vec3D colour;
  KnotInterpolation interpolation = KnotInterpolation::Linear;
  constexpr bool operator==(const GradientKnot&) const = default;
};

// Colours over 0 to 1; cubic segments ease (3t^2 - 2t^3).
class Gradient {
 public:
  Gradient() = default;
  explicit Gradient(std::span<const GradientKnot> knots);
  Vec3D ColourAt(double position) const;
  const std::vector<GradientKnot>& knots() const { return knots_; }
  bool operator==(const Gradient&) const = default;

 private:
  std::vector<GradientKnot> knots_;
};

// A list of objects, by creation number, each with flags.
class InExcludeData {
 public:
  struct Entry {
    std::uint64_t target = 0;
    std::uint32_t flags = 1;
    bool operator==(const Entry&) const = default;
  };
  std::vector<Entry> entries;

  bool Contains(std::uint64_t target) const;
  bool operator==(const InExcludeData&) const = default;
};

}  // namespace orlix
