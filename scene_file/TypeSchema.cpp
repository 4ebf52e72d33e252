// The data forms of the reference: a JSON schema, and the tables themselves.

#include <cmath>

#include "scene_file/JsonLayout.h"
#include "scene_file/ParameterText.h"
#include "scene_file/TypeReference.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

Json Numeric(const char* type, const Parameter& row) {
  Json json = {{"type", type}};
  if (std::isfinite(row.min)) json[row.minExclusive ? "exclusiveMinimum" : "minimum"] = row.min;
  if (std::isfinite(row.max)) json["maximum"] = row.max;
  return json;
}

Json Triple(Json item) { return {{"type", "array"}, {"items", std::move(item)}, {"minItems", 3}, {"maxItems", 3}}; }

Json ValueSchema(const Parameter& row) {
  switch (row.type) {
    case ParameterType::Bool:
      return {{"enum", {true, false, 0, 1}}};
    case ParameterType::Int:
      return Numeric("integer", row);
    case ParameterType::Float:
      return Numeric("number", row);
    case ParameterType::Choice: {
      if (row.choices.empty()) return {{"type", "integer"}};
      Json values = Json::array();
      for (const Choice& choice : row.choices) values.push_back(choice.key), values.push_back(choice.value);
      return {{"enum", std::move(values)}};
    }
    case ParameterType::Vector: {
      const Json number = Numeric("number", row);
      return {{"anyOf", {Triple(number), number}}};
    }
    case ParameterType::Link:
      return {{"type", {"string", "null"}}};
    case ParameterType::InExclude:
    case ParameterType::Spline:
    case ParameterType::Gradient:
      return {{"type", "array"}};
    case ParameterType::Script: {
      const Json string = {{"type", "string"}};
      const Json lines = {{"type", "array"}, {"items", string}};
      const Json file = {{"type", "object"},
                         {"properties", {{"file", string}}},
                         {"required", {"file"}},
                         {"additionalProperties", false}};
      return {{"anyOf", {string, lines, file}}};
    }
    default:
      return {{"type", "string"}};
  }
}

Json Described(Json schema, const TypeInfo& type, const Parameter& row) {
  std::string text = row.text;
  if (*row.unit) text += std::string(" [") + row.unit + "]";
  if (const std::string shown = ShownText(type, row); !shown.empty()) text += "; " + shown;
  if (const std::string value = DefaultText(row); !value.empty()) text += "; default " + value;
  schema["description"] = text;
  return schema;
}

Json EntrySchema(const TypeInfo& type) {
  Json names = {type.ShortName(), type.resource, type.id};
  if (*type.alias) names.push_back(type.alias);
  Json properties = {{"type", {{"enum", std::move(names)}, {"description", type.text}}},
                     {"name", {{"type", "string"}}},
                     {"enabled", {{"type", "boolean"}}},
                     {"children", {{"$ref", "#/$defs/entries"}}},
                     {"tags", {{"$ref", "#/$defs/entries"}}}};
  Json ids = Json::object();
  type.ForEachParameter([&](const Parameter& row) {
    if (!row.HoldsValue()) return;
    properties[row.key] = Described(ValueSchema(row), type, row);
    properties[std::string(row.key) + "@"] = {{"$ref", "#/$defs/keyframes"}};
  });
  return {{"type", "object"},
          {"title", type.label},
          {"properties", std::move(properties)},
          {"patternProperties", {{"^[0-9]+( [a-z0-9_]+)?@?$", true}}},
          {"additionalProperties", false}};
}

Json RowAsJson(const TypeInfo& type, const Parameter& row) {
  Json json = {{"id", row.id}, {"key", row.key}, {"type", NameOf(row.type)}, {"unit", row.unit}, {"text", row.text}};
  if (const std::string value = DefaultText(row); !value.empty()) {
    json["default"] = Json::parse(value, nullptr, false);
  }
  if (row.type == ParameterType::Script) json["default"] = row.string;
  if (row.fallbackNumber) json["absent"] = *row.fallbackNumber;
  if (const std::string range = RangeText(row); !range.empty()) json["range"] = range;
  for (const Choice& choice : row.choices) {
    json["choices"].push_back({{"value", choice.value}, {"key", choice.key}, {"text", choice.text}});
  }
  if (row.type == ParameterType::Link || row.type == ParameterType::InExclude) json["takes"] = KindsText(row.linkKinds);
  if (const std::string shown = ShownText(type, row); !shown.empty()) json["shown"] = shown;
  return json;
}

}  // namespace

std::string SceneSchema(const TypeRegistry& types) {
  Json defs, byType = Json::array(), names = Json::array();
  for (const auto& [id, type] : types.types()) {
    const std::string name(WrittenName(*type));
    Json spellings = {type->ShortName(), type->resource, id};
    if (*type->alias) spellings.push_back(type->alias);
    for (const Json& spelling : spellings) names.push_back(spelling);
    byType.push_back({{"if", {{"properties", {{"type", {{"enum", std::move(spellings)}}}}}, {"required", {"type"}}}},
                      {"then", {{"$ref", "#/$defs/" + name}}}});
    defs[name] = EntrySchema(*type);
  }
  defs["entry"] = {{"type", "object"}, {"properties", {{"type", {{"enum", names}}}}}, {"allOf", std::move(byType)}};
  defs["entries"] = {{"type", "array"}, {"items", {{"$ref", "#/$defs/entry"}}}};
  defs["keyframes"] = {{"type", "object"},
                       {"properties", {{"keys", {{"type", "array"}, {"minItems", 1}}}}},
                       {"required", {"keys"}},
                       {"additionalProperties", false}};
  const Json entries = {{"$ref", "#/$defs/entries"}}, entry = {{"$ref", "#/$defs/entry"}};
  const Json either = {{"anyOf", {entries, entry}}};
  const Json properties = {
      {"$schema", {{"type", "string"}}},
      {"orlix", {{"const", 1}}},
      {"fps", {{"type", "integer"}, {"minimum", 1}, {"maximum", 1000}}},
      {"frames", {{"type", "array"}, {"items", {{"type", "integer"}}}, {"minItems", 2}, {"maxItems", 2}}},
      {"up", {{"const", "y"}}},
      {"include", {{"type", {"array", "string"}}, {"items", {{"type", "string"}}}}},
      {"objects", either},
      {"lights", either},
      {"camera", entry},
      {"materials", either},
      {"render", entry},
      {"output", either}};
  const Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                       {"title", "Orlix scene"},
                       {"type", "object"},
                       {"required", {"orlix"}},
                       {"properties", properties},
                       {"additionalProperties", false},
                       {"$defs", std::move(defs)}};
  return LaidOut(schema) + "\n";
}

std::string TypesAsJson(const TypeRegistry& types, const TypeInfo* only) {
  Json list = Json::array();
  for (const auto& entry : types.types()) {
    const TypeInfo& type = *entry.second;
    if (only && only != &type) continue;
    Json rows = Json::array();
    type.ForEachParameter([&](const Parameter& row) { rows.push_back(RowAsJson(type, row)); });
    list.push_back({{"id", type.id},
                    {"type", WrittenName(type)},
                    {"label", type.label},
                    {"role", RoleText(type.role)},
                    {"text", type.text},
                    {"parameters", std::move(rows)}});
  }
  return LaidOut(list) + "\n";
}

}  // namespace orlix
