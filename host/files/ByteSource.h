#pragma once
// Bytes to read from: a file, through a window, or a block of memory. Reads beyond the end fail.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
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

// The bytes of a file, refused beyond the size given.
Result<std::vector<std::byte>> ReadWholeFile(const std::filesystem::path& path, std::uint64_t maxSize);

}  // namespace orlix
