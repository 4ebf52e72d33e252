#include "scene_file/ValueReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "scene_file/ParameterText.h"

namespace orlix {

namespace {

constexpr double kMaxKeyFrame = 1e7;

std::optional<double> ReadInRange(const ParameterSite& site, const JsonValue& value) {
  const auto number = ReadNumber(site, value, AllowedText(*site.row));
  if (!number || InRange(*site.row, *number)) return number;
  return site.Refuse(value, RangeText(*site.row));
}

std::optional<Value> ReadWhole(const ParameterSite& site, const JsonValue& value) {
  const Parameter& row = *site.row;
  if (!value.IsNumber()) return site.Refuse(value, AllowedText(row));
  const double number = value.Number();
  if (number != std::trunc(number)) return site.Refuse(value, AllowedText(row));
  const double kept = std::clamp(number, -2147483648.0, 2147483647.0);
  if (!InRange(row, kept)) return site.Refuse(value, RangeText(row));
  if (kept != number) return site.Refuse(value, "within -2147483648 to 2147483647");
  return Value(static_cast<std::int64_t>(number));
}

std::optional<Value> ReadBool(const ParameterSite& site, const JsonValue& value) {
  if (const bool* flag = value.AsBool()) return Value(std::int64_t(*flag));
  if (value.IsNumber() && (value.Number() == 0 || value.Number() == 1)) return Value(std::int64_t(value.Number()));
  return site.Refuse(value, AllowedText(*site.row));
}

std::optional<Value> ReadChoice(const ParameterSite& site, const JsonValue& value) {
  const Parameter& row = *site.row;
  if (row.choices.empty()) return ReadWhole(site, value);
  std::vector<std::string_view> keys;
  for (const Choice& choice : row.choices) {
    if (const std::string* key = value.AsString(); key && *key == choice.key) return Value(choice.value);
    if (value.IsNumber() && value.Number() == static_cast<double>(choice.value)) return Value(choice.value);
    keys.push_back(choice.key);
  }
  const std::string* key = value.AsString();
  return site.Refuse(value, AllowedText(row) + (key ? DidYouMean(NearestOf(*key, keys)) : std::string()));
}

std::optional<Vec3D> ReadTriple(const ParameterSite& site, const JsonValue& value, const std::string& allowed) {
  const JsonValue::Array* parts = value.AsArray();
  if (!parts || parts->size() != 3) return site.Refuse(value, allowed);
  Vec3D triple;
  for (int axis = 0; axis < 3; ++axis) {
    const auto number = ReadNumber(site, (*parts)[static_cast<std::size_t>(axis)], "a number");
    if (!number) return std::nullopt;
    triple[axis] = *number;
  }
  return triple;
}

std::optional<Value> ReadVector(const ParameterSite& site, const JsonValue& value) {
  const std::string allowed = AllowedText(*site.row);
  std::optional<Vec3D> vector;
  if (value.IsNumber()) {
    if (const auto number = ReadNumber(site, value, allowed)) vector = Vec3D(*number);
  } else {
    vector = ReadTriple(site, value, allowed);
  }
  if (!vector) return std::nullopt;
  for (int axis = 0; axis < 3; ++axis) {
    if (!InRange(*site.row, (*vector)[axis])) return site.Refuse(value, RangeText(*site.row) + " in each component");
  }
  return Value(*vector);
}

std::optional<Vec2D> ReadPair(const ParameterSite& site, const JsonValue& value) {
  const JsonValue::Array* parts = value.AsArray();
  if (!parts || parts->size() != 2) return site.Refuse(value, "two numbers [dx, dy]");
  const auto x = ReadNumber(site, (*parts)[0], "a number"), y = ReadNumber(site, (*parts)[1], "a number");
  if (!x || !y) return std::nullopt;
  return Vec2D{*x, *y};
}

// {"x": 0, "y": 1, "interpolation": "cubic", "left": [-1, 0], "right": [1, 0]}
std::optional<SplineKnot> ReadKnotObject(const ParameterSite& site, const JsonValue& value,
                                         const JsonValue::Object& members) {
  SplineKnot knot;
  bool good = true, hasX = false, hasY = false;
  for (const JsonMember& member : members) {
    if (member.key == "x" || member.key == "y") {
      const auto number = ReadNumber(site, member.value, "a number");
      good = good && number;
      (member.key == "x" ? hasX : hasY) = true;
      (member.key == "x" ? knot.x : knot.y) = number.value_or(0);
    } else if (member.key == "interpolation") {
      const auto kind = ReadInterpolation(site, member.value);
      good = good && kind;
      knot.interpolation = kind.value_or(KnotInterpolation::Linear);
    } else if (member.key == "left" || member.key == "right") {
      const auto tangent = ReadPair(site, member.value);
      good = good && tangent;
      (member.key == "left" ? knot.left : knot.right) = tangent.value_or(Vec2D());
    } else {
      site.Complain(member.keyOffset,
                    fmt::format("has a knot with {}; a knot has x, y, interpolation, left, right", Quoted(member.key)));
      good = false;
    }
  }
  if (good && !(hasX && hasY)) return site.Refuse(value, "a knot with x and y");
  return good ? std::optional(knot) : std::nullopt;
}

std::optional<SplineKnot> ReadKnot(const ParameterSite& site, const JsonValue& value) {
  if (const auto* members = value.AsObject()) return ReadKnotObject(site, value, *members);
  const JsonValue::Array* parts = value.AsArray();
  if (!parts || parts->size() < 2 || parts->size() > 3) {
    return site.Refuse(value, R"(a knot [x, y] or [x, y, "step"|"linear"|"cubic"])");
  }
  const auto x = ReadNumber(site, (*parts)[0], "a number"), y = ReadNumber(site, (*parts)[1], "a number");
  const auto kind = parts->size() == 3 ? ReadInterpolation(site, (*parts)[2]) : KnotInterpolation::Linear;
  if (!x || !y || !kind) return std::nullopt;
  return SplineKnot{*x, *y, *kind, {}, {}};
}

std::optional<Value> ReadSpline(const ParameterSite& site, const JsonValue& value) {
  const JsonValue::Array* items = value.AsArray();
  if (!items) return site.Refuse(value, AllowedText(*site.row));
  std::vector<SplineKnot> knots;
  for (const JsonValue& item : *items) {
    if (const auto knot = ReadKnot(site, item)) knots.push_back(*knot);
  }
  if (knots.size() != items->size()) return std::nullopt;
  return Value(std::make_shared<const SplineData>(knots));
}

std::optional<GradientKnot> ReadColourKnot(const ParameterSite& site, const JsonValue& value) {
  constexpr const char* kAllowed = R"(a knot [position, [red, green, blue]], and "step", "linear" or "cubic" after it)";
  const JsonValue::Array* parts = value.AsArray();
  if (!parts || parts->size() < 2 || parts->size() > 3) return site.Refuse(value, kAllowed);
  const auto position = ReadNumber(site, (*parts)[0], "a number, 0 to 1");
  const auto colour = ReadTriple(site, (*parts)[1], "a colour [red, green, blue]");
  const auto kind = parts->size() == 3 ? ReadInterpolation(site, (*parts)[2]) : KnotInterpolation::Linear;
  if (!position || !colour || !kind) return std::nullopt;
  if (*position < 0 || *position > 1) return site.Refuse((*parts)[0], "0 to 1");
  return GradientKnot{*position, *colour, *kind};
}

std::optional<Value> ReadGradient(const ParameterSite& site, const JsonValue& value) {
  const JsonValue::Array* items = value.AsArray();
  if (!items) return site.Refuse(value, AllowedText(*site.row));
  std::vector<GradientKnot> knots;
  for (const JsonValue& item : *items) {
    if (const auto knot = ReadColourKnot(site, item)) knots.push_back(*knot);
  }
  if (knots.size() != items->size()) return std::nullopt;
  return Value(std::make_shared<const Gradient>(knots));
}

struct Key {
  double frame;
  Vec3D value;  // a scalar stands in x
  KnotInterpolation interpolation;
};

std::optional<Key> ReadKey(const ParameterSite& site, const JsonValue& item) {
  const JsonValue::Array* parts = item.AsArray();
  if (!parts || parts->size() < 2 || parts->size() > 3) {
    return site.Refuse(item, R"(a key [frame, value] or [frame, value, "step"|"linear"|"cubic"])");
  }
  const ParameterType type = site.row->type;
  const bool steps = type == ParameterType::Bool || type == ParameterType::Choice;
  const auto frame = ReadNumber(site, (*parts)[0], "a frame number");
  const auto value = ReadValue(site, (*parts)[1]);
  const auto kind = parts->size() == 3 ? ReadInterpolation(site, (*parts)[2])
                    : steps            ? KnotInterpolation::Step
                                       : KnotInterpolation::Linear;
  if (!frame || !value || !kind) return std::nullopt;
  if (std::abs(*frame) > kMaxKeyFrame) {
    return site.Refuse((*parts)[0], fmt::format("a frame within -{0} to {0}", kMaxKeyFrame));
  }
  const Vec3D number = type == ParameterType::Vector ? AsVector(*value, {}) : Vec3D(AsDouble(*value, 0), 0, 0);
  return Key{*frame, number, *kind};
}

}  // namespace

std::optional<Value> ReadValue(const ParameterSite& site, const JsonValue& value) {
  switch (site.row->type) {
    case ParameterType::Bool:
      return ReadBool(site, value);
    case ParameterType::Int:
      return ReadWhole(site, value);
    case ParameterType::Choice:
      return ReadChoice(site, value);
    case ParameterType::Float:
      if (const auto number = ReadInRange(site, value)) return Value(*number);
      return std::nullopt;
    case ParameterType::Vector:
      return ReadVector(site, value);
    case ParameterType::String:
    case ParameterType::File:
      if (const auto* text = value.AsString()) return Value(*text);
      return site.Refuse(value, AllowedText(*site.row));
    case ParameterType::Spline:
      return ReadSpline(site, value);
    case ParameterType::Gradient:
      return ReadGradient(site, value);
    case ParameterType::Script:
    case ParameterType::Link:
    case ParameterType::InExclude:
    case ParameterType::Button:
    case ParameterType::Group:
      break;
  }
  return site.Refuse(value, AllowedText(*site.row));
}

bool CanHaveKeys(ParameterType type) {
  return type == ParameterType::Bool || type == ParameterType::Int || type == ParameterType::Choice ||
         type == ParameterType::Float || type == ParameterType::Vector;
}

std::optional<KeyTrack> ReadKeys(const ParameterSite& site, const JsonValue& value) {
  if (!CanHaveKeys(site.row->type)) {
    site.Complain(value.offset, fmt::format("is a {}, which can't have keyframes", NameOf(site.row->type)));
    return std::nullopt;
  }
  const JsonValue* list = value.Find("keys");
  const JsonValue::Array* items = list ? list->AsArray() : nullptr;
  if (!items || items->empty() || value.AsObject()->size() != 1) {
    return site.Refuse(value, R"({"keys": [[frame, value], [frame, value, "linear"], ...]})");
  }
  std::vector<Key> keys;
  for (const JsonValue& item : *items) {
    if (const auto key = ReadKey(site, item)) keys.push_back(*key);
  }
  if (keys.size() != items->size()) return std::nullopt;
  std::stable_sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) { return a.frame < b.frame; });
  const auto twin = std::adjacent_find(keys.begin(), keys.end(), [](auto& a, auto& b) { return a.frame == b.frame; });
  if (twin != keys.end()) {
    site.Complain(list->offset, fmt::format("has two keys at frame {}", twin->frame));
    return std::nullopt;
  }
  KeyTrack track{site.object->creationNumber(), site.row->id, {}};
  for (int axis = 0; axis < (site.row->type == ParameterType::Vector ? 3 : 1); ++axis) {
    std::vector<SplineKnot> knots;
    for (const Key& key : keys) knots.push_back({key.frame, key.value[axis], key.interpolation, {}, {}});
    track.components.emplace_back(knots);
  }
  return track;
}

}  // namespace orlix
