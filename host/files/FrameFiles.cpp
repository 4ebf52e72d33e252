#include "host/files/FrameFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <tuple>

namespace orlix {

namespace fs = std::filesystem;

std::string PadFrame(int frame, int digits) {
  std::string number = std::to_string(frame);
  if (digits < 2 || digits > 6 || frame >= 10000) return number;
  const int wide = frame < 0 ? 1 : static_cast<int>(number.size());
  return std::string(static_cast<std::size_t>(std::max(0, digits - wide)), '0') + number;
}

std::string PadNumber(int number, int digits) {
  return number < 0 ? fmt::format("-{:0{}d}", -std::int64_t(number), digits) : fmt::format("{:0{}d}", number, digits);
}

fs::path FramePath(const fs::path& folder, std::string_view stem, int frame, int digits, std::string_view extension) {
  return folder / fmt::format("{}{}.{}", stem, PadFrame(frame, digits), extension);
}

std::optional<int> FrameOfName(std::string_view name, std::string_view stem) {
  if (name.size() <= stem.size() || !name.starts_with(stem)) return {};
  std::string_view tail = name.substr(stem.size());
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (const std::size_t dash = tail.find('-'); dash != tail.npos) {
    // As PadFrame writes a negative one, or PadNumber after a dot: "smoke-00007" is frame 7 of "smoke-".
    const bool padded =
        dash > 0 && tail.find_first_not_of('0') == dash && tail.find_first_not_of('0', dash + 1) == dash + 1;
    const bool dotted = dash == 0 && stem.ends_with('.');
    if (tail.size() < dash + 2 || !(padded || dotted)) return {};
    tail.remove_prefix(dash);
  }
  if (!std::all_of(tail.begin() + (tail.starts_with('-') ? 1 : 0), tail.end(), isDigit)) return {};
  int frame = 0;
  const auto [end, error] = std::from_chars(tail.data(), tail.data() + tail.size(), frame);
  if (error != std::errc()) return {};
  return frame;
}

NumberedName SplitNumber(std::string_view name) {
  std::string_view stem = name.substr(0, name.find_last_not_of("0123456789") + 1);
  if (stem.ends_with('-')) {
    const std::string_view before = stem.substr(0, stem.find_last_not_of('0', stem.size() - 2) + 1);
    constexpr std::size_t kLeast = 4;  // "10-5" is rather frame 5 of "10-"
    const auto negative = name.size() - before.size() < kLeast ? std::nullopt : FrameOfName(name, before);
    if (negative) return {before, negative};
  }
  if (const auto frame = FrameOfName(name, stem)) return {stem, frame};
  return {name, {}};
}

std::vector<FrameFile> ScanFrameFiles(const fs::path& folder, std::string_view stem, std::string_view extension) {
  std::vector<FrameFile> files;
  const std::string suffix = "." + std::string(extension);
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    if (name.size() <= suffix.size() || !name.ends_with(suffix)) continue;
    const auto frame = FrameOfName(std::string_view(name).substr(0, name.size() - suffix.size()), stem);
    std::error_code gone;
    if (!frame || !at->is_regular_file(gone)) continue;
    const std::uint64_t size = at->file_size(gone);
    if (!gone) files.push_back({*frame, at->path(), size});
  }
  std::sort(files.begin(), files.end(), [](const FrameFile& a, const FrameFile& b) {
    return std::tie(a.frame, a.path) < std::tie(b.frame, b.path);
  });
  return files;
}

std::vector<FrameRange> MissingFrames(const std::vector<FrameFile>& files, int first) {
  std::vector<FrameRange> missing;
  std::int64_t next = first;
  for (const FrameFile& file : files) {
    if (file.frame > next) missing.push_back({static_cast<int>(next), file.frame - 1});
    next = std::max(next, std::int64_t(file.frame) + 1);
  }
  return missing;
}

std::int64_t CountFrames(const std::vector<FrameRange>& ranges) {
  std::int64_t count = 0;
  for (const FrameRange& range : ranges) count += range.Count();
  return count;
}

std::string FormatRanges(const std::vector<FrameRange>& ranges) {
  constexpr std::size_t kShown = 10;
  std::string text;
  for (std::size_t i = 0; i < std::min(ranges.size(), kShown); i++) {
    const auto& [first, last] = ranges[i];
    text += i > 0 ? ", " : "";
    text += first == last ? std::to_string(first) : fmt::format("{}-{}", first, last);
  }
  if (ranges.size() > kShown) text += fmt::format(" and {} more", ranges.size() - kShown);
  return text;
}

std::string FormatSize(std::uint64_t bytes) {
  const double size = static_cast<double>(bytes);
  if (size <= 1024.0) return fmt::format("{} B", bytes);
  if (size <= 1024.0 * 1024.0) return fmt::format("{:.4g} KB", size / 1024.0);
  if (size <= 1024.0 * 1024.0 * 1024.0) return fmt::format("{:.4g} MB", size / (1024.0 * 1024.0));
  return fmt::format("{:.6g} GB", size / (1024.0 * 1024.0 * 1024.0));
}

Status CreateFolders(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error && !fs::is_directory(folder, error) && !error) error = std::make_error_code(std::errc::not_a_directory);
  if (error) return Status::Fail(ErrorKind::Output, "can't create " + folder.string() + ": " + error.message());
  return {};
}

}  // namespace orlix
