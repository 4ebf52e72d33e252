#pragma once
// What `orlix info` says about a file. Adding a kind of file: its function, and a line in FileInfo.cpp.

#include <string>

#include "apps/orlix/Command.h"

namespace orlix {

// Prints to standard output, as JSON with program.options.json.
using PrintInfo = Status (*)(const Program& program, const std::string& path);
struct FileKind {
  const char* extension;  // with the dot, lower case
  const char* text;
  PrintInfo print;
};

Status PrintSceneInfo(const Program& program, const std::string& path);
Status PrintGridCacheInfo(const Program& program, const std::string& path);
Status PrintParticleCacheInfo(const Program& program, const std::string& path);
Status PrintMeshCacheInfo(const Program& program, const std::string& path);
Status PrintCheckpointInfo(const Program& program, const std::string& path);
Status PrintVdbInfo(const Program& program, const std::string& path);
Status PrintPlyInfo(const Program& program, const std::string& path);
Status PrintParticleInfo(const Program& program, const std::string& path);
Status PrintMeshInfo(const Program& program, const std::string& path);
Status PrintGlbInfo(const Program& program, const std::string& path);
Status PrintUsdaInfo(const Program& program, const std::string& path);
Status PrintPictureInfo(const Program& program, const std::string& path);

}  // namespace orlix
