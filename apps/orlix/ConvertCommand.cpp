// orlix convert IN OUT: meshes (OBJ, PLY, STL to OBJ, PLY) and pictures (EXR, PNG).

#include <fmt/format.h>

#include <filesystem>

#include "apps/orlix/Command.h"
#include "host/files/AtomicStream.h"
#include "host/geometry/MeshReader.h"
#include "host/geometry/MeshWriter.h"
#include "host/render/PictureFile.h"

namespace orlix {

namespace {

struct ConvertOptions {
  std::string in, out;
  double exposure = 0;
};

std::string ExtensionOf(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  return extension;
}

bool IsPicture(const std::string& extension) { return extension == ".exr" || extension == ".png"; }

Status ConvertMesh(const ConvertOptions& options) {
  Result<PolygonObject> mesh = ReadMesh(options.in);
  if (!mesh) return mesh.error();
  AtomicStream stream;
  if (Status opened = stream.Open(options.out); !opened) return opened;
  if (ExtensionOf(options.out) == ".ply")
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

Status Convert(const ConvertOptions& options) {
  const std::string from = ExtensionOf(options.in), to = ExtensionOf(options.out);
  if (IsPicture(from) && IsPicture(to)) return ConvertPicture(options);
  const bool meshIn = from == ".obj" || from == ".ply" || from == ".stl";
  if (meshIn && (to == ".obj" || to == ".ply")) return ConvertMesh(options);
  return Status::Fail(ErrorKind::Usage,
                      fmt::format("{} to {}: convert goes from .obj, .ply, .stl to .obj, .ply, and from .exr, .png to "
                                  ".exr, .png",
                                  options.in, options.out));
}

}  // namespace

void AddConvertCommand(CLI::App& app, Program& program) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* command = app.add_subcommand("convert", "Convert a mesh or a picture");
  command->add_option("in", options->in, "File to read")->required();
  command->add_option("out", options->out, "File to write; its ending says the format")->required();
  command->add_option("--exposure", options->exposure, "Stops, for PNG");
  command->callback([&program, options] { program.action = [options] { return Convert(*options); }; });
}

}  // namespace orlix
