#include "fluids/caches/PackedBlock.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstring>

#include "host/files/Compressor.h"

namespace orlix {

namespace {

// Eight numbers of eight bytes as eight runs of bytes by their places, and back: byte b of x[n] becomes byte n of x[b].
void Transpose(std::uint64_t* x) {
  const auto swap = [x](int step, std::uint64_t mask) {
    const int shift = 8 * step;
    for (int i = 0; i < 8; ++i) {
      if ((i & step) != 0) continue;
      const std::uint64_t t = ((x[i] >> shift) ^ x[i + step]) & mask;
      x[i + step] ^= t;
      x[i] ^= t << shift;
    }
  };
  swap(1, 0x00FF00FF00FF00FF);
  swap(2, 0x0000FFFF0000FFFF);
  swap(4, 0x00000000FFFFFFFF);
}

// Between numbers and their bytes by places, eight doubles at a time; gives how many numbers were moved.
template <bool kSplit>
std::size_t MoveDoubles(const std::byte* from, std::byte* to, std::size_t count) {
  std::uint64_t x[8];
  std::size_t n = 0;
  for (; n + 8 <= count; n += 8) {
    if (kSplit) std::memcpy(x, from + n * 8, sizeof x);
    for (std::size_t b = 0; !kSplit && b < 8; ++b) std::memcpy(x + b, from + b * count + n, 8);
    Transpose(x);
    if (!kSplit) std::memcpy(to + n * 8, x, sizeof x);
    for (std::size_t b = 0; kSplit && b < 8; ++b) std::memcpy(to + b * count + n, x + b, 8);
  }
  return n;
}

void SplitPlanes(std::span<const std::byte> numbers, std::size_t size, std::vector<std::byte>& planes) {
  const std::size_t count = numbers.size() / size;
  planes.resize(numbers.size());
  const std::size_t done = size == 8 ? MoveDoubles<true>(numbers.data(), planes.data(), count) : 0;
  for (std::size_t b = 0; b < size; ++b) {
    std::byte* plane = planes.data() + b * count;
    const std::byte* from = numbers.data() + b;
    for (std::size_t n = done; n < count; ++n) plane[n] = from[n * size];
  }
}

void JoinPlanes(const std::vector<std::byte>& planes, std::size_t size, std::span<std::byte> numbers) {
  const std::size_t count = numbers.size() / size;
  const std::size_t done = size == 8 ? MoveDoubles<false>(planes.data(), numbers.data(), count) : 0;
  for (std::size_t b = 0; b < size; ++b) {
    const std::byte* plane = planes.data() + b * count;
    std::byte* to = numbers.data() + b;
    for (std::size_t n = done; n < count; ++n) to[n * size] = plane[n];
  }
}

}  // namespace

PackedBytes PackBlock(std::span<const std::byte> block, std::size_t numberSize) {
  thread_local std::vector<std::byte> planes, packed;
  if (block.empty()) return {};
  SplitPlanes(block, numberSize, planes);
  if (!Compressor::CompressPlanes(planes, block.size() / numberSize, packed) || packed.size() >= block.size())
    return {};
  return {true, {packed.begin(), packed.end()}};
}

bool WritePackedBlock(HyperFileWriter& file, std::span<const std::byte> block, const PackedBytes& packed) {
  const std::span<const std::byte> stored = packed.compressed ? std::span<const std::byte>(packed.bytes) : block;
  return file.WriteBool(packed.compressed) && file.WriteMemory(stored.data(), stored.size());
}

bool WritePackedBlock(HyperFileWriter& file, std::span<const std::byte> block, std::size_t numberSize, bool compress) {
  return WritePackedBlock(file, block, compress ? PackBlock(block, numberSize) : PackedBytes());
}

Status CheckPackedBlock(HyperFileReader& file, const std::string& fileName, std::uint64_t bytes, bool& compressed) {
  std::uint64_t size = 0;
  if (!file.ReadBool(compressed) || !file.NextMemorySize(size)) return file.readStatus();
  if (compressed ? Compressor::LargestContent(size) < bytes : size != bytes) {
    return Status::Fail(ErrorKind::InputFile,
                        fmt::format("{}: damaged: a block of {} bytes for {}", fileName, size, bytes));
  }
  return {};
}

Status ReadPackedBytes(HyperFileReader& file, const std::string& fileName, std::span<std::byte> block,
                       std::size_t numberSize, bool compressed) {
  if (!compressed) return file.ReadMemory(block.data(), block.size()) ? Status() : file.readStatus();
  thread_local std::vector<std::byte> packed, planes;
  if (!file.ReadMemory(packed)) return file.readStatus();
  planes.resize(block.size());
  if (!Compressor::Uncompress(packed, planes)) {
    return Status::Fail(ErrorKind::InputFile, fileName + ": damaged: a block that can't be uncompressed");
  }
  JoinPlanes(planes, numberSize, block);
  return {};
}

Status ReadPackedBlock(HyperFileReader& file, const std::string& fileName, std::span<std::byte> block,
                       std::size_t numberSize) {
  bool compressed = false;
  if (Status fits = CheckPackedBlock(file, fileName, block.size(), compressed); !fits) return fits;
  return ReadPackedBytes(file, fileName, block, numberSize, compressed);
}

}  // namespace orlix
