// orlix convert IN OUT: meshes (OBJ, PLY, STL, glTF, frames of USD), particles (all formats, OpenVDB's points, frames
// of USD), pictures (EXR, PNG), and one's own caches: of grids to OpenVDB, of particles and meshes to all of these.

#include <fmt/format.h>

#include <algorithm>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileCheck.h"
#include "apps/orlix/IsolatedCheck.h"
#include "exchange/CachedFields.h"
#include "exchange/CachedFrames.h"
#include "exchange/meshes/MeshFiles.h"
#include "exchange/meshes/UsdaFile.h"
#include "exchange/meshes/UsdaReader.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "host/files/AtomicStream.h"
#include "host/files/FrameFiles.h"
#include "host/geometry/MeshReader.h"
#include "host/pictures/PictureFile.h"

namespace orlix {

namespace {

bool IsPicture(const std::string& extension) { return extension == ".exr" || extension == ".png"; }

// Lengths by a factor, and a quarter turn about x.
struct Placing {
  explicit Placing(const ConvertOptions& options) : scale(options.scale), up(options.up) {}
  Vec3D Turn(const Vec3D& v) const { return up == "z" ? Vec3D(v.x, -v.z, v.y) : up == "y" ? Vec3D(v.x, v.z, -v.y) : v; }
  bool Moves() const { return scale != 1 || !up.empty(); }

  double scale;
  std::string up;
};

void Place(PolygonObject& mesh, const Placing& placing) {
  for (std::vector<Vec3D>* lengths : {&mesh.points, &mesh.velocities}) {
    for (Vec3D& v : *lengths) v = placing.Turn(v) * placing.scale;
  }
  for (Vec3D& normal : mesh.normals) normal = placing.Turn(normal);
}

// The units after the placing, which leaves a turn out that is done already.
void Place(FileUnits& units, Placing& placing) {
  const bool known = units.metresPerUnit > 0;
  if (known && !placing.up.empty() && units.upZ == (placing.up == "z")) placing.up.clear();
  if (known) units.metresPerUnit /= placing.scale;
  if (!placing.up.empty()) units.upZ = placing.up == "z";
}

// By the names that columns have; other columns stay. False when a value leaves its column's range.
bool Place(PointSet& set, Placing placing) {
  Place(set.units, placing);
  if (!placing.Moves()) return true;
  bool fits = true;
  for (PointAttribute& column : set.attributes) {
    const auto isOne = [&](std::initializer_list<std::string_view> names) {
      return std::find(names.begin(), names.end(), column.name) != names.end();
    };
    const bool place = isOne({"position", "velocity", "oldposition", "oldpositionframe", "old_position"});
    const bool direction = isOne({"normal", "vorticity", "external_force"});
    const double scale = direction ? 1 : placing.scale;
    for (std::uint64_t row = 0; row < set.count; ++row) {
      if (column.components == 3 && (place || direction)) {
        const Vec3D v = placing.Turn({column.Real(row, 0), column.Real(row, 1), column.Real(row, 2)}) * scale;
        for (int axis = 0; axis < 3; ++axis) fits &= column.SetReal(row, axis, v[axis]);
      } else if (column.components == 1 && column.name == "radius") {
        fits &= column.SetReal(row, 0, column.Real(row, 0) * scale);
      }
    }
  }
  return fits;
}

Status WriteMesh(const ConvertOptions& options, PolygonObject mesh, FileUnits units) {
  Placing placing(options);
  if (units.metresPerUnit > 0) Place(units, placing);
  Place(mesh, placing);
  if (Status done = WriteMeshFile(options.out, mesh, units); !done) return done;
  fmt::print("{}: {} points, {} polygons\n", options.out, mesh.points.size(), mesh.polygons.size());
  return {};
}

Status ConvertMesh(const ConvertOptions& options) {
  Result<PolygonObject> mesh = ReadMesh(options.in);
  return mesh ? WriteMesh(options, std::move(*mesh), ReadMeshUnits(options.in)) : mesh.error();
}

Status ReadWholePoints(const std::filesystem::path& path) { return ReadVdbPoints(path).status(); }

Result<PointSet> ReadParticles(const std::string& path) {
  if (LowerExtension(path) != ".vdb") return ReadPoints(path);
  // A few crafted bytes make the library take gigabytes: what a process of its own survives is read.
  if (Status loaded = LoadVdbLibrary(); !loaded) return loaded.error();
  if (Status readable = RunIsolated(ReadWholePoints, path); !readable) return readable.error();
  return ReadVdbPoints(path);
}

Status WriteParticles(const std::string& path, const PointSet& set) {
  if (LowerExtension(path) == ".vdb") return WriteVdbPoints(path, set);
  if (LowerExtension(path) == ".usda") {
    AtomicStream stream;
    if (Status opened = stream.Open(path); !opened) return opened;
    WriteUsda(set, set.units, {}, stream);
    return stream.Commit();
  }
  WorkerPool pool(HostWorkerCount());
  return WritePoints(path, set, false, &pool);
}

// What the format has no place for.
std::string LeftOut(const std::string& path, const PointSet& set) {
  const PointFormat* format = FindPointFormat(path);
  std::string names;
  for (const PointAttribute& column : set.attributes) {
    if (!format || !format->keeps || column.name == "position") continue;
    const bool kept = (" " + std::string(format->keeps) + " ").find(" " + column.name + " ") != std::string::npos;
    if (!kept) names += (names.empty() ? "; it has no place for " : ", ") + column.name;
  }
  return names;
}

Status ConvertParticles(const ConvertOptions& options, Result<PointSet> set) {
  if (!set) return set.error();
  if (!Place(*set, Placing(options))) return Status::Fail(ErrorKind::Usage, options.in + ": too large for its numbers");
  if (Status done = WriteParticles(options.out, *set); !done) return done;
  fmt::print("{}: {} particles, {} values each{}\n", options.out, set->count, FlatColumnsOf(*set).size(),
             LeftOut(options.out, *set));
  return {};
}

// A frame of USD has either.
Status ConvertUsda(const ConvertOptions& options, bool pointsOut) {
  Result<UsdaFrame> frame = ReadUsda(options.in);
  if (!frame) return frame.error();
  if (frame->points && pointsOut) return ConvertParticles(options, std::move(frame->set));
  if (!frame->points && FindMeshFileFormat(options.out)) {
    return WriteMesh(options, std::move(frame->mesh), frame->units);
  }
  return Status::Fail(ErrorKind::Usage, fmt::format("{} holds {}, which {} can't hold", options.in,
                                                    frame->points ? "particles" : "a mesh", options.out));
}

// A PLY file may be a mesh as well.
bool HoldsParticles(const std::string& path) {
  if (LowerExtension(path) == ".vdb") return true;
  const PointFormat* format = FindPointFormat(path);
  if (!format || LowerExtension(path) != ".ply") return format && format->read;
  const Result<FileBytes> content = ReadPointFile(path);
  return content.ok() && IsPointPly(content->Text());
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

Status ConvertCachedMesh(const ConvertOptions& options) {
  Result<PolygonObject> mesh = ReadCachedMesh(options.in);
  return mesh ? WriteMesh(options, std::move(*mesh), {}) : mesh.error();
}

Status ConvertCache(const ConvertOptions& options) {
  const Result<CachedFields> cached =
      ReadCachedFields(options.in, options.houdini ? VdbNames::Houdini : VdbNames::Blender, SplitNames(options.grids));
  if (!cached) return cached.error();
  if (options.up == "y") return Status::Fail(ErrorKind::Usage, options.in + ": a cache has y upwards as it is");
  const std::string name = std::filesystem::path(options.in).stem().string();
  const VdbOptions vdb{.frame = SplitNumber(name).frame.value_or(0),
                       .space = {.scale = options.scale, .upZ = options.up == "z"}};
  if (Status done = WriteVdb(options.out, cached->fields, vdb); !done) return done;
  std::string names;
  for (const VdbField& field : cached->fields) names += (names.empty() ? "" : ", ") + field.name;
  fmt::print("{}: {} grids: {}\n", options.out, cached->fields.size(), names);
  return {};
}

std::string ParticleEndings() {
  std::string endings;
  for (const PointFormat& format : PointFormats()) {
    if (format.read && format.write) endings += (endings.empty() ? "" : ", ") + std::string(format.extension);
  }
  return endings;
}

}  // namespace

Status ConvertCommand(const Program&, const ConvertOptions& options) {
  if (std::error_code error; !options.overwrite && std::filesystem::exists(options.out, error)) {
    return Status::Fail(ErrorKind::Output, options.out + " exists; --overwrite replaces it");
  }
  const std::string from = LowerExtension(options.in), to = LowerExtension(options.out);
  if (IsPicture(from) && IsPicture(to)) return ConvertPicture(options);
  const PointFormat* points = FindPointFormat(options.out);
  const bool pointsOut = (points && points->write) || to == ".vdb" || to == ".usda";
  if (from == ".usda") return ConvertUsda(options, pointsOut);
  if (pointsOut && HoldsParticles(options.in)) return ConvertParticles(options, ReadParticles(options.in));
  if (MeshFormatOf(options.in) && FindMeshFileFormat(options.out)) return ConvertMesh(options);
  if (from == ".pcache" && pointsOut) return ConvertParticles(options, ReadCachedPoints(options.in));
  if (from == ".mcache" && FindMeshFileFormat(options.out)) return ConvertCachedMesh(options);
  if (from == ".cache" && to == ".vdb") return ConvertCache(options);
  return Status::Fail(
      ErrorKind::Usage,
      fmt::format(
          "{} to {}: convert goes from .obj, .ply, .stl, .glb, .gltf, .usda to .obj, .ply, .stl, .glb, .usda; for "
          "particles between {} "
          "and .vdb, .usda, and to .rib; from .exr, .png to .exr, .png; and of caches from .cache to "
          ".vdb, .pcache to what particles go to, .mcache to what meshes go to",
          options.in, options.out, ParticleEndings()));
}

}  // namespace orlix
