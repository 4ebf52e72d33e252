// orlix convert IN OUT: meshes (OBJ, PLY, STL to OBJ, PLY), particles (PLY to text and back), pictures (EXR, PNG), grid
// caches to OpenVDB.

#include <fmt/format.h>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileCheck.h"
#include "exchange/CachedFields.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "host/files/AtomicStream.h"
#include "host/files/FrameFiles.h"
#include "host/geometry/MeshReader.h"
#include "host/geometry/MeshWriter.h"
#include "host/pictures/PictureFile.h"

namespace orlix {

namespace {

bool IsPicture(const std::string& extension) { return extension == ".exr" || extension == ".png"; }

Status ConvertMesh(const ConvertOptions& options) {
  Result<PolygonObject> mesh = ReadMesh(options.in);
  if (!mesh) return mesh.error();
  AtomicStream stream;
  if (Status opened = stream.Open(options.out); !opened) return opened;
  if (LowerExtension(options.out) == ".ply")
    WritePly(*mesh, stream);
  else
    WriteObj(*mesh, stream);
  if (Status done = stream.Commit(); !done) return done;
  fmt::print("{}: {} points, {} polygons\n", options.out, mesh->points.size(), mesh->polygons.size());
  return {};
}

Status ConvertParticles(const ConvertOptions& options) {
  const Result<PointSet> set = ReadPoints(options.in);
  if (!set) return set.error();
  WorkerPool pool(HostWorkerCount());
  if (Status done = WritePoints(options.out, *set, false, &pool); !done) return done;
  fmt::print("{}: {} particles, {} values each\n", options.out, set->count, FlatColumnsOf(*set).size());
  return {};
}

// A PLY file may be a mesh as well.
bool HoldsParticles(const std::string& path) {
  const PointFormat* format = FindPointFormat(path);
  if (!format || LowerExtension(path) != ".ply") return format;
  const Result<std::vector<std::byte>> content = ReadPointFile(path);
  return content.ok() && IsPointPly(AsText(*content));
}

Status ConvertPicture(const ConvertOptions& options) {
  const Result<Picture> picture = ReadPicture(options.in);
  if (!picture) return picture.error();
  const bool light = LowerExtension(options.in) == ".exr";
  const ViewTransform view = options.view.value_or(light ? ViewTransform::Filmic : ViewTransform::Srgb);
  if (Status done = WritePicture(options.out, *picture, {options.exposure, view}); !done) return done;
  fmt::print("{}: {} x {} pixels\n", options.out, picture->width(), picture->height());
  return {};
}

// The number at the end of the name, 0 without one.
int FrameOfFile(const std::filesystem::path& path) {
  const std::string stem = path.stem().string();
  const std::size_t last = stem.find_last_not_of("0123456789");
  return FrameOfName(stem, std::string_view(stem).substr(0, last + 1)).value_or(0);
}

// Empty ones stay.
std::vector<std::string> SplitNames(const std::string& text) {
  std::vector<std::string> names;
  for (std::size_t from = 0; !text.empty() && from != std::string::npos;) {
    const std::size_t comma = text.find(',', from);
    names.push_back(text.substr(from, comma == std::string::npos ? comma : comma - from));
    from = comma == std::string::npos ? comma : comma + 1;
  }
  return names;
}

Status ConvertCache(const ConvertOptions& options) {
  const Result<CachedFields> cached =
      ReadCachedFields(options.in, options.houdini ? VdbNames::Houdini : VdbNames::Blender, SplitNames(options.grids));
  if (!cached) return cached.error();
  if (Status done = WriteVdb(options.out, cached->fields, {.frame = FrameOfFile(options.in)}); !done) return done;
  std::string names;
  for (const VdbField& field : cached->fields) names += (names.empty() ? "" : ", ") + field.name;
  fmt::print("{}: {} grids: {}\n", options.out, cached->fields.size(), names);
  return {};
}

}  // namespace

Status ConvertCommand(const Program&, const ConvertOptions& options) {
  const std::string from = LowerExtension(options.in), to = LowerExtension(options.out);
  if (IsPicture(from) && IsPicture(to)) return ConvertPicture(options);
  if (FindPointFormat(options.out) && HoldsParticles(options.in)) return ConvertParticles(options);
  const bool meshIn = from == ".obj" || from == ".ply" || from == ".stl";
  if (meshIn && (to == ".obj" || to == ".ply")) return ConvertMesh(options);
  if (from == ".cache" && to == ".vdb") return ConvertCache(options);
  return Status::Fail(
      ErrorKind::Usage,
      fmt::format("{} to {}: convert goes from .obj, .ply, .stl to .obj, .ply, between .ply and .txt for "
                  "particles, from .exr, .png to .exr, .png, and from .cache to .vdb",
                  options.in, options.out));
}

}  // namespace orlix
