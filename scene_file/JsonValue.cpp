#include "scene_file/JsonValue.h"

#include <fmt/format.h>

#include "scene_file/Mistakes.h"

namespace orlix {

double JsonValue::Number() const {
  if (const auto* integer = AsInteger()) return static_cast<double>(*integer);
  const auto* real = std::get_if<double>(&content);
  return real ? *real : 0;
}

const JsonValue* JsonValue::Find(std::string_view key) const {
  const Object* object = AsObject();
  if (!object) return nullptr;
  for (const JsonMember& member : *object) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

namespace {

constexpr std::size_t kMaxShown = 60;

void Append(const JsonValue& value, std::string& out) {
  if (out.size() > kMaxShown) return;
  if (value.IsNull()) out += "null";
  if (const bool* b = value.AsBool()) out += *b ? "true" : "false";
  if (const auto* integer = value.AsInteger()) out += std::to_string(*integer);
  if (const auto* real = std::get_if<double>(&value.content)) out += fmt::format("{}", *real);
  if (const auto* text = value.AsString()) out += Quoted(*text);
  if (const auto* array = value.AsArray()) {
    out += '[';
    for (std::size_t i = 0; i < array->size() && out.size() <= kMaxShown; ++i) {
      if (i) out += ", ";
      Append((*array)[i], out);
    }
    out += ']';
  }
  if (const auto* object = value.AsObject()) out += object->empty() ? "{}" : "{...}";
}

}  // namespace

std::string Shown(const JsonValue& value) {
  std::string out;
  Append(value, out);
  return Shortened(out, kMaxShown);
}

}  // namespace orlix
