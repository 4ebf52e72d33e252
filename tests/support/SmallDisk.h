#pragma once
// A disk that is soon full.

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>

namespace orlix::test {

// Mounts a memory disk of this many bytes (rounded up to pages) that only this thread, or this process, and its
// children see. False without the rights for it.
inline bool MountSmallDisk(const std::filesystem::path& at, std::size_t bytes) {
  if (::unshare(CLONE_NEWNS) != 0) return false;
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  return ::mount("tmpfs", at.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) == 0;
}

// In a child process: no file of it may grow beyond the size: a write fails there, as it does on a full disk.
inline bool LimitFileSize(std::size_t bytes) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

}  // namespace orlix::test
