#include "host/files/ByteSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "host/files/SystemFile.h"

namespace orlix {

namespace {
constexpr std::size_t kWindow = 64 * 1024;
}

Status ByteSource::Open(const std::filesystem::path& path) {
  Close();
  // O_NONBLOCK: a pipe that nobody writes to would hold the open for ever.
  descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) return Status::Fail(ErrorKind::InputFile, path.string() + ": " + std::strerror(errno));
  struct stat info {};
  if (::fstat(descriptor_, &info) != 0 || !S_ISREG(info.st_mode)) {
    Close();
    return Status::Fail(ErrorKind::InputFile, path.string() + ": not a plain file");
  }
  size_ = static_cast<std::uint64_t>(info.st_size);
  return {};
}

void ByteSource::Open(std::span<const std::byte> memory) {
  Close();
  inMemory_ = true;
  memory_ = memory;
  size_ = memory.size();
}

void ByteSource::Close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
  inMemory_ = false;
  memory_ = {};
  size_ = 0;
  windowSize_ = 0;
}

bool ByteSource::ReadAt(std::uint64_t offset, void* bytes, std::size_t size) {
  if (size > size_ || offset > size_ - size) return false;
  if (size == 0) return true;
  if (inMemory_) {
    std::memcpy(bytes, memory_.data() + offset, size);
    return true;
  }
  if (size >= kWindow) return ReadFully(descriptor_, bytes, size, offset);
  if (offset < windowBegin_ || offset + size > windowBegin_ + windowSize_) {
    window_.resize(kWindow);
    windowSize_ = 0;
    const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, size_ - offset));
    if (!ReadFully(descriptor_, window_.data(), want, offset)) return false;
    windowBegin_ = offset;
    windowSize_ = want;
  }
  std::memcpy(bytes, window_.data() + (offset - windowBegin_), size);
  return true;
}

Result<FileBytes> ReadWholeFile(const std::filesystem::path& path, std::uint64_t maxSize) {
  ByteSource source;
  if (Status opened = source.Open(path); !opened.ok()) return opened.error();
  if (source.Size() > maxSize) {
    return Error{ErrorKind::InputFile, path.string() + ": " + std::to_string(source.Size()) + " bytes, at most " +
                                           std::to_string(maxSize) + " are read"};
  }
  try {
    FileBytes bytes(static_cast<std::size_t>(source.Size()));
    if (source.ReadAt(0, bytes.data(), bytes.size())) return bytes;
  } catch (const std::bad_alloc&) {
    return Error{ErrorKind::Memory, path.string() + ": no memory for its " + std::to_string(source.Size()) + " bytes"};
  }
  return Error{ErrorKind::InputFile, path.string() + ": " + std::strerror(errno)};
}

}  // namespace orlix
