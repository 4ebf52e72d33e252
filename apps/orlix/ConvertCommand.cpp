// orlix convert IN OUT: meshes (OBJ, PLY, STL to OBJ, PLY) and pictures (EXR, PNG).

#include <fmt/format.h>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileCheck.h"
#include "host/files/AtomicStream.h"
#include "host/geometry/MeshReader.h"
#include "host/geometry/MeshWriter.h"
#include "host/render/PictureFile.h"

namespace orlix {

namespace {

bool IsPicture(const std::string& extension) { return extension == ".exr" || extension == ".png"; }

Status ConvertMesh(const ConvertOptions& options) {
  Result<PolygonObject> mesh = ReadMesh(options.in);
  if (!mesh) return mesh.error();
  AtomicStream stream;
  if (Status opened = stream.Open(options.out); !opened) return opened;
  if (LowerExtension(options.out) == ".ply")
    WritePly(*mesh, {}, stream);
  else
    WriteObj(*mesh, stream);
  if (Status done = stream.Commit(); !done) return done;
  fmt::print("{}: {} points, {} polygons\n", options.out, mesh->points.size(), mesh->polygons.size());
  return {};
}

Status ConvertPicture(const ConvertOptions& options) {
  const Result<Picture> picture = ReadPicture(options.in);
  if (!picture) return picture.error();
  if (Status done = WritePicture(options.out, *picture, options.exposure); !done) return done;
  fmt::print("{}: {} x {} pixels\n", options.out, picture->width(), picture->height());
  return {};
}

}  // namespace

Status ConvertCommand(const Program&, const ConvertOptions& options) {
  const std::string from = LowerExtension(options.in), to = LowerExtension(options.out);
  if (IsPicture(from) && IsPicture(to)) return ConvertPicture(options);
  const bool meshIn = from == ".obj" || from == ".ply" || from == ".stl";
  if (meshIn && (to == ".obj" || to == ".ply")) return ConvertMesh(options);
  return Status::Fail(ErrorKind::Usage,
                      fmt::format("{} to {}: convert goes from .obj, .ply, .stl to .obj, .ply, and from .exr, .png to "
                                  ".exr, .png",
                                  options.in, options.out));
}

}  // namespace orlix
