#include "globals/ByteSize.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace orlix {

Result<std::int64_t> ParseByteSize(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  constexpr std::string_view kUnits = "KMGT";
  double factor = 1;
  if (const auto power = unit.empty() ? kUnits.npos : kUnits.find(unit[0] & ~0x20); power != kUnits.npos) {
    factor = std::pow(1024.0, static_cast<double>(power) + 1);
    unit.remove_prefix(1);
  }
  const bool known = unit.empty() || unit == "B" || unit == "iB";
  if (error != std::errc() || !known || !(number * factor >= 1 && number * factor < 9e18)) {
    return Error{ErrorKind::Usage, fmt::format("--memory {}: must be a size such as 8G or 512M", text)};
  }
  return static_cast<std::int64_t>(number * factor);
}

std::string ByteSizeText(double bytes) {
  constexpr const char* kUnits[] = {"bytes", "KB", "MB", "GB", "TB"};
  double size = bytes;
  int unit = 0;
  while (size >= 1024 && unit < 4) size /= 1024, ++unit;
  return unit == 0 ? fmt::format("{:.0f} bytes", size) : fmt::format("{:.3g} {}", size, kUnits[unit]);
}

}  // namespace orlix
