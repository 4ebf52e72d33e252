#include "host/description/CurveData.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

// y of the cubic Bezier segment from a to b at x. The control points' x are limited to the segment, so that x(s) is
// monotone and has one solution, found by bisection. x counts from a: a vertical tangent there would otherwise turn
// rounding into a visible error.
double BezierValue(const SplineKnot& a, const SplineKnot& b, double x) {
  const double length = b.x - a.x, wanted = x - a.x;
  const double x1 = std::clamp(a.right.x, 0.0, length), x2 = std::clamp(length + b.left.x, 0.0, length);
  const double y1 = a.y + a.right.y, y2 = b.y + b.left.y;
  double low = 0, high = 1;
  for (int round = 0; round < 60; ++round) {
    const double s = 0.5 * (low + high), r = 1 - s;
    const double at = 3 * r * r * s * x1 + 3 * r * s * s * x2 + s * s * s * length;
    (at < wanted ? low : high) = s;
  }
  const double s = 0.5 * (low + high), r = 1 - s;
  return r * r * r * a.y + 3 * r * r * s * y1 + 3 * r * s * s * y2 + s * s * s * b.y;
}

double Ease(double t) { return t * t * (3 - 2 * t); }

}  // namespace

SplineData::SplineData(std::span<const SplineKnot> knots) : knots_(knots.begin(), knots.end()) {
  std::stable_sort(knots_.begin(), knots_.end(), [](const auto& a, const auto& b) { return a.x < b.x; });
}

double SplineData::ValueAt(double x) const {
  if (knots_.empty()) return 0;
  if (!(x > knots_.front().x)) return knots_.front().y;
  if (x >= knots_.back().x) return knots_.back().y;
  const auto next = std::upper_bound(knots_.begin(), knots_.end(), x, [](double v, const auto& k) { return v < k.x; });
  const SplineKnot &a = *(next - 1), &b = *next;
  switch (a.interpolation) {
    case KnotInterpolation::Step:
      return a.y;
    case KnotInterpolation::Linear:
      return a.y + (b.y - a.y) * ((x - a.x) / (b.x - a.x));
    case KnotInterpolation::Cubic:
      break;
  }
  if (a.right == Vec2D() && b.left == Vec2D()) return a.y + (b.y - a.y) * Ease((x - a.x) / (b.x - a.x));
  return BezierValue(a, b, x);
}

Gradient::Gradient(std::span<const GradientKnot> knots) : knots_(knots.begin(), knots.end()) {
  std::stable_sort(knots_.begin(), knots_.end(), [](const auto& a, const auto& b) { return a.position < b.position; });
}

Vec3D Gradient::ColourAt(double position) const {
  if (knots_.empty()) return {};
  if (!(position > knots_.front().position)) return knots_.front().colour;
  if (position >= knots_.back().position) return knots_.back().colour;
  const auto next =
      std::upper_bound(knots_.begin(), knots_.end(), position, [](double v, const auto& k) { return v < k.position; });
  const GradientKnot &a = *(next - 1), &b = *next;
  double t = (position - a.position) / (b.position - a.position);
  if (a.interpolation == KnotInterpolation::Step) t = 0;
  if (a.interpolation == KnotInterpolation::Cubic) t = Ease(t);
  return a.colour + (b.colour - a.colour) * t;
}

bool InExcludeData::Contains(std::uint64_t target) const {
  return std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.target == target; });
}

}  // namespace orlix
