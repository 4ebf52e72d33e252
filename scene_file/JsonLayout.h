#pragma once
// JSON for readers: what fits in a line stands in one.

#include <nlohmann/json.hpp>
#include <string>

namespace orlix {

std::string LaidOut(const nlohmann::ordered_json& json, int width = 110);

}  // namespace orlix
