#pragma once
// The pass over JSON text before it is parsed.

#include <cstdint>
#include <optional>
#include <string>

namespace orlix {

struct TextMistake {
  std::size_t offset;
  std::string text;
};

// The first byte that isn't UTF-8.
std::optional<TextMistake> FindNoUtf8(const std::string& text);

// Replaces comments and trailing commas by blanks, byte for byte, and finds what the parser would only find late or at
// a high price: bytes that aren't UTF-8, strings and bare words without end, nesting beyond all use.
std::optional<TextMistake> CleanJsonText(std::string& text);

}  // namespace orlix
