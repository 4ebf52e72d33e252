#include "scene_file/SourceText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace orlix {

LineColumn LineColumnAt(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto newline = before.rfind('\n');
  const std::string_view line = newline == std::string_view::npos ? before : before.substr(newline + 1);
  const auto isLead = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  return {1 + static_cast<int>(std::count(before.begin(), before.end(), '\n')),
          1 + static_cast<int>(std::count_if(line.begin(), line.end(), isLead))};
}

Result<std::string> LoadTextFile(const std::string& path) {
  using Text = Result<std::string>;
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    return Text::Fail(ErrorKind::InputFile, fmt::format("{}: is a folder, not a file of text", path));
  }
  // A pipe that nobody writes to would be waited for; those that a shell has opened are under /dev.
  if (std::filesystem::is_fifo(path, ignored) && !path.starts_with("/dev/")) {
    return Text::Fail(ErrorKind::InputFile, fmt::format("{}: is a pipe, not a file of text", path));
  }
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return Text::Fail(ErrorKind::InputFile,
                      fmt::format("{}: can't be opened: {}", path, std::strerror(errno ? errno : ENOENT)));
  }
  const auto refuse = [&](const std::string& size) {
    return Text::Fail(ErrorKind::Scene,
                      fmt::format("{}:1:1: the file has {} bytes, may have {}", path, size, kMaxSceneBytes));
  };
  const auto size = std::filesystem::file_size(path, ignored);
  if (!ignored && size > kMaxSceneBytes) return refuse(std::to_string(size));
  // A pipe or device tells no size: read until the limit is passed.
  std::string text;
  if (!ignored) text.reserve(static_cast<std::size_t>(size) + 1);
  char block[1 << 16];
  while (file.read(block, sizeof block) || file.gcount() > 0) {
    text.append(block, static_cast<std::size_t>(file.gcount()));
    if (text.size() > kMaxSceneBytes) return refuse("more");
  }
  if (file.bad()) return Text::Fail(ErrorKind::InputFile, fmt::format("{}: reading failed", path));
  return text;
}

}  // namespace orlix
