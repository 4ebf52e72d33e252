#include "apps/orlix/FileCheck.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/orlix/IsolatedCheck.h"
#include "exchange/points/PointFormats.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "host/geometry/MeshReader.h"
#include "host/pictures/PictureFile.h"
#include "run/Checkpoint.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

Status CheckFrameFile(const fs::path& path) { return HyperFile::Verify(kFrameFileIdent, path); }

Status CheckGridCache(const fs::path& path) {
  if (Status whole = CheckFrameFile(path); !whole.ok()) return whole;
  HyperFile file;
  GridFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  if (Status read = ReadGridFrameHead(file, path.string(), head); !read.ok()) return read;
  std::string number;
  if (Status read = ReadGridFrameNumber(file, number); !read.ok()) return read;
  if (path.stem().string().ends_with(number)) return {};
  return Status::Fail(ErrorKind::InputFile,
                      fmt::format("{}: a wrong name: it was written as frame {}", path.string(), number));
}

Status CheckCheckpoint(const fs::path& path) {
  const Result<CheckpointHead> head = ReadCheckpointHead(path);
  return head.ok() ? HyperFile::Verify(0, path) : head.status();
}

Status ReadWholeVdb(const fs::path& path) { return ReadVdbInfo(path, true).status(); }
Status ReadWholePicture(const fs::path& path) { return ReadPicture(path).status(); }
Status CheckVdb(const fs::path& path) { return RunIsolated(ReadWholeVdb, path); }
Status CheckPicture(const fs::path& path) { return RunIsolated(ReadWholePicture, path); }

Status CheckPoints(const fs::path& path) { return ReadPoints(path).status(); }

// Particles or a mesh.
Status CheckPly(const fs::path& path) {
  const Result<std::vector<std::byte>> content = ReadPointFile(path);
  if (!content) return content.error();
  const std::string_view text = AsText(*content);
  if (IsPointPly(text)) return CheckPoints(path);
  return ParseMesh(text, MeshFormat::Ply, path.string()).status();
}

constexpr FileCheck kChecks[] = {
    {".cache", CheckGridCache, true},        {".pcache", CheckFrameFile, true}, {".mcache", CheckFrameFile, true},
    {".checkpoint", CheckCheckpoint, false}, {".vdb", CheckVdb, false},         {".exr", CheckPicture, false},
    {".png", CheckPicture, false},           {".ply", CheckPly, false},
};

}  // namespace

std::string LowerExtension(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  return extension;
}

const FileCheck* FindFileCheck(const fs::path& path) {
  const std::string extension = LowerExtension(path);
  for (const FileCheck& check : kChecks) {
    if (extension == check.extension) return &check;
  }
  return nullptr;
}

}  // namespace orlix
