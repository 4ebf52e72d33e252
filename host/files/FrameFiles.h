#pragma once
// Numbered files, one for each frame: FOLDER/STEMNUMBER.EXTENSION. The stem is taken as it is, dots and digits too.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "globals/Result.h"

namespace orlix {

// The frame's number, brought to `digits` characters with leading zeros for 2 to 6 digits and frames below 10000; in
// all other cases as it is. A negative number is padded as one digit would be: -7 gives "0000-7".
std::string PadFrame(int frame, int digits);
// The usual padding of sequences for other programs: at least `digits` digits, the sign first.
std::string PadNumber(int number, int digits);

std::filesystem::path FramePath(const std::filesystem::path& folder, std::string_view stem, int frame, int digits,
                                std::string_view extension);

// The number after the stem in a file name without its extension; none unless the rest is one or more digits, or a
// negative number as PadFrame with 2 to 6 digits or, after a dot, PadNumber writes it, and an int holds it.
std::optional<int> FrameOfName(std::string_view name, std::string_view stem);

// A file name without its extension as stem and number; the whole as stem where no number that an int holds ends it.
struct NumberedName {
  std::string_view stem;
  std::optional<int> frame;
};
NumberedName SplitNumber(std::string_view name);

struct FrameFile {
  int frame = 0;
  std::filesystem::path path;
  std::uint64_t size = 0;
};
// All plain files of the stem and extension in the folder, by frame. A missing folder has none.
std::vector<FrameFile> ScanFrameFiles(const std::filesystem::path& folder, std::string_view stem,
                                      std::string_view extension);

struct FrameRange {
  int first = 0, last = 0;  // both inclusive
  std::int64_t Count() const { return std::int64_t(last) - first + 1; }
  bool operator==(const FrameRange&) const = default;
};
// The gaps between `first` and the last of the files, which are ordered by frame.
std::vector<FrameRange> MissingFrames(const std::vector<FrameFile>& files, int first);
std::int64_t CountFrames(const std::vector<FrameRange>& ranges);
// "3, 7-9, 12"; after ten ranges " and 4 more".
std::string FormatRanges(const std::vector<FrameRange>& ranges);

// Up to 1024 bytes "512 B", then "1.5 KB", "MB", "GB".
std::string FormatSize(std::uint64_t bytes);

// The folder and those above it; what exists already is fine.
Status CreateFolders(const std::filesystem::path& folder);

}  // namespace orlix
