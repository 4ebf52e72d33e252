#pragma once
// Bytes to read from: a file, through a window, or a block of memory. Reads beyond the end fail.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "globals/Result.h"

namespace orlix {

class ByteSource {
 public:
  ByteSource() = default;
  ~ByteSource() { Close(); }
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  // Plain files only.
  Status Open(const std::filesystem::path& path);
  // The memory must outlive the source.
  void Open(std::span<const std::byte> memory);
  void Close();
  bool IsOpen() const { return descriptor_ >= 0 || inMemory_; }

  std::uint64_t Size() const { return size_; }
  bool ReadAt(std::uint64_t offset, void* bytes, std::size_t size);

 private:
  int descriptor_ = -1;
  bool inMemory_ = false;
  std::span<const std::byte> memory_;
  std::uint64_t size_ = 0;
  std::vector<std::byte> window_;
  std::uint64_t windowBegin_ = 0;
  std::size_t windowSize_ = 0;
};

// All bytes of a file. Memory that isn't filled first: of a large file that takes as long as the read.
class FileBytes {
 public:
  explicit FileBytes(std::size_t size) : bytes_(std::make_unique_for_overwrite<std::byte[]>(size)), size_(size) {}
  std::byte* data() { return bytes_.get(); }
  const std::byte* data() const { return bytes_.get(); }
  std::size_t size() const { return size_; }
  const std::byte* begin() const { return data(); }
  const std::byte* end() const { return data() + size_; }
  std::string_view Text() const { return {reinterpret_cast<const char*>(data()), size_}; }

 private:
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t size_ = 0;
};

// Refused beyond the size given, and without memory for it.
Result<FileBytes> ReadWholeFile(const std::filesystem::path& path, std::uint64_t maxSize);

}  // namespace orlix
