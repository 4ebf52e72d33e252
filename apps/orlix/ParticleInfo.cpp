// What `orlix info` says about files of particles.

#include <fmt/format.h>

#include "apps/orlix/FileInfo.h"
#include "exchange/particles/PointFile.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

Status PrintPoints(const Program& program, const std::string& path, std::string_view content) {
  const Result<PointFileInfo> info = DescribePoints(content, path);
  if (!info) return info.error();
  if (!program.options.json) {
    fmt::print("{}: particles, {} ({}), {} of them\n", path, info->format == PointFormat::Ply ? "PLY" : "one a line",
               info->encoding, info->count);
  }
  Json json = {{"kind", "particles"}, {"encoding", info->encoding}, {"count", info->count}, {"values", Json::array()}};
  for (const PointFileInfo::Column& column : info->columns) {
    const char* type = NameOf(column.column.type);
    if (program.options.json) {
      json["values"].push_back({{"name", column.column.name},
                                {"type", type},
                                {"min", column.low},
                                {"max", column.high},
                                {"mean", column.mean}});
    } else if (info->count > 0) {
      fmt::print("  {}: {}, {:.6g} to {:.6g}, mean {:.6g}\n", column.column.name, type, column.low, column.high,
                 column.mean);
    } else {
      fmt::print("  {}: {}\n", column.column.name, type);
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

}  // namespace

Status PrintPlyInfo(const Program& program, const std::string& path) {
  const Result<std::vector<std::byte>> content = ReadPointFile(path);
  if (!content) return content.error();
  return IsPointPly(AsText(*content)) ? PrintPoints(program, path, AsText(*content)) : PrintMeshInfo(program, path);
}

Status PrintParticleInfo(const Program& program, const std::string& path) {
  const Result<std::vector<std::byte>> content = ReadPointFile(path);
  return content ? PrintPoints(program, path, AsText(*content)) : content.status();
}

}  // namespace orlix
