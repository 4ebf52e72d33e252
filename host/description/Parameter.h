#pragma once
// A parameter is written once: a constexpr row in its type's table. The object's defaults, the reader's fallback, the
// checks of scene files, the rules for showing, the written reference and the editor schema all derive from the row.
//
//   static constexpr int kUseFramesId = 1008, kStartFrameId = 1006;  // in the node's class
//
//   static constexpr Parameter kParameters[] = {  // in its Type()
//       BoolParameter(kUseFramesId, "use_frames", false, "Times are given in frames"),
//       IntParameter(kStartFrameId, "start_frame", 0, "frames", "Start").ShownWhen(kUseFramesId, Relation::Is, 1),
//       ButtonParameter(1010, "pick_frame", "Takes the document's frame"),
//   };
//
//   start = handler.GetInt(kStartFrameId);           // in its ReadParameters
//   object.Set(Duration::kStartFrameId, 12);         // in a test
//
// A number that is used outside its row has a name: k, the key, Id. So a search for the key, case aside and without
// underscores, finds the row and every reader.

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <type_traits>

#include "host/description/CurveData.h"
#include "host/description/Value.h"

namespace orlix {

enum class ParameterType {
  Bool,
  Int,
  Choice,  // an integer with named values
  Float,
  Vector,
  String,
  File,       // a path, relative to the scene file
  Script,     // the text of a program, of several lines
  Link,       // one object
  InExclude,  // a list of objects with flags
  Spline,
  Gradient,
  Button,  // does something in an interface; holds nothing
  Group    // a heading in an interface; holds nothing
};

const char* NameOf(ParameterType type);

// One value of a choice; the values are those of an enum.
struct Choice {
  constexpr Choice() = default;
  template <class V>
  constexpr Choice(V number, const char* word, const char* line)
      : value(static_cast<std::int64_t>(number)), key(word), text(line) {}
  std::int64_t value = 0;
  const char* key = "";   // what a scene file may write instead of the number
  const char* text = "";  // one line
};

enum class Relation { Is, IsNot, Above };

// Shown when the numeric value of parameter id stands in this relation to value.
struct Condition {
  int id;
  Relation relation;
  double value;
};

// What kind of object a link may point to: the number of the scene's node list as a bit, and finer kinds above it.
enum LinkKind : std::uint32_t {
  kLinkChannel = 1u << 1,
  kLinkVolume = 1u << 2,
  kLinkEmitter = 1u << 3,
  kLinkOperator = 1u << 4,
  kLinkSolver = 1u << 5,
  kLinkParticles = 1u << 6,
  kLinkForce = 1u << 7,
  kLinkCache = 1u << 8,
  kLinkSettings = 1u << 10,
  kLinkHelper = 1u << 11,
  kLinkDuration = 1u << 12,
  kLinkConstraint = 1u << 13,
  kLinkKernel = 1u << 14,
  kLinkAlignment = 1u << 15,
  kLinkChannelOperator = 1u << 16,
  kLinkInstantOperator = 1u << 17,
  kLinkRoot = 1u << 18,
  kLinkGeometry = 1u << 19,  // a host object with polygons
  kLinkLight = 1u << 20,
  kLinkCamera = 1u << 21,
  kLinkMaterial = 1u << 22,
  kLinkTag = 1u << 23,
  kLinkHostObject = 1u << 24,  // any object that is no node: nulls, cameras, geometry
  kLinkFalloff = 1u << 25,     // a host object that maps a place to a factor
  kLinkProperty = 1u << 26,    // a property of particles
  kLinkShader = 1u << 27,      // a host object that gives a place a colour
  kLinkLook = 1u << 28,        // a material of what has no surface: gas, particles
  kLinkAny = 0xffffffffu
};

struct Parameter {
  int id = 0;
  const char* key = "";  // snake_case, unique in its type
  ParameterType type = ParameterType::Bool;
  const char* unit = "";  // "m", "s", "frames", "K", "host units", ...; "" without a dimension
  const char* text = "";  // one line, what it does

  // The object's default.
  double number = 0;
  Vec3D vector{};
  const char* string = "";
  std::span<const SplineKnot> knots{};
  std::span<const GradientKnot> colours{};

  // What a reader takes when the container has no value, where that differs from the object's default.
  std::optional<double> fallbackNumber{};
  std::optional<Vec3D> fallbackVector{};

  double min = -std::numeric_limits<double>::infinity();
  double max = std::numeric_limits<double>::infinity();
  bool minExclusive = false;
  std::span<const Choice> choices{};  // of a list: words for the flags of an entry, which it writes as its "kind"
  std::uint32_t linkKinds = kLinkAny;
  std::array<Condition, 3> shownWhen{};  // all must hold
  int shownCount = 0;
  bool onlyShows = false;  // by what it is, an interface shows other rows or doesn't; those act whatever it is
  bool hidden = false;     // never shown in an interface; still read
  bool unread = false;     // kept with the object; nothing reads it, and a user who sets it is told so

  constexpr double FallbackNumber() const { return fallbackNumber ? *fallbackNumber : number; }
  constexpr Vec3D FallbackVector() const { return fallbackVector ? *fallbackVector : vector; }
  constexpr bool HoldsValue() const { return type != ParameterType::Button && type != ParameterType::Group; }

  constexpr Parameter Min(double v) const {
    Parameter p = *this;
    p.min = v;
    return p;
  }
  constexpr Parameter Max(double v) const {
    Parameter p = *this;
    p.max = v;
    return p;
  }
  constexpr Parameter Above(double v) const {
    Parameter p = *this;
    p.min = v, p.minExclusive = true;
    return p;
  }
  constexpr Parameter Between(double low, double high) const { return Min(low).Max(high); }
  constexpr Parameter Fallback(double v) const {
    Parameter p = *this;
    p.fallbackNumber = v;
    return p;
  }
  template <class E>
  requires std::is_enum_v<E>
  constexpr Parameter Fallback(E choice) const { return Fallback(static_cast<double>(choice)); }
  constexpr Parameter Fallback(const Vec3D& v) const {
    Parameter p = *this;
    p.fallbackVector = v;
    return p;
  }
  constexpr Parameter ShownWhen(int other, Relation relation, double v) const {
    Parameter p = *this;
    p.shownWhen[p.shownCount++] = {other, relation, v};
    return p;
  }
  template <class E>
  requires std::is_enum_v<E>
  constexpr Parameter ShownWhen(int other, Relation relation, E choice) const {
    return ShownWhen(other, relation, static_cast<double>(choice));
  }
  constexpr Parameter OnlyShows() const {
    Parameter p = *this;
    p.onlyShows = true;
    return p;
  }
  constexpr Parameter Unread() const {
    Parameter p = *this;
    p.unread = true;
    return p;
  }
  constexpr Parameter Hidden() const {
    Parameter p = *this;
    p.hidden = true;
    return p;
  }
};

constexpr Parameter MakeParameter(int id, const char* key, ParameterType type, const char* unit, const char* text) {
  Parameter p;
  p.id = id, p.key = key, p.type = type, p.unit = unit, p.text = text;
  return p;
}
constexpr Parameter BoolParameter(int id, const char* key, bool value, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Bool, "", text);
  p.number = value ? 1 : 0, p.min = 0, p.max = 1;
  return p;
}
constexpr Parameter IntParameter(int id, const char* key, std::int64_t value, const char* unit, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Int, unit, text);
  p.number = static_cast<double>(value), p.min = -2147483648.0, p.max = 2147483647.0;
  return p;
}
template <class V>
constexpr Parameter ChoiceParameter(int id, const char* key, V value, std::span<const Choice> choices,
                                    const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Choice, "", text);
  p.number = static_cast<double>(value), p.choices = choices;
  return p;
}
constexpr Parameter FloatParameter(int id, const char* key, double value, const char* unit, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Float, unit, text);
  p.number = value;
  return p;
}
constexpr Parameter VectorParameter(int id, const char* key, const Vec3D& value, const char* unit, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Vector, unit, text);
  p.vector = value;
  return p;
}
constexpr Parameter StringParameter(int id, const char* key, const char* value, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::String, "", text);
  p.string = value;
  return p;
}
constexpr Parameter FileParameter(int id, const char* key, const char* text) {
  return MakeParameter(id, key, ParameterType::File, "", text);
}
constexpr Parameter ScriptParameter(int id, const char* key, const char* value, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Script, "", text);
  p.string = value;
  return p;
}
constexpr Parameter LinkParameter(int id, const char* key, std::uint32_t kinds, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Link, "", text);
  p.linkKinds = kinds;
  return p;
}
constexpr Parameter ListParameter(int id, const char* key, std::uint32_t kinds, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::InExclude, "", text);
  p.linkKinds = kinds;
  return p;
}
// Entries say by a word which kind of the object they mean.
constexpr Parameter KindListParameter(int id, const char* key, std::uint32_t kinds, std::span<const Choice> words,
                                      const char* text) {
  Parameter p = ListParameter(id, key, kinds, text);
  p.choices = words;
  return p;
}
constexpr Parameter SplineParameter(int id, const char* key, std::span<const SplineKnot> knots, const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Spline, "", text);
  p.knots = knots;
  return p;
}
constexpr Parameter GradientParameter(int id, const char* key, std::span<const GradientKnot> colours,
                                      const char* text) {
  Parameter p = MakeParameter(id, key, ParameterType::Gradient, "", text);
  p.colours = colours;
  return p;
}
constexpr Parameter ButtonParameter(int id, const char* key, const char* text) {
  return MakeParameter(id, key, ParameterType::Button, "", text);
}
constexpr Parameter GroupParameter(int id, const char* key, const char* text) {
  return MakeParameter(id, key, ParameterType::Group, "", text);
}

// The value that a new object's container gets for this row; empty for links, and for curves without knots.
Value DefaultOf(const Parameter& parameter);

}  // namespace orlix
