#pragma once
// One parameter of one object at one place: what every message about its value starts with.

#include <optional>
#include <string>

#include "host/objects/BaseObject.h"
#include "scene_file/JsonValue.h"
#include "scene_file/Mistakes.h"

namespace orlix {

struct ParameterSite {
  std::shared_ptr<const SourceText> source;
  BaseObject* object;
  const Parameter* row;
  Mistakes* mistakes;
  const char* suffix = "";  // "@" in the keyframes of the parameter

  // `"Plume/Air".cell_size ` and the text.
  void Complain(std::uint32_t offset, const std::string& text) const;
  // `is -3, must be ` and what is allowed; always std::nullopt.
  std::nullopt_t Refuse(const JsonValue& value, const std::string& allowed) const;
};

// A number that single precision can hold, as the engine reads it.
std::optional<double> ReadNumber(const ParameterSite& site, const JsonValue& value, const std::string& allowed);
// "step", "linear" or "cubic".
std::optional<KnotInterpolation> ReadInterpolation(const ParameterSite& site, const JsonValue& value);

}  // namespace orlix
