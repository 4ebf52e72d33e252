#include "apps/orlix/FileCheck.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/orlix/ExchangeInfo.h"
#include "apps/orlix/IsolatedCheck.h"
#include "exchange/meshes/UsdaReader.h"
#include "exchange/points/PointFormats.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/caches/ParticleFrameFile.h"
#include "host/geometry/MeshReader.h"
#include "host/pictures/PictureFile.h"
#include "run/Checkpoint.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

// From behind what the file is known to hold: the number in its name is the one that it was written with.
Status CheckNumber(HyperFile& file, const fs::path& path) {
  std::string number;
  if (Status read = ReadGridFrameNumber(file, number); !read.ok()) return read;
  if (path.stem().string().ends_with(number)) return {};
  return Status::Fail(ErrorKind::InputFile,
                      fmt::format("{}: a wrong name: it was written as frame {}", path.string(), number));
}

Status OpenWhole(HyperFile& file, const fs::path& path) {
  if (Status whole = HyperFile::Verify(kFrameFileIdent, path); !whole.ok()) return whole;
  return file.Open(kFrameFileIdent, path, HyperFile::Mode::Read) ? Status() : file.status();
}

Status CheckGridCache(const fs::path& path) {
  HyperFile file;
  GridFrameHead head;
  if (Status whole = OpenWhole(file, path); !whole.ok()) return whole;
  if (Status read = ReadGridFrameHead(file, path.string(), head); !read.ok()) return read;
  return CheckNumber(file, path);
}

Status CheckParticleCache(const fs::path& path) {
  HyperFile file;
  ParticleFrameHead head;
  if (Status whole = OpenWhole(file, path); !whole.ok()) return whole;
  if (Status read = ReadParticleFrameHead(file, path.string(), head); !read.ok()) return read;
  for (const ParticleEntryHeader& entry : head.entries) {
    ParticleEntryFacts facts;
    const auto pass = [](std::int32_t, ParticleRunData&) { return Status(); };
    if (Status read = ReadParticleChunk(file, path.string(), entry, facts, pass); !read.ok()) return read;
  }
  return CheckNumber(file, path);
}

Status CheckMeshCache(const fs::path& path) {
  HyperFile file;
  std::int32_t count = 0;
  if (Status whole = OpenWhole(file, path); !whole.ok()) return whole;
  if (Status read = ReadMeshFrameHead(file, path.string(), count); !read.ok()) return read;
  PolygonObject mesh;
  for (bool present = false; count > 0; --count) {
    if (Status read = ReadMeshChunk(file, path.string(), mesh, present); !read.ok()) return read;
  }
  return CheckNumber(file, path);
}

Status CheckCheckpoint(const fs::path& path) {
  const Result<CheckpointHead> head = ReadCheckpointHead(path);
  return head.ok() ? HyperFile::Verify(0, path) : head.status();
}

Status ReadWholeVdb(const fs::path& path) { return ReadVdbInfo(path, true).status(); }
Status ReadWholePicture(const fs::path& path) { return ReadPicture(path).status(); }
Status CheckVdb(const fs::path& path) {
  const Status loaded = LoadVdbLibrary();  // once, and not in each process of its own
  return loaded ? RunIsolated(ReadWholeVdb, path) : loaded;
}
Status CheckPicture(const fs::path& path) { return RunIsolated(ReadWholePicture, path); }

Status CheckPoints(const fs::path& path) { return ReadPoints(path).status(); }

// Particles or a mesh.
Status CheckPly(const fs::path& path) {
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  const std::string_view text = content->Text();
  if (IsPointPly(text)) return CheckPoints(path);
  return ParseMesh(text, MeshFormat::Ply, path.string()).status();
}

// What isn't ours is looked at from afar.
Status CheckUsda(const fs::path& path) {
  const Result<UsdaFrame> frame = ReadUsda(path);
  return frame.ok() || frame.error().kind != ErrorKind::Usage ? frame.status() : DescribeUsda(path).status();
}
Status CheckMesh(const fs::path& path) { return ReadMesh(path).status(); }

constexpr FileCheck kChecks[] = {
    {".cache", CheckGridCache, true},  {".pcache", CheckParticleCache, true},
    {".mcache", CheckMeshCache, true}, {".checkpoint", CheckCheckpoint, false},
    {".vdb", CheckVdb, false},         {".exr", CheckPicture, false},
    {".png", CheckPicture, false},     {".ply", CheckPly, false},
    {".obj", CheckMesh, false},        {".stl", CheckMesh, false},
    {".glb", CheckMesh, false},        {".usda", CheckUsda, false},
    {".bgeo", CheckPoints, false},     {".geo", CheckPoints, false},
    {".prt", CheckPoints, false},      {".pdb", CheckPoints, false},
    {".pda", CheckPoints, false},      {".pdc", CheckPoints, false},
    {".ptc", CheckPoints, false},      {".pcd", CheckPoints, false},
    {".icecache", CheckPoints, false},
};

}  // namespace

std::string LowerExtension(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  return extension;
}

const FileCheck* FindFileCheck(const fs::path& path) {
  const std::string extension = LowerExtension(EndsInGz(path) ? path.stem() : path);
  for (const FileCheck& check : kChecks) {
    if (extension == check.extension) return &check;
  }
  return nullptr;
}

}  // namespace orlix
