#include "host/description/Value.h"

#include <cmath>
#include <limits>

#include "host/description/CurveData.h"

namespace orlix {

std::int64_t AsInt(const Value& value, std::int64_t fallback) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  if (const auto* real = std::get_if<double>(&value)) {
    if (std::isnan(*real)) return fallback;
    constexpr double kLimit = 9223372036854775807.0;
    if (*real >= kLimit) return std::numeric_limits<std::int64_t>::max();
    if (*real <= -kLimit) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(*real);
  }
  return fallback;
}

double AsDouble(const Value& value, double fallback) {
  if (const auto* real = std::get_if<double>(&value)) return *real;
  if (const auto* number = std::get_if<std::int64_t>(&value)) return static_cast<double>(*number);
  return fallback;
}

Vec3D AsVector(const Value& value, const Vec3D& fallback) {
  const auto* vector = std::get_if<Vec3D>(&value);
  return vector ? *vector : fallback;
}

std::string AsString(const Value& value, const std::string& fallback) {
  const auto* text = std::get_if<std::string>(&value);
  return text ? *text : fallback;
}

bool SameValue(const Value& a, const Value& b) {
  if (a.index() != b.index()) return false;
  const auto sameContent = [](const auto& x, const auto& y) { return x == y || (x && y && *x == *y); };
  if (const auto* spline = std::get_if<SplineValue>(&a)) return sameContent(*spline, std::get<SplineValue>(b));
  if (const auto* gradient = std::get_if<GradientValue>(&a)) return sameContent(*gradient, std::get<GradientValue>(b));
  if (const auto* list = std::get_if<InExcludeValue>(&a)) return sameContent(*list, std::get<InExcludeValue>(b));
  return a == b;
}

}  // namespace orlix
