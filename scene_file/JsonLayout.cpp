#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

// Whether the value takes at most room characters; stops counting when it doesn't.
bool Fits(const Json& json, int& room) {
  if (!json.is_structured()) {
    room -= static_cast<int>(json.dump(-1, ' ', false, Json::error_handler_t::replace).size());
    return room >= 0;
  }
  room -= 2;
  for (const auto& [key, value] : json.items()) {
    room -= json.is_object() ? static_cast<int>(key.size()) + 6 : 2;
    if (!Fits(value, room)) return false;
  }
  return room >= 0;
}

void Append(const Json& json, int indent, int width, std::string& out) {
  if (!json.is_structured() || json.empty()) {
    out += json.dump(-1, ' ', false, Json::error_handler_t::replace);
    return;
  }
  int room = width - indent;
  const bool oneLine = Fits(json, room);
  const std::string lineBreak = oneLine ? " " : "\n" + std::string(static_cast<std::size_t>(indent) + 2, ' ');
  const bool object = json.is_object();
  out += object ? '{' : '[';
  bool first = true;
  for (const auto& [key, value] : json.items()) {
    if (!first) out += ',';
    if (!first || !oneLine || object) out += lineBreak;
    first = false;
    if (object) out += Json(key).dump(-1, ' ', false, Json::error_handler_t::replace) + ": ";
    Append(value, indent + 2, width, out);
  }
  if (oneLine) {
    out += object ? " }" : "]";
  } else {
    out += "\n" + std::string(static_cast<std::size_t>(indent), ' ') + (object ? "}" : "]");
  }
}

}  // namespace

std::string LaidOut(const Json& json, int width) {
  std::string out;
  Append(json, 0, width, out);
  return out;
}

}  // namespace orlix
