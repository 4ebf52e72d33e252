#pragma once
// A value of a container: what a parameter of a host object holds.

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "globals/Vec.h"

namespace orlix {

class SplineData;
class Gradient;
class InExcludeData;

// The creation number of the linked object in its document; 0 is no link. A link to an object that is gone finds
// nothing.
struct LinkValue {
  std::uint64_t target = 0;
  bool operator==(const LinkValue&) const = default;
};

using SplineValue = std::shared_ptr<const SplineData>;
using GradientValue = std::shared_ptr<const Gradient>;
using InExcludeValue = std::shared_ptr<const InExcludeData>;

using Value = std::variant<std::monostate, std::int64_t, double, Vec3D, std::string, LinkValue, SplineValue,
                           GradientValue, InExcludeValue>;

// Numbers convert to each other: an integer widens, a real is truncated towards zero (and limited to the integer's
// range; NaN gives the fallback). Everything else of another kind gives the fallback.
std::int64_t AsInt(const Value& value, std::int64_t fallback);
double AsDouble(const Value& value, double fallback);
Vec3D AsVector(const Value& value, const Vec3D& fallback);
std::string AsString(const Value& value, const std::string& fallback);

// Equal kind and content; curves, gradients and lists are compared by what they hold.
bool SameValue(const Value& a, const Value& b);

}  // namespace orlix
