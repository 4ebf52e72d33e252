#include "run/FrameList.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

namespace orlix {

namespace {

constexpr int kMaxFrame = 10000000;
constexpr std::size_t kMaxFrames = 1000000;

// Takes a number off the front.
std::optional<int> TakeInt(std::string_view& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < -kMaxFrame || number > kMaxFrame) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool TakeChar(std::string_view& text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

// One range, "5", "1-100" or "1-100x2".
bool AddRange(std::string_view range, std::vector<int>& frames, bool& reversed) {
  const auto first = TakeInt(range);
  if (!first) return false;
  int last = *first, step = 1;
  if (TakeChar(range, '-')) {
    const auto end = TakeInt(range);
    reversed = end && *end < *first;
    if (!end || reversed) return false;
    last = *end;
    if (TakeChar(range, 'x')) {
      const auto by = TakeInt(range);
      if (!by || *by < 1) return false;
      step = *by;
    }
  }
  if (!range.empty()) return false;
  for (std::int64_t frame = *first; frame <= last && frames.size() <= kMaxFrames; frame += step) {
    frames.push_back(static_cast<int>(frame));
  }
  return frames.size() <= kMaxFrames;
}

}  // namespace

Result<std::vector<int>> ParseFrameList(std::string_view text) {
  std::vector<int> frames;
  std::string_view rest = text;
  bool good = !text.empty(), reversed = false;
  while (good) {
    const auto comma = rest.find(',');
    good = AddRange(rest.substr(0, comma), frames, reversed);
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  if (reversed) {
    return Error{ErrorKind::Usage, fmt::format("--frames {}: a range ends before it begins", text)};
  }
  if (!good) {
    return Error{ErrorKind::Usage,
                 fmt::format("--frames {}: must be frames and ranges such as 1-100x2,120, a million at most", text)};
  }
  std::sort(frames.begin(), frames.end());
  frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
  return frames;
}

}  // namespace orlix
