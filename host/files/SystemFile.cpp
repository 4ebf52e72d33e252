#include "host/files/SystemFile.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace orlix {

namespace {
// Linux transfers at most 2^31 - 4096 bytes a call.
constexpr std::size_t kLargestTransfer = std::size_t(1) << 30;
}  // namespace

bool WriteFully(int descriptor, const void* bytes, std::size_t size, std::uint64_t offset) {
  const auto* from = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t done = ::pwrite(descriptor, from, std::min(size, kLargestTransfer), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = ENOSPC;
    if (done <= 0) return false;
    from += done;
    size -= static_cast<std::size_t>(done);
    offset += static_cast<std::uint64_t>(done);
  }
  return true;
}

bool ReadFully(int descriptor, void* bytes, std::size_t size, std::uint64_t offset) {
  auto* to = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t done = ::pread(descriptor, to, std::min(size, kLargestTransfer), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = EIO;
    if (done <= 0) return false;
    to += done;
    size -= static_cast<std::size_t>(done);
    offset += static_cast<std::uint64_t>(done);
  }
  return true;
}

int SyncFolder(const std::filesystem::path& folder) {
  const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return errno == EACCES ? 0 : errno;
  const int error = ::fsync(descriptor) == 0 ? 0 : errno;
  ::close(descriptor);
  return error == EINVAL || error == ENOTSUP ? 0 : error;
}

bool IsProcessAlive(int process) { return ::kill(process, 0) == 0 || errno != ESRCH; }

}  // namespace orlix
