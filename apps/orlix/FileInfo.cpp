#include "apps/orlix/FileInfo.h"

#include <fmt/format.h>

#include "apps/orlix/FileCheck.h"

namespace orlix {

namespace {

constexpr FileKind kKinds[] = {
    {".json", "scene file", PrintSceneInfo},
    {".cache", "grid cache", PrintGridCacheInfo},
    {".checkpoint", "checkpoint", PrintCheckpointInfo},
    {".vdb", "OpenVDB", PrintVdbInfo},
    {".obj", "mesh", PrintMeshInfo},
    {".ply", "mesh or particles", PrintPlyInfo},
    {".txt", "particles", PrintParticleInfo},
    {".stl", "mesh", PrintMeshInfo},
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
  return Status::Fail(ErrorKind::Usage, fmt::format("{}: info knows files that end in {}", path, known));
}

}  // namespace orlix
