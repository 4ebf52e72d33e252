#include "scene_file/ParameterText.h"

#include <fmt/format.h>

#include <cmath>
#include <vector>

namespace orlix {

namespace {

struct KindName {
  std::uint32_t bit;
  const char* text;
};
constexpr KindName kKindNames[] = {
    {kLinkChannel, "a channel"},
    {kLinkVolume, "a volume"},
    {kLinkEmitter, "an emitter"},
    {kLinkOperator, "an operator"},
    {kLinkSolver, "a solver"},
    {kLinkParticles, "a particle group"},
    {kLinkProperty, "a particle property"},
    {kLinkForce, "a force"},
    {kLinkCache, "a cache"},
    {kLinkSettings, "emission settings"},
    {kLinkHelper, "a helper"},
    {kLinkDuration, "a duration"},
    {kLinkConstraint, "a constraint"},
    {kLinkKernel, "a kernel"},
    {kLinkAlignment, "an alignment"},
    {kLinkChannelOperator, "a channel operator"},
    {kLinkInstantOperator, "an instant operator"},
    {kLinkRoot, "a root object"},
    {kLinkGeometry, "an object with polygons"},
    {kLinkLight, "a light"},
    {kLinkCamera, "a camera"},
    {kLinkMaterial, "a surface's material"},
    {kLinkLook, "a material of gas or particles"},
    {kLinkTag, "a tag"},
    {kLinkHostObject, "an object that is no node"},
    {kLinkFalloff, "a falloff"},
    {kLinkShader, "a shader"},
};

std::string Joined(const std::vector<std::string>& parts, const char* last) {
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += i + 1 == parts.size() ? last : ", ";
    out += parts[i];
  }
  return out;
}

bool HasMin(const Parameter& row) {
  return std::isfinite(row.min) && !(row.type == ParameterType::Int && row.min <= -2147483648.0);
}
bool HasMax(const Parameter& row) {
  return std::isfinite(row.max) && !(row.type == ParameterType::Int && row.max >= 2147483647.0);
}

std::string ChoicesText(const Parameter& row) {
  std::vector<std::string> keys, numbers;
  for (const Choice& choice : row.choices) {
    keys.push_back(fmt::format("\"{}\"", choice.key));
    numbers.push_back(std::to_string(choice.value));
  }
  if (keys.empty()) return "a whole number";
  return fmt::format("{} (or the number: {})", Joined(keys, " or "), Joined(numbers, ", "));
}

std::string VectorText(const Vec3D& v) {
  return fmt::format("[{}, {}, {}]", NumberText(v.x), NumberText(v.y), NumberText(v.z));
}

std::string KnotsText(const Parameter& row) {
  std::vector<std::string> parts;
  for (const SplineKnot& knot : row.knots) parts.push_back(fmt::format("[{}, {}]", knot.x, knot.y));
  for (const GradientKnot& knot : row.colours) {
    parts.push_back(fmt::format("[{}, {}]", knot.position, VectorText(knot.colour)));
  }
  return fmt::format("[{}]", Joined(parts, ", "));
}

std::string ChoiceText(const Parameter& row, double number) {
  for (const Choice& choice : row.choices) {
    if (static_cast<double>(choice.value) == number) return fmt::format("\"{}\"", choice.key);
  }
  return NumberText(number);
}

}  // namespace

std::string NumberText(double value) { return fmt::format("{}", value); }

const char* InterpolationKey(KnotInterpolation interpolation) {
  switch (interpolation) {
    case KnotInterpolation::Step:
      return "step";
    case KnotInterpolation::Linear:
      return "linear";
    case KnotInterpolation::Cubic:
      break;
  }
  return "cubic";
}

std::string RangeText(const Parameter& row) {
  if (row.type == ParameterType::Bool) return {};
  const bool low = HasMin(row), high = HasMax(row);
  if (low && high && !row.minExclusive) return fmt::format("{} to {}", row.min, row.max);
  std::string out;
  if (low) out = fmt::format("{} {}", row.minExclusive ? "above" : "at least", row.min);
  if (high) out += fmt::format("{}at most {}", low ? " and " : "", row.max);
  return out;
}

bool InRange(const Parameter& row, double value) {
  return (row.minExclusive ? value > row.min : value >= row.min) && value <= row.max;
}

std::string AllowedText(const Parameter& row) {
  const std::string range = RangeText(row), tail = range.empty() ? "" : ", " + range;
  switch (row.type) {
    case ParameterType::Bool:
      return "true or false";
    case ParameterType::Int:
      return "a whole number" + tail;
    case ParameterType::Choice:
      return ChoicesText(row);
    case ParameterType::Float:
      return "a number" + tail;
    case ParameterType::Vector:
      return "three numbers [x, y, z], or one for all three" + tail;
    case ParameterType::String:
      return "a text in quotes";
    case ParameterType::File:
      return "a file name in quotes";
    case ParameterType::Script:
      return R"(a text in quotes, a list of its lines, or {"file": a name})";
    case ParameterType::Link:
      return fmt::format("the name of {}", KindsText(row.linkKinds));
    case ParameterType::InExclude:
      if (!row.choices.empty()) {
        return fmt::format(R"(a list of names with kinds, such as [{{"object": "A", "kind": "{}"}}])",
                           row.choices.front().key);
      }
      return R"(a list of names, such as ["A", {"object": "B", "flags": 1}])";
    case ParameterType::Spline:
      return R"(a list of knots [x, y] or [x, y, "step"|"linear"|"cubic"])";
    case ParameterType::Gradient:
      return "a list of knots [position, [red, green, blue]]";
    case ParameterType::Button:
    case ParameterType::Group:
      return "left out, it holds no value";
  }
  return {};
}

std::string KindsText(std::uint32_t kinds) {
  if (kinds == kLinkAny) return "an object";
  std::vector<std::string> names;
  for (const KindName& kind : kKindNames) {
    if (kinds & kind.bit) names.push_back(kind.text);
  }
  return names.empty() ? "an object" : Joined(names, " or ");
}

std::string DefaultText(const Parameter& row) {
  switch (row.type) {
    case ParameterType::Bool:
      return row.number == 1 ? "true" : "false";
    case ParameterType::Choice:
      return ChoiceText(row, row.number);
    case ParameterType::Int:
    case ParameterType::Float:
      return NumberText(row.number);
    case ParameterType::Vector:
      return VectorText(row.vector);
    case ParameterType::String:
    case ParameterType::File:
      return fmt::format("\"{}\"", row.string);
    case ParameterType::Script:  // too long for a line: the pages of the reference show it
      return {};
    case ParameterType::InExclude:
      return "[]";
    case ParameterType::Spline:
    case ParameterType::Gradient:
      return row.knots.empty() && row.colours.empty() ? std::string() : KnotsText(row);
    case ParameterType::Link:
    case ParameterType::Button:
    case ParameterType::Group:
      return {};
  }
  return {};
}

std::string ShownText(const TypeInfo& type, const Parameter& row) {
  std::vector<std::string> parts;
  for (int i = 0; i < row.shownCount; ++i) {
    parts.push_back(ConditionText(type, row.shownWhen[static_cast<std::size_t>(i)]));
  }
  return parts.empty() ? std::string() : "shown when " + Joined(parts, " and ");
}

std::string_view WrittenName(const TypeInfo& type) { return *type.alias ? type.alias : type.ShortName(); }

const char* RoleText(TypeRole role) {
  switch (role) {
    case TypeRole::Node:
      return "node";
    case TypeRole::Root:
      return "root";
    case TypeRole::Object:
      return "object";
    case TypeRole::Tag:
      return "tag";
    case TypeRole::Light:
      return "light";
    case TypeRole::Camera:
      return "camera";
    case TypeRole::Material:
      return "material";
    case TypeRole::RenderSettings:
      return "render settings";
    case TypeRole::Output:
      return "output";
  }
  return "unknown";
}

}  // namespace orlix
