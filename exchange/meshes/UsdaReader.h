#pragma once
// Reads back what UsdaFile.h writes of one frame: a prim "Mesh" or "Points" with arrays of values, of one time or of
// all. Anything else of USD's text is refused by its line, with Usage: what isn't understood isn't guessed.

#include <filesystem>
#include <optional>
#include <string_view>

#include "exchange/points/PointSet.h"
#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

struct UsdaFrame {
  bool points = false;  // the set's; the mesh's otherwise
  FileUnits units{};
  std::optional<int> time;  // of the values; none for values of all times
  PolygonObject mesh;
  PointSet set;
};
// name stands in messages. InputFile for counts that don't fit, indices outside and numbers that aren't finite.
Result<UsdaFrame> ParseUsda(std::string_view content, std::string_view name);
Result<UsdaFrame> ReadUsda(const std::filesystem::path& path);

}  // namespace orlix
