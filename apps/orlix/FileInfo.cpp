#include "apps/orlix/FileInfo.h"

#include <fmt/format.h>

#include "apps/orlix/FileCheck.h"
#include "exchange/points/PointFormats.h"

namespace orlix {

namespace {

constexpr FileKind kKinds[] = {
    {".json", "scene file", PrintSceneInfo},
    {".cache", "grid cache", PrintGridCacheInfo},
    {".pcache", "particle cache", PrintParticleCacheInfo},
    {".mcache", "mesh cache", PrintMeshCacheInfo},
    {".checkpoint", "checkpoint", PrintCheckpointInfo},
    {".vdb", "OpenVDB", PrintVdbInfo},
    {".obj", "mesh", PrintMeshInfo},
    {".ply", "mesh or particles", PrintPlyInfo},
    {".stl", "mesh", PrintMeshInfo},
    {".glb", "glTF 2.0", PrintGlbInfo},
    {".usda", "USD text", PrintUsdaInfo},
    {".exr", "OpenEXR", PrintPictureInfo},
    {".png", "PNG", PrintPictureInfo},
};

}  // namespace

Status InfoCommand(const Program& program, const std::string& path) {
  const std::string extension = LowerExtension(path);
  std::string known;
  for (const FileKind& kind : kKinds) {
    if (extension == kind.extension) return kind.print(program, path);
    known += fmt::format("{}{} ({})", known.empty() ? "" : ", ", kind.extension, kind.text);
  }
  if (const PointFormat* format = FindPointFormat(path); format && format->read)
    return PrintParticleInfo(program, path);
  for (const PointFormat& format : PointFormats()) {
    if (format.read && format.extension != std::string_view(".ply")) {
      known += fmt::format(", {} ({})", format.extension, format.label);
    }
  }
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    return Status::Fail(ErrorKind::Usage, path + ": is a folder; orlix verify and orlix watch say what is in one");
  }
  if (extension.empty() && !std::filesystem::exists(path, error)) {
    return Status::Fail(ErrorKind::InputFile, path + ": no such file");
  }
  return Status::Fail(ErrorKind::Usage, fmt::format("{}: info knows files that end in {}", path, known));
}

}  // namespace orlix
