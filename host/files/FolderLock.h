#pragma once
// One run at a time writes into a folder. The lock is the system's lock on a small file in the folder that holds the
// owner's process id; it ends with the process, however that ends, so a dead owner's lock is simply taken over.

#include <filesystem>
#include <utility>

#include "globals/Result.h"

namespace orlix {

class FolderLock {
 public:
  // Fails with the owner's process id while another lock on the folder is alive, in this process or another.
  static Result<FolderLock> Acquire(const std::filesystem::path& folder);

  FolderLock(FolderLock&& other) noexcept
      : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}
  FolderLock& operator=(FolderLock&& other) noexcept;
  ~FolderLock() { Release(); }

  void Release();

  static constexpr const char* kFileName = ".orlix.lock";

 private:
  FolderLock(std::filesystem::path path, int descriptor) : path_(std::move(path)), descriptor_(descriptor) {}

  std::filesystem::path path_;
  int descriptor_ = -1;
};

}  // namespace orlix
