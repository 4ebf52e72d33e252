#include "run/OutputFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "fluids/caches/Cache_OperatorBase.h"
#include "host/files/AtomicFile.h"
#include "host/files/FrameFiles.h"

namespace orlix {

namespace fs = std::filesystem;
using Numbering = Cache_OperatorBase::Numbering;

Result<std::vector<FolderLock>> LockOutputFolders(const std::vector<fs::path>& folders) {
  std::set<fs::path> distinct;
  for (const fs::path& folder : folders) {
    const fs::path named = folder.empty() ? fs::path(".") : folder;
    if (const Status created = CreateFolders(named); !created.ok()) return created.error();
    std::error_code error;
    const fs::path canonical = fs::canonical(named, error);
    distinct.insert(error ? named : canonical);
  }
  std::vector<FolderLock> locks;
  for (const fs::path& folder : distinct) {
    Result<FolderLock> lock = FolderLock::Acquire(folder);
    if (!lock.ok()) return lock.error();
    RemoveStaleTemporaries(folder);
    locks.push_back(std::move(*lock));
  }
  return locks;
}

Status RefuseToRecordOver(const BaseDocument& document, int first, int last) {
  for (const CacheFiles& cache : RecordedCaches(document)) {
    const std::vector<FrameFile> frames = ScanFrameFiles(cache.folder, cache.stem, cache.extension);
    const bool byDocument = cache.object->GetChoice<Numbering>(Cache_OperatorBase::kNumberingId) == Numbering::Document;
    const std::int64_t zero = byDocument ? 0 : document.minTime.Frame(document.fps);
    const auto within = [&](const FrameFile& file) { return file.frame + zero >= first && file.frame + zero <= last; };
    const auto count = std::count_if(frames.begin(), frames.end(), within);
    if (count == 0) continue;
    return Status::Fail(
        ErrorKind::Output,
        fmt::format(
            "{}: {} holds {} of the frames that it would record; --overwrite records them anew, --resume goes on "
            "after the last checkpoint, and \"mode\": \"playback\" plays them",
            cache.object->Path(), cache.folder.string(), count));
  }
  return {};
}

}  // namespace orlix
