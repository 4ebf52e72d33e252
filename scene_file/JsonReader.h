#pragma once
// JSON text to a tree of values with positions. Comments (// and /* */) and trailing commas are allowed; depth, the
// length of strings and the number of values are bounded, and a key may stand once in an object.

#include <optional>

#include "scene_file/JsonValue.h"
#include "scene_file/Mistakes.h"
#include "scene_file/SourceText.h"

namespace orlix {

inline constexpr int kMaxJsonDepth = 128;
inline constexpr std::size_t kMaxJsonString = std::size_t(1) << 20;
inline constexpr std::size_t kMaxJsonValues = 1000000;

// Blanks comments and trailing commas in source.text, keeping every offset. Without a value the mistakes say why: a
// mistake of syntax ends the reading, keys that stand twice are all found.
std::optional<JsonValue> ReadJson(const std::shared_ptr<SourceText>& source, Mistakes& mistakes);

}  // namespace orlix
