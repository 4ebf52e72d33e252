#include "host/files/AtomicFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include "globals/Hash.h"
#include "host/files/SystemFile.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {
constexpr std::size_t kBlock = 256 * 1024;
constexpr const char* kSuffix = ".part";
std::atomic<unsigned> temporaryNumber{0};
}  // namespace

void AtomicFile::Unmap::operator()(unsigned char* block) const { ::munmap(block, kBlock); }

Status AtomicFile::Open(const fs::path& path) {
  Abandon();
  status_ = {};
  position_ = size_ = bufferBlock_ = 0;
  bufferDirty_ = false;
  blockHash_.clear();
  path_ = path;
  std::error_code error;
  const fs::file_status kind = fs::symlink_status(path_, error);
  if (fs::exists(kind) && !fs::is_regular_file(kind) && !fs::is_symlink(kind)) {
    return status_ = Status::Fail(ErrorKind::Output, "can't write " + path.string() + ": it is not a plain file");
  }
  void* block = ::mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) {
    Fail("create", errno);
    return status_;
  }
  buffer_.reset(static_cast<unsigned char*>(block));
  return CreateTemporary();
}

Status AtomicFile::CreateTemporary() {
  for (int attempt = 0; attempt < 100; attempt++) {
    temporary_ = path_;
    temporary_ += "." + std::to_string(::getpid()) + "-" + std::to_string(temporaryNumber++) + kSuffix;
    descriptor_ = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ >= 0) return {};
    if (errno != EEXIST) break;  // an earlier process of this number may have left one
  }
  Fail("create", errno);
  return status_;
}

bool AtomicFile::Fail(const char* doing, int systemError) {
  if (status_.ok()) {
    status_ = Status::Fail(ErrorKind::Output,
                           std::string("can't ") + doing + " " + path_.string() + ": " + std::strerror(systemError));
  }
  return false;
}

std::size_t AtomicFile::BlockBytes(std::uint64_t block) const {
  const std::uint64_t begin = block * kBlock;
  return begin >= size_ ? 0 : static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, size_ - begin));
}

bool AtomicFile::FlushBlock() {
  if (!bufferDirty_) return true;
  const std::size_t bytes = BlockBytes(bufferBlock_);
  if (!WriteFully(descriptor_, buffer_.get(), bytes, bufferBlock_ * kBlock)) return Fail("write", errno);
  if (blockHash_.size() <= bufferBlock_) blockHash_.resize(bufferBlock_ + 1);
  blockHash_[bufferBlock_] = HashBytes(buffer_.get(), bytes);
  bufferDirty_ = false;
  return true;
}

bool AtomicFile::LoadBlock(std::uint64_t block) {
  if (block == bufferBlock_) return true;
  if (!FlushBlock()) return false;
  const std::size_t bytes = BlockBytes(block);
  if (bytes > 0) {
    if (!ReadFully(descriptor_, buffer_.get(), bytes, block * kBlock)) return Fail("read back", errno);
    if (HashBytes(buffer_.get(), bytes) != blockHash_[block]) return Fail("read back", EIO);
  }
  bufferBlock_ = block;
  return true;
}

bool AtomicFile::Write(const void* bytes, std::size_t size) {
  if (!status_.ok()) return false;
  if (!IsOpen()) return Fail("write", EBADF);
  const auto* from = static_cast<const unsigned char*>(bytes);
  while (size > 0) {
    if (!LoadBlock(position_ / kBlock)) return false;
    const auto at = static_cast<std::size_t>(position_ % kBlock);
    const std::size_t part = std::min(size, kBlock - at);
    std::memcpy(buffer_.get() + at, from, part);
    bufferDirty_ = true;
    from += part;
    size -= part;
    position_ += part;
    size_ = std::max(size_, position_);
  }
  return true;
}

bool AtomicFile::Seek(std::uint64_t position) {
  if (!status_.ok()) return false;
  if (position > size_) return Fail("seek in", EINVAL);
  position_ = position;
  return true;
}

bool AtomicFile::VerifyBlocks() {
  struct stat info {};
  if (::fstat(descriptor_, &info) != 0) return Fail("examine", errno);
  if (static_cast<std::uint64_t>(info.st_size) != size_) return Fail("read back", EIO);
  for (std::uint64_t block = 0; block < blockHash_.size(); block++) {
    const std::size_t bytes = BlockBytes(block);
    if (!ReadFully(descriptor_, buffer_.get(), bytes, block * kBlock)) return Fail("read back", errno);
    if (HashBytes(buffer_.get(), bytes) != blockHash_[block]) return Fail("read back", EIO);
  }
  return true;
}

bool AtomicFile::Publish() {
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) return Fail("rename to", errno);
  temporary_.clear();
  if (const int error = SyncFolder(path_.parent_path())) return Fail("sync the folder of", error);
  return true;
}

Status AtomicFile::Commit(const Proof& proof) {
  if (status_.ok() && !IsOpen()) Fail("write", EBADF);
  bool good = status_.ok() && FlushBlock();
  if (good && ::fsync(descriptor_) != 0) good = Fail("write", errno);
  good = good && VerifyBlocks();
  if (good && proof) {
    if (Status proven = proof(temporary_); !proven.ok()) {
      status_ = Status::Fail(ErrorKind::Output, "can't write " + path_.string() + ": " + proven.error().text);
      good = false;
    }
  }
  if (IsOpen()) {
    const int closed = ::close(descriptor_);  // a network disk may report a full disk only here
    descriptor_ = -1;
    if (closed != 0) good = Fail("close", errno);
  }
  if (good) Publish();
  Abandon();
  return status_;
}

void AtomicFile::Abandon() {
  if (IsOpen()) ::close(descriptor_);
  descriptor_ = -1;
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
  temporary_.clear();
  buffer_.reset();
}

Status WriteFileAtomically(const fs::path& path, std::string_view content, const AtomicFile::Proof& proof) {
  AtomicFile file;
  if (Status opened = file.Open(path); !opened.ok()) return opened;
  file.Write(content.data(), content.size());
  return file.Commit(proof);
}

int TemporaryOwner(const fs::path& name) {
  if (name.extension() != kSuffix) return 0;
  const std::string stem = name.stem().string();  // NAME.PID-NUMBER
  const std::size_t dot = stem.rfind('.');
  if (dot == std::string::npos) return 0;
  const char* end = stem.data() + stem.size();
  int process = 0;
  unsigned number = 0;
  const auto [dash, bad] = std::from_chars(stem.data() + dot + 1, end, process);
  if (bad != std::errc() || dash == end || *dash != '-') return 0;
  const auto [last, badNumber] = std::from_chars(dash + 1, end, number);
  return badNumber == std::errc() && last == end && process > 0 ? process : 0;
}

int RemoveStaleTemporaries(const fs::path& folder) {
  int removed = 0;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const int owner = TemporaryOwner(at->path().filename());
    std::error_code ignored;
    if (owner != 0 && !IsProcessAlive(owner) && fs::remove(at->path(), ignored)) removed++;
  }
  return removed;
}

}  // namespace orlix
