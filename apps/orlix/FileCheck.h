#pragma once
// Whether a file that the program writes is whole. Adding a kind of file: its check, and a line in FileCheck.cpp.

#include <filesystem>
#include <string>

#include "globals/Result.h"

namespace orlix {

struct FileCheck {
  const char* extension;  // with the dot, lower case
  Status (*check)(const std::filesystem::path& path);
  bool everyFrame;  // a gap in its numbers is a missing file; otherwise only where the numbers' common step says so
};

// Null for a file that isn't ours to judge.
const FileCheck* FindFileCheck(const std::filesystem::path& path);

std::string LowerExtension(const std::filesystem::path& path);

}  // namespace orlix
