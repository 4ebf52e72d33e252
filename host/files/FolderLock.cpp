#include "host/files/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/files/SystemFile.h"

namespace orlix {

namespace {

Error LockError(const std::filesystem::path& folder, const std::string& reason) {
  return {ErrorKind::Output, "can't write into " + folder.string() + ": " + reason};
}

// The id in the lock file; the owner writes it right after it has the lock, so an empty file is asked again.
std::string OwnerOf(int descriptor) {
  for (int attempt = 0; attempt < 20; attempt++) {
    char text[32];
    const ssize_t bytes = ::pread(descriptor, text, sizeof text, 0);
    const std::string owner(text, bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    if (const std::size_t end = owner.find('\n'); end != std::string::npos) return "process " + owner.substr(0, end);
    ::usleep(5000);
  }
  return "another process";
}

// A former owner removes its lock file: a lock on a file that no longer has the name is worth nothing.
bool StillHasItsName(int descriptor, const std::filesystem::path& path) {
  struct stat held {
  }, named{};
  return ::fstat(descriptor, &held) == 0 && ::stat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
         held.st_dev == named.st_dev;
}

}  // namespace

Result<FolderLock> FolderLock::Acquire(const std::filesystem::path& folder) {
  const std::filesystem::path path = folder / kFileName;
  for (int attempt = 0; attempt < 100; attempt++) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (descriptor < 0) return LockError(folder, std::strerror(errno));
    FolderLock lock(path, descriptor);
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      lock.descriptor_ = -1;  // not ours: the name stays
      const std::string reason =
          error == EWOULDBLOCK ? OwnerOf(descriptor) + " is writing there" : std::strerror(error);
      ::close(descriptor);
      return LockError(folder, reason);
    }
    if (!StillHasItsName(descriptor, path)) {
      lock.descriptor_ = -1;
      ::close(descriptor);
      continue;
    }
    const std::string owner = std::to_string(::getpid()) + "\n";
    if (::ftruncate(descriptor, 0) != 0 || !WriteFully(descriptor, owner.data(), owner.size(), 0)) {
      return LockError(folder, std::strerror(errno));
    }
    return lock;
  }
  return LockError(folder, "its lock file keeps changing");
}

FolderLock& FolderLock::operator=(FolderLock&& other) noexcept {
  if (this != &other) {
    Release();
    path_ = std::move(other.path_);
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

void FolderLock::Release() {
  if (descriptor_ < 0) return;
  ::unlink(path_.c_str());  // while the lock is held, or a newcomer's file would go
  ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace orlix
