#pragma once
// Files of glTF and USD, as far as `info` and `verify` look into them.

#include <filesystem>
#include <string>
#include <vector>

#include "globals/Result.h"

namespace orlix {

struct GlbInfo {
  std::uint64_t points = 0, triangles = 0;
  double scale = 1;  // metres a unit of the arrays
  std::vector<std::string> attributes;
};
// The header, the JSON, and whether the arrays are where it says.
Result<GlbInfo> DescribeGlb(const std::filesystem::path& path);

struct UsdaInfo {
  std::string metersPerUnit, upAxis, first, last;  // as the file says; empty where it doesn't
  std::vector<std::string> prims;                  // "Mesh \"Water\""
  std::uint64_t files = 0;                         // that it names
};
// The lines of its head and its prims, and whether it ends where it should.
Result<UsdaInfo> DescribeUsda(const std::filesystem::path& path);

}  // namespace orlix
