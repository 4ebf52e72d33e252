#include "host/script/ScriptError.h"

#include <fmt/format.h>

#include <algorithm>

#include "globals/EditDistance.h"

namespace orlix::script {

ScriptError ErrorAt(std::string_view source, std::size_t offset, std::string text) {
  ScriptError error{std::move(text), std::min(offset, source.size()), 1, 1};
  for (const char c : source.substr(0, error.offset)) {
    if (c == '\n') {
      ++error.line, error.column = 1;
    } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
      ++error.column;
    }
  }
  return error;
}

std::string Shown(std::string_view bytes) {
  constexpr std::size_t kLongest = 40;
  std::string shown = "\"";
  for (const char c : bytes.substr(0, kLongest)) {
    if (c >= ' ' && c <= '~') {
      shown += c;
    } else {
      shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
  }
  return shown + (bytes.size() > kLongest ? "...\"" : "\"");
}

std::string DidYouMean(std::string_view name, const std::vector<std::string_view>& candidates) {
  int least = std::min(3, 1 + static_cast<int>(std::min<std::size_t>(name.size(), 100) + 1) / 3);
  std::string_view best;
  for (const std::string_view candidate : candidates) {
    const int distance = EditDistance(name, candidate, least);
    if (distance < least) least = distance, best = candidate;
  }
  return best.empty() ? std::string() : fmt::format(", did you mean \"{}\"?", best);
}

}  // namespace orlix::script
