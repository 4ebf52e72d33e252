#pragma once
// Warnings as JSON, for statistics and for what commands print with --json.

#include <nlohmann/json.hpp>

#include "fluids/scene/Warnings.h"

namespace orlix {

inline nlohmann::ordered_json AsJson(const Warning& warning) {
  return {{"node", warning.node}, {"key", warning.key}, {"text", warning.text}, {"frame", warning.frame}};
}

inline nlohmann::ordered_json AsJson(const Warnings& warnings) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Warning& warning : warnings.all()) list.push_back(AsJson(warning));
  return list;
}

}  // namespace orlix
