#pragma once
// Blocks of numbers in frame files: Bool compressed, then Memory. A compressed block holds the numbers' bytes by their
// places, all first bytes, then all second ones, and so on: signs and exponents, which repeat, stand together.

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "host/files/HyperFile.h"

namespace orlix {

// A block's compressed form; none where it doesn't become smaller.
struct PackedBytes {
  bool compressed = false;
  std::vector<std::byte> bytes;
};
PackedBytes PackBlock(std::span<const std::byte> block, std::size_t numberSize);
// Writes a block that was packed before.
bool WritePackedBlock(HyperFileWriter& file, std::span<const std::byte> block, const PackedBytes& packed);

// numberSize: bytes of one number, which divide the block's. A block that the compressor fails on is stored as it is.
bool WritePackedBlock(HyperFileWriter& file, std::span<const std::byte> block, std::size_t numberSize, bool compress);
template <class T>
bool WritePackedBlock(HyperFileWriter& file, const std::vector<T>& values, std::size_t numberSize, bool compress) {
  return WritePackedBlock(file, std::as_bytes(std::span(values)), numberSize, compress);
}

// Fills the block, or fails. Nothing beyond it is read or taken.
Status ReadPackedBlock(HyperFileReader& file, const std::string& fileName, std::span<std::byte> block,
                       std::size_t numberSize);
// As many values, once the file is known to have them.
template <class T>
Status ReadPackedBlock(HyperFileReader& file, const std::string& fileName, std::size_t count, std::size_t numberSize,
                       std::vector<T>& values);
// Whether the next block can hold this many bytes; moves nothing.
Status CheckPackedBlock(HyperFileReader& file, const std::string& fileName, std::uint64_t bytes, bool& compressed);
// The same, with the block's bytes to follow.
Status ReadPackedBytes(HyperFileReader& file, const std::string& fileName, std::span<std::byte> block,
                       std::size_t numberSize, bool compressed);

template <class T>
Status ReadPackedBlock(HyperFileReader& file, const std::string& fileName, std::size_t count, std::size_t numberSize,
                       std::vector<T>& values) {
  bool compressed = false;
  if (Status fits = CheckPackedBlock(file, fileName, std::uint64_t(count) * sizeof(T), compressed); !fits) return fits;
  values.resize(count);
  return ReadPackedBytes(file, fileName, std::as_writable_bytes(std::span(values)), numberSize, compressed);
}

}  // namespace orlix
