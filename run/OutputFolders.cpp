#include "run/OutputFolders.h"

#include <set>

#include "host/files/AtomicFile.h"
#include "host/files/FrameFiles.h"

namespace orlix {

namespace fs = std::filesystem;

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

}  // namespace orlix
