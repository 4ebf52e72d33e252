#include "apps/orlix/PictureSequence.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "apps/orlix/FileCheck.h"
#include "exchange/FrameOutput.h"

namespace orlix {

namespace {

// By name. A number stands behind a dot.
std::map<std::string, std::vector<FrameFile>> SequencesIn(const std::filesystem::path& folder, std::error_code& error) {
  std::map<std::string, std::vector<FrameFile>> sequences;
  for (auto entry = std::filesystem::directory_iterator(folder, error); !error && entry != decltype(entry){};
       entry.increment(error)) {
    const std::string stem = entry->path().stem().string();
    const std::size_t dot = stem.rfind('.');
    if (LowerExtension(entry->path()) != ".png" || dot == std::string::npos || dot == 0) continue;
    const std::optional<int> frame = FrameOfName(stem, stem.substr(0, dot + 1));
    if (frame) sequences[stem.substr(0, dot)].push_back({*frame, entry->path(), 0});
  }
  return sequences;
}

// A run leaves its pictures in the folder that an output names, beneath that of the results.
std::string WhereElse(const std::filesystem::path& folder) {
  std::string found;
  bool exr = false;
  std::error_code error;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::error_code unreadable;
    exr |= at->path().extension() == ".exr";
    if (!at->is_directory(unreadable) || SequencesIn(at->path(), unreadable).empty()) continue;
    if (found.empty() || at->path().string() < found) found = at->path().string();
  }
  if (!found.empty()) return "; " + found + " has some";
  return exr ? "; orlix convert makes PNG of its OpenEXR pictures" : "";
}

}  // namespace

Result<PictureSequence> FindPictures(const std::filesystem::path& folder, const std::string& name) {
  std::error_code error;
  auto sequences = SequencesIn(folder, error);
  if (error) return Error{ErrorKind::InputFile, folder.string() + ": " + error.message()};
  auto best = sequences.find(name);
  const auto rank = [](const auto& each) {
    return std::tuple(each.first.find(kPreviewSuffix) == std::string::npos, each.second.size());
  };
  for (auto each = sequences.begin(); name.empty() && each != sequences.end(); ++each) {
    if (best == sequences.end() || rank(*best) < rank(*each)) best = each;
  }
  if (best == sequences.end()) {
    std::string names;
    for (const auto& [each, files] : sequences) names += (names.empty() ? "" : ", ") + each;
    return Error{ErrorKind::InputFile,
                 names.empty() ? fmt::format("{}: it has no pictures such as frame.0001.png{}", folder.string(),
                                             WhereElse(folder))
                               : fmt::format("{}: no pictures \"{}\"; there are {}", folder.string(), name, names)};
  }
  std::sort(best->second.begin(), best->second.end(),
            [](const FrameFile& a, const FrameFile& b) { return a.frame < b.frame; });
  return PictureSequence{best->first, std::move(best->second)};
}

}  // namespace orlix
