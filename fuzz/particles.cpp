// The readers of particle files on any bytes: the first line is the name's ending, the rest the file. What is read can
// be written in the same format, where that has a writer, and read again. Frames of USD, meshes among them, too.

#include <cstdlib>
#include <sstream>

#include "exchange/meshes/UsdaFile.h"
#include "exchange/meshes/UsdaReader.h"
#include "exchange/points/PointFormats.h"

namespace {

int Usda(std::string_view text) {
  using namespace orlix;
  const Result<UsdaFrame> frame = ParseUsda(text, "fuzz");
  if (!frame) return 0;
  const auto points = static_cast<std::int64_t>(frame->mesh.points.size());
  for (const PolygonObject::Polygon& p : frame->mesh.polygons) {
    for (const std::int32_t corner : {p.a, p.b, p.c, p.d}) {
      if (corner < 0 || corner >= points) std::abort();
    }
  }
  std::ostringstream out;
  frame->points ? WriteUsda(frame->set, frame->units, frame->time, out)
                : WriteUsda(frame->mesh, frame->units, frame->time, out);
  const Result<UsdaFrame> second = ParseUsda(out.str(), "again");
  if (!second || second->points != frame->points || second->set.count != frame->set.count ||
      second->mesh.points.size() != frame->mesh.points.size()) {
    std::abort();
  }
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orlix;
  const std::string_view input{reinterpret_cast<const char*>(data), size};
  const std::size_t line = input.find('\n');
  if (line == std::string_view::npos) return 0;
  if (input.starts_with(".usda\n")) return Usda(input.substr(line + 1));
  const PointFormat* format = FindPointFormat("a" + std::string(input.substr(0, line)));
  if (!format || !format->read) return 0;
  const std::string_view content = input.substr(line + 1);
  static_cast<void>(ParsePoints(content, *format, "header", true));
  const Result<PointSet> set = ParsePoints(content, *format, "fuzz");
  if (!set) return 0;
  if (!set->HasValues()) std::abort();
  std::ostringstream out;
  if (!format->write || !format->write(*set, {out})) return 0;
  const std::string again = out.str();
  const Result<PointSet> second = ParsePoints(again, *format, "again");
  if (!second || second->count != set->count || !second->HasValues()) std::abort();
  return 0;
}
