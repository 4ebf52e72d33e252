#include "host/description/TypeRegistry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>

namespace orlix {

const char* NameOf(ParameterType type) {
  switch (type) {
    case ParameterType::Bool:
      return "bool";
    case ParameterType::Int:
      return "int";
    case ParameterType::Choice:
      return "choice";
    case ParameterType::Float:
      return "float";
    case ParameterType::Vector:
      return "vector";
    case ParameterType::String:
      return "string";
    case ParameterType::File:
      return "file";
    case ParameterType::Script:
      return "script";
    case ParameterType::Link:
      return "link";
    case ParameterType::InExclude:
      return "list";
    case ParameterType::Spline:
      return "curve";
    case ParameterType::Gradient:
      return "gradient";
    case ParameterType::Button:
      return "button";
    case ParameterType::Group:
      return "group";
  }
  return "unknown";
}

Value DefaultOf(const Parameter& p) {
  switch (p.type) {
    case ParameterType::Bool:
    case ParameterType::Int:
    case ParameterType::Choice:
      return static_cast<std::int64_t>(p.number);
    case ParameterType::Float:
      return p.number;
    case ParameterType::Vector:
      return p.vector;
    case ParameterType::String:
    case ParameterType::File:
    case ParameterType::Script:
      return std::string(p.string);
    case ParameterType::InExclude:
      return std::make_shared<const InExcludeData>();
    case ParameterType::Spline:
      if (!p.knots.empty()) return std::make_shared<const SplineData>(p.knots);
      return {};
    case ParameterType::Gradient:
      if (!p.colours.empty()) return std::make_shared<const Gradient>(p.colours);
      return {};
    case ParameterType::Link:
    case ParameterType::Button:
    case ParameterType::Group:
      return {};
  }
  return {};
}

const Parameter* TypeInfo::Find(int parameterId) const {
  for (const auto& table : {parameters, common}) {
    for (const Parameter& p : table) {
      if (p.id == parameterId) return &p;
    }
  }
  return nullptr;
}

const Parameter* TypeInfo::FindKey(std::string_view key) const {
  for (const auto& table : {parameters, common}) {
    for (const Parameter& p : table) {
      if (key == p.key && Find(p.id) == &p) return &p;  // a type's own row replaces the common one
    }
  }
  return nullptr;
}

std::string_view TypeInfo::ShortName() const {
  const std::string_view name = resource;
  return name.starts_with("zq_") ? name.substr(3) : name;
}

namespace {

std::string_view WithoutPrefix(std::string_view name) { return name.starts_with("zq_") ? name.substr(3) : name; }

}  // namespace

void TypeRegistry::Add(const TypeInfo& type) {
  [[maybe_unused]] const bool newId = types_.emplace(type.id, &type).second;
  [[maybe_unused]] const bool newName = names_.emplace(type.ShortName(), type.id).second;
  assert(newId && newName);
  if (*type.alias) names_.emplace(type.alias, type.id);
}

const TypeInfo* TypeRegistry::Find(int id) const {
  const auto found = types_.find(id);
  return found == types_.end() ? nullptr : found->second;
}

const TypeInfo* TypeRegistry::FindName(std::string_view name) const {
  if (const auto found = names_.find(WithoutPrefix(name)); found != names_.end()) return Find(found->second);
  const bool digits = !name.empty() && name.size() < 10 &&
                      std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
  return digits ? Find(std::stoi(std::string(name))) : nullptr;
}

std::string TypeRegistry::NearestName(std::string_view name) const {
  std::string best;
  int bestDistance = std::max<int>(2, static_cast<int>(name.size()) / 3) + 1;
  for (const auto& [candidate, id] : names_) {
    const int distance = EditDistance(WithoutPrefix(name), candidate, bestDistance);
    if (distance < bestDistance) bestDistance = distance, best = candidate;
  }
  return best;
}

std::string ConditionText(const TypeInfo& type, const Condition& condition) {
  const Parameter* row = type.Find(condition.id);
  const std::string key = row ? row->key : std::to_string(condition.id);
  if (row && row->type == ParameterType::Link) {
    return fmt::format("{} is {}", key, condition.relation == Relation::Is ? "empty" : "linked");
  }
  std::string value = fmt::format("{}", condition.value);
  if (row && row->type == ParameterType::Bool) value = condition.value == 1 ? "true" : "false";
  if (row && row->type == ParameterType::Choice) {
    for (const Choice& choice : row->choices) {
      if (static_cast<double>(choice.value) == condition.value) value = fmt::format("\"{}\"", choice.key);
    }
  }
  return fmt::format("{} {} {}", key,
                     condition.relation == Relation::Is      ? "is"
                     : condition.relation == Relation::IsNot ? "is not"
                                                             : "is above",
                     value);
}

}  // namespace orlix
