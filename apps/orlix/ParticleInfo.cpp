// What `orlix info` says about files of particles.

#include <fmt/format.h>

#include "apps/orlix/FileInfo.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

void PrintPoints(const Program& program, const std::string& path, const PointSet& set) {
  const bool json = program.options.json;
  if (!json) {
    fmt::print("{}: particles, {} ({}), {} of them\n", path, FindPointFormat(path)->label, set.encoding, set.count);
  }
  Json all = {{"kind", "particles"}, {"encoding", set.encoding}, {"count", set.count}, {"values", Json::array()}};
  for (const ColumnRange& range : RangesOf(set)) {
    if (json) {
      all["values"].push_back(
          {{"name", range.name}, {"type", range.type}, {"min", range.low}, {"max", range.high}, {"mean", range.mean}});
    } else if (set.count > 0) {
      fmt::print("  {}: {}, {:.6g} to {:.6g}, mean {:.6g}\n", range.name, range.type, range.low, range.high,
                 range.mean);
    } else {
      fmt::print("  {}: {}\n", range.name, range.type);
    }
  }
  if (set.units.metresPerUnit > 0) {
    all["metres_per_unit"] = set.units.metresPerUnit;
    all["up"] = set.units.upZ ? "z" : "y";
    if (!json) {
      fmt::print("  a unit is {:.6g} m, {} is up\n", set.units.metresPerUnit, set.units.upZ ? "z" : "y");
    }
  }
  if (json) fmt::print("{}\n", LaidOut(all));
}

}  // namespace

Status PrintPlyInfo(const Program& program, const std::string& path) {
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  return IsPointPly(content->Text()) ? PrintParticleInfo(program, path) : PrintMeshInfo(program, path);
}

Status PrintParticleInfo(const Program& program, const std::string& path) {
  const Result<PointSet> set = ReadPoints(path);
  if (set) PrintPoints(program, path, *set);
  return set.status();
}

}  // namespace orlix
