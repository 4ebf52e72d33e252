#include "scene_file/SceneWriter.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "scene_file/JsonLayout.h"
#include "scene_file/ObjectIndex.h"
#include "scene_file/ParameterText.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

Json OfVector(const Vec3D& v) { return Json::array({v.x, v.y, v.z}); }

Json OfKnot(const SplineKnot& knot) {
  if (knot.left != Vec2D() || knot.right != Vec2D()) {
    return {{"x", knot.x},
            {"y", knot.y},
            {"interpolation", InterpolationKey(knot.interpolation)},
            {"left", Json::array({knot.left.x, knot.left.y})},
            {"right", Json::array({knot.right.x, knot.right.y})}};
  }
  Json json = Json::array({knot.x, knot.y});
  if (knot.interpolation != KnotInterpolation::Linear) json.push_back(InterpolationKey(knot.interpolation));
  return json;
}

Json OfGradient(const Gradient& gradient) {
  Json json = Json::array();
  for (const GradientKnot& knot : gradient.knots()) {
    Json item = Json::array({knot.position, OfVector(knot.colour)});
    if (knot.interpolation != KnotInterpolation::Linear) item.push_back(InterpolationKey(knot.interpolation));
    json.push_back(std::move(item));
  }
  return json;
}

class Writer {
 public:
  explicit Writer(const BaseDocument& document) : document_(document), index_(document) {
    for (const KeyTrack& track : document.tracks()) tracks_[track.object].push_back(&track);
  }

  Json Scene() const {
    Json scene = {{"orlix", 1},
                  {"fps", static_cast<std::int64_t>(document_.fps)},
                  {"frames", {document_.minTime.Frame(document_.fps), document_.maxTime.Frame(document_.fps)}}};
    for (const auto& object : document_.objects()) {
      const char* section = SectionOf(object->type().role);
      if (object->type().role == TypeRole::RenderSettings) {
        scene[section] = OfObject(*object);
      } else {
        scene[section].push_back(OfObject(*object));
      }
    }
    return scene;
  }

 private:
  const BaseDocument& document_;
  ObjectIndex index_;
  std::map<std::uint64_t, std::vector<const KeyTrack*>> tracks_;

  static const char* SectionOf(TypeRole role) {
    switch (role) {
      case TypeRole::Material:
        return "materials";
      case TypeRole::RenderSettings:
        return "render";
      case TypeRole::Output:
        return "output";
      default:
        return "objects";
    }
  }

  std::string NameOf(std::uint64_t target) const {
    const BaseObject* object = document_.FindObject(target);
    return object ? index_.ReferenceTo(*object) : std::string();
  }

  Json OfObject(const BaseObject& object) const {
    Json json = {{"type", WrittenName(object.type())}, {"name", object.name}};
    object.type().ForEachParameter([&](const Parameter& row) {
      const Value& value = object.Get(row.id);
      if (!row.HoldsValue() || std::holds_alternative<std::monostate>(value)) return;
      if (!SameValue(value, DefaultOf(row))) json[row.key] = OfValue(row, value);
    });
    if (const auto found = tracks_.find(object.creationNumber()); found != tracks_.end()) {
      for (const KeyTrack* track : found->second) {
        if (const Parameter* row = object.type().Find(track->parameter)) {
          json[std::string(row->key) + "@"]["keys"] = OfTrack(*row, *track);
        }
      }
    }
    for (const auto& tag : object.tags()) json["tags"].push_back(OfObject(*tag));
    for (const auto& child : object.children()) json["children"].push_back(OfObject(*child));
    return json;
  }

  static Json OfNumber(const Parameter& row, double number) {
    if (row.type == ParameterType::Float) return number;
    const auto whole = static_cast<std::int64_t>(number);
    if (row.type == ParameterType::Bool && (whole == 0 || whole == 1)) return whole == 1;
    for (const Choice& choice : row.choices) {
      if (choice.value == whole) return choice.key;
    }
    return whole;
  }

  Json OfValue(const Parameter& row, const Value& value) const {
    switch (row.type) {
      case ParameterType::Vector:
        return OfVector(AsVector(value, {}));
      case ParameterType::String:
      case ParameterType::File:
        return AsString(value, "");
      case ParameterType::Script:
        return OfLines(AsString(value, ""));
      case ParameterType::Link: {
        const auto* link = std::get_if<LinkValue>(&value);
        const std::string name = link ? NameOf(link->target) : std::string();
        return name.empty() ? Json() : Json(name);
      }
      case ParameterType::InExclude:
        return OfList(row, value);
      case ParameterType::Spline: {
        Json json = Json::array();
        if (const auto* curve = std::get_if<SplineValue>(&value); curve && *curve) {
          for (const SplineKnot& knot : (*curve)->knots()) json.push_back(OfKnot(knot));
        }
        return json;
      }
      case ParameterType::Gradient: {
        const auto* gradient = std::get_if<GradientValue>(&value);
        return gradient && *gradient ? OfGradient(**gradient) : Json::array();
      }
      default:
        return OfNumber(row, AsDouble(value, 0));
    }
  }

  // A text of several lines is easier to read as a list of them.
  static Json OfLines(const std::string& text) {
    if (text.find('\n') == std::string::npos) return text;
    Json lines = Json::array();
    std::size_t from = 0, end = 0;
    do {
      end = text.find('\n', from);
      lines.push_back(text.substr(from, end - from));
      from = end + 1;
    } while (end != std::string::npos);
    return lines;
  }

  Json OfList(const Parameter& row, const Value& value) const {
    Json json = Json::array();
    const auto* list = std::get_if<InExcludeValue>(&value);
    if (!list || !*list) return json;
    for (const InExcludeData::Entry& entry : (*list)->entries) {
      const std::string name = NameOf(entry.target);
      if (name.empty()) continue;
      const auto word = std::find_if(row.choices.begin(), row.choices.end(),
                                     [&](const Choice& choice) { return choice.value == entry.flags; });
      if (word != row.choices.end())
        json.push_back({{"object", name}, {"kind", word->key}});
      else if (entry.flags == 1)
        json.push_back(name);
      else
        json.push_back({{"object", name}, {"flags", entry.flags}});
    }
    return json;
  }

  static Json OfTrack(const Parameter& row, const KeyTrack& track) {
    Json keys = Json::array();
    const auto& first = track.components.at(0).knots();
    for (std::size_t i = 0; i < first.size(); ++i) {
      Json value = track.components.size() == 3
                       ? Json::array({first[i].y, track.components[1].knots()[i].y, track.components[2].knots()[i].y})
                       : OfNumber(row, first[i].y);
      keys.push_back(Json::array({first[i].x, std::move(value), InterpolationKey(first[i].interpolation)}));
    }
    return keys;
  }
};

// The place of a value that is no finite number, as a JSON pointer; empty when all are.
std::string NonFinite(const Json& json, const std::string& at) {
  if (json.is_number_float() && !std::isfinite(json.get<double>())) return at;
  if (!json.is_structured()) return {};
  for (const auto& [key, value] : json.items()) {
    if (std::string found = NonFinite(value, at + "/" + key); !found.empty()) return found;
  }
  return {};
}

}  // namespace

Result<std::string> WriteScene(const BaseDocument& document) {
  const Json scene = Writer(document).Scene();
  if (const std::string place = NonFinite(scene, ""); !place.empty()) {
    return Error{ErrorKind::Internal, "no scene file can hold the value at " + place + ": it is no finite number"};
  }
  return LaidOut(scene) + "\n";
}

}  // namespace orlix
