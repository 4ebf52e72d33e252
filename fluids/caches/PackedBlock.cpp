#include "fluids/caches/PackedBlock.h"

#include <fmt/format.h>

#include "host/files/Compressor.h"

namespace orlix {

namespace {

// Frames are large and many: what the fastest level leaves, slower ones hardly shrink further.
constexpr int kFastest = 1;

void SplitPlanes(std::span<const std::byte> numbers, std::size_t size, std::vector<std::byte>& planes) {
  const std::size_t count = numbers.size() / size;
  planes.resize(numbers.size());
  for (std::size_t b = 0; b < size; ++b) {
    std::byte* plane = planes.data() + b * count;
    const std::byte* from = numbers.data() + b;
    for (std::size_t n = 0; n < count; ++n) plane[n] = from[n * size];
  }
}

void JoinPlanes(const std::vector<std::byte>& planes, std::size_t size, std::span<std::byte> numbers) {
  const std::size_t count = numbers.size() / size;
  for (std::size_t b = 0; b < size; ++b) {
    const std::byte* plane = planes.data() + b * count;
    std::byte* to = numbers.data() + b;
    for (std::size_t n = 0; n < count; ++n) to[n * size] = plane[n];
  }
}

}  // namespace

bool WritePackedBlock(HyperFileWriter& file, std::span<const std::byte> block, std::size_t numberSize, bool compress) {
  thread_local std::vector<std::byte> planes, packed;
  bool compressed = false;
  if (compress && !block.empty()) {
    SplitPlanes(block, numberSize, planes);
    compressed = Compressor::Compress(planes, kFastest, packed) && packed.size() < block.size();
  }
  const std::span<const std::byte> stored = compressed ? std::span<const std::byte>(packed) : block;
  return file.WriteBool(compressed) && file.WriteMemory(stored.data(), stored.size());
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
