#include "scene_file/ParameterSite.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

#include "scene_file/ParameterText.h"

namespace orlix {

void ParameterSite::Complain(std::uint32_t offset, const std::string& text) const {
  const bool shown = !mistakes->Full();
  mistakes->Add({source, offset},
                shown ? fmt::format("{}.{}{} {}", Quoted(object->Path(), 300), row->key, suffix, text) : std::string());
}

std::nullopt_t ParameterSite::Refuse(const JsonValue& value, const std::string& allowed) const {
  Complain(value.offset, fmt::format("is {}, must be {}", Shown(value), allowed));
  return std::nullopt;
}

std::optional<double> ReadNumber(const ParameterSite& site, const JsonValue& value, const std::string& allowed) {
  constexpr double kLargest = std::numeric_limits<float>::max();
  if (!value.IsNumber()) return site.Refuse(value, allowed);
  const double number = value.Number();
  if (!(std::abs(number) <= kLargest)) return site.Refuse(value, fmt::format("within -{0} to {0}", kLargest));
  // The engine computes in single precision in places, and there such a number is 0.
  return std::abs(number) < static_cast<double>(std::numeric_limits<float>::min()) ? 0 : number;
}

std::optional<KnotInterpolation> ReadInterpolation(const ParameterSite& site, const JsonValue& value) {
  const std::string* text = value.AsString();
  for (const auto kind : {KnotInterpolation::Step, KnotInterpolation::Linear, KnotInterpolation::Cubic}) {
    if (text && *text == InterpolationKey(kind)) return kind;
  }
  return site.Refuse(value, R"("step", "linear" or "cubic")");
}

}  // namespace orlix
