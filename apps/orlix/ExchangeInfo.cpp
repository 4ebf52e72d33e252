#include "apps/orlix/ExchangeInfo.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/orlix/FileInfo.h"
#include "exchange/meshes/UsdaReader.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "host/geometry/MeshBuilder.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostPrims = 1000;

Error Broken(const std::filesystem::path& path, const char* what) {
  return {ErrorKind::InputFile, fmt::format("{}: {}", path.string(), what)};
}

std::uint64_t Number32(std::string_view bytes, std::size_t at) {
  std::uint64_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

// A whole number of an object, 0 where there is none.
std::uint64_t Whole(const Json& object, const char* key) {
  const auto found = object.is_object() ? object.find(key) : object.end();
  return object.is_object() && found != object.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}
const Json& Item(const Json& list, std::uint64_t index) {
  static const Json kNone;
  return list.is_array() && index < list.size() ? list[index] : kNone;
}
const Json& Member(const Json& object, const char* key) {
  static const Json kNone;
  return object.is_object() && object.contains(key) ? object[key] : kNone;
}

}  // namespace

Result<GlbInfo> DescribeGlb(const std::filesystem::path& path) {
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  const std::string_view bytes = content->Text();
  if (bytes.size() < 20 || !bytes.starts_with("glTF") || Number32(bytes, 4) != 2)
    return Broken(path, "no binary glTF 2.0");
  const std::uint64_t size = Number32(bytes, 12);
  if (Number32(bytes, 8) != bytes.size() || size > bytes.size() - 20)
    return Broken(path, "damaged: its sizes don't fit");
  const std::string_view text = bytes.substr(20, size);
  // Depth is bounded by refusing what no mesh of ours has.
  if (std::count(text.begin(), text.end(), '[') + std::count(text.begin(), text.end(), '{') > 100000) {
    return Broken(path, "its description is larger than that of a mesh");
  }
  const Json json = Json::parse(text, nullptr, false);
  if (json.is_discarded()) return Broken(path, "damaged: its description can't be read");
  const std::uint64_t arrays = bytes.size() - 20 - size, data = arrays < 8 ? 0 : arrays - 8;
  GlbInfo info;
  for (const Json& view : Member(json, "bufferViews")) {
    const std::uint64_t from = Whole(view, "byteOffset"), length = Whole(view, "byteLength");
    if (from > data || length > data - from) return Broken(path, "damaged: an array lies beyond the file");
  }
  const Json& accessors = Member(json, "accessors");
  for (const Json& mesh : Member(json, "meshes")) {
    for (const Json& primitive : Member(mesh, "primitives")) {
      const Json& attributes = Member(primitive, "attributes");
      info.points += Whole(Item(accessors, Whole(attributes, "POSITION")), "count");
      info.triangles += Whole(Item(accessors, Whole(primitive, "indices")), "count") / 3;
      for (auto each = attributes.begin(); attributes.is_object() && each != attributes.end(); ++each) {
        info.attributes.push_back(each.key());
      }
    }
  }
  const Json& scale = Item(Member(Item(Member(json, "nodes"), 0), "scale"), 0);
  if (scale.is_number()) info.scale = scale.get<double>();
  return info;
}

Result<UsdaInfo> DescribeUsda(const std::filesystem::path& path) {
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  const std::string_view bytes = content->Text();
  if (!bytes.starts_with("#usda 1.0")) return Broken(path, "no USD text");
  if (!bytes.ends_with("}\n")) return Broken(path, "damaged: it doesn't end with a prim's end");
  UsdaInfo info;
  const auto take = [](std::string_view line, std::string_view key, std::string& value) {
    if (!line.starts_with(key)) return;
    value = line.substr(key.size());
    std::erase(value, '"');
  };
  TextCursor text(bytes);
  while (!text.AtEnd()) {
    text.SkipBlanks();
    const std::string_view line = text.Line();
    info.files += static_cast<std::uint64_t>(std::count(line.begin(), line.end(), '@')) / 2;
    take(line, "metersPerUnit = ", info.metersPerUnit), take(line, "upAxis = ", info.upAxis);
    take(line, "startTimeCode = ", info.first), take(line, "endTimeCode = ", info.last);
    if (line.starts_with("def ") && info.prims.size() < kMostPrims) {
      const std::string_view rest = line.substr(4);
      info.prims.emplace_back(rest.substr(0, rest.rfind('"') + 1));
    }
    text.SkipBlanksAndLines();
  }
  return info;
}

Status PrintGlbInfo(const Program& program, const std::string& path) {
  const Result<GlbInfo> info = DescribeGlb(path);
  if (!info) return info.error();
  if (program.options.json) {
    fmt::print("{}\n", LaidOut(Json{{"kind", "glb"},
                                    {"points", info->points},
                                    {"triangles", info->triangles},
                                    {"metres_per_unit", info->scale},
                                    {"attributes", info->attributes}}));
    return {};
  }
  fmt::print("{}: glTF 2.0, {} points, {} triangles, a unit is {:.6g} m, with {}\n", path, info->points,
             info->triangles, info->scale, fmt::join(info->attributes, ", "));
  return {};
}

Status PrintUsdaInfo(const Program& program, const std::string& path) {
  const Result<UsdaInfo> info = DescribeUsda(path);
  if (!info) return info.error();
  const Result<UsdaFrame> frame = ReadUsda(path);
  if (!frame && frame.error().kind != ErrorKind::Usage) return frame.error();
  const std::string held =
      !frame.ok()     ? std::string()
      : frame->points ? fmt::format("{} particles, {} values each", frame->set.count, FlatColumnsOf(frame->set).size())
                      : fmt::format("{} points, {} polygons", frame->mesh.points.size(), frame->mesh.polygons.size());
  if (program.options.json) {
    Json json{{"kind", "usda"},      {"meters_per_unit", info->metersPerUnit},
              {"up", info->upAxis},  {"first", info->first},
              {"last", info->last},  {"files", info->files},
              {"prims", info->prims}};
    if (frame) json["points"] = frame->points ? frame->set.count : frame->mesh.points.size();
    if (frame && !frame->points) json["polygons"] = frame->mesh.polygons.size();
    if (frame && frame->time) json["frame"] = *frame->time;
    fmt::print("{}\n", LaidOut(json));
    return {};
  }
  fmt::print("{}: USD text, a unit is {} m, {} is up", path, info->metersPerUnit, info->upAxis);
  if (!info->first.empty()) fmt::print(", frames {} to {}, names {} files", info->first, info->last, info->files);
  if (frame) fmt::print(", {}", held);
  if (frame && frame->time) fmt::print(", of frame {}", *frame->time);
  fmt::print("\n");
  for (const std::string& prim : info->prims) fmt::print("  {}\n", prim);
  return {};
}

}  // namespace orlix
