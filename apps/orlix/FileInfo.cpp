#include "apps/orlix/FileInfo.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace orlix {

namespace {

constexpr FileKind kKinds[] = {
    {".json", "scene file", PrintSceneInfo},
};

}  // namespace

Status PrintFileInfo(const Program& program, const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  std::string known;
  for (const FileKind& kind : kKinds) {
    if (extension == kind.extension) return kind.print(program, path);
    known += fmt::format("{}{} ({})", known.empty() ? "" : ", ", kind.extension, kind.text);
  }
  return Status::Fail(ErrorKind::Usage, fmt::format("{}: info knows files that end in {}", path, known));
}

}  // namespace orlix
