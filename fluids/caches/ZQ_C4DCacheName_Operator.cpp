#include "fluids/caches/ZQ_C4DCacheName_Operator.h"

#include <algorithm>

#include "fluids/caches/GridFrameFile.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

// By format: the particle cache takes its format's number, the grid cache 21 and on, the mesh cache 24 and on.
constexpr const char* kExtensions[] = {
    "pcache", "prt", "bgeo", "bgeo",     "geo", "bin",  "pda",  "pdb",  "pdb32", "pdb64", "pdc",   "ptc",   "pts",
    "rib",    "xyz", "mc",   "icecache", "geo", "bgeo", "bgeo", "bgeo", "cache", nullptr, nullptr, "mcache"};

}  // namespace

void ZQ_C4DCacheName_Operator::Reset() {
  folder.clear();
  stem.clear();
  extension = "cache";
  defaultStem = "orlixcache";
  digits = 5;
}

fs::path ZQ_C4DCacheName_Operator::PathOf(std::int32_t frame) const {
  return FramePath(folder, Stem(), frame, digits, extension);
}

void ZQ_C4DCacheName_Operator::SetExtension(std::int32_t index) {
  if (index >= 0 && index < static_cast<std::int32_t>(std::size(kExtensions)) && kExtensions[index]) {
    extension = kExtensions[index];
  }
}

bool ZQ_C4DCacheName_Operator::OpenForRead(HyperFile& file, std::int32_t frame, fs::path& path) {
  path = PathOf(frame);
  return file.Open(kFrameFileIdent, path, HyperFile::Mode::Read);
}

bool ZQ_C4DCacheName_Operator::OpenForWrite(HyperFile& file, std::int32_t frame, fs::path& path) {
  path = PathOf(frame);
  return file.Open(kFrameFileIdent, path, HyperFile::Mode::Write);
}

Status ZQ_C4DCacheName_Operator::CheckFolder(bool create) const {
  std::error_code error;
  if (fs::is_directory(folder, error)) return {};
  if (create) return CreateFolders(folder);
  return Status::Fail(ErrorKind::InputFile, folder.string() + ": no such folder");
}

CacheInfo ZQ_C4DCacheName_Operator::Scan() const {
  CacheInfo info;
  const std::vector<FrameFile> files = Frames();
  if (files.empty()) return info;
  info.found = true;
  info.firstFrame = files.front().frame;
  info.firstFile = files.front().path;
  info.lastFrame = files.back().frame;
  info.missing = MissingFrames(files, std::min(0, info.firstFrame));
  for (const FrameFile& file : files) info.size += file.size;
  return info;
}

Status ZQ_C4DCacheName_Operator::DeleteFrames() const {
  Status status;
  for (const FrameFile& file : Frames()) {
    std::error_code error;
    fs::remove(file.path, error);
    if (error && status.ok()) {
      status = Status::Fail(ErrorKind::Output, "can't delete " + file.path.string() + ": " + error.message());
    }
  }
  return status;
}

}  // namespace orlix
