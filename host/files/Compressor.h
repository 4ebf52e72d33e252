#pragma once
// The host's memory compressor (Zstandard, RFC 8878).

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orlix {

class Compressor {
 public:
  // level 1 (fast) to 19 (small). False when memory is short; out is empty then.
  static bool Compress(std::span<const std::byte> source, int level, std::vector<std::byte>& out);
  // Planes of so many bytes, one after the other, at the fastest level: pieces of them that don't shrink, by a sample
  // of each, are stored as they lie, which is many times faster. Uncompress reads both. False when memory is short.
  static bool CompressPlanes(std::span<const std::byte> planes, std::size_t plane, std::vector<std::byte>& out);
  // No block of this size can hold more than this: its densest form, one byte repeated, spends 4 bytes on 128 KB.
  static constexpr std::uint64_t LargestContent(std::uint64_t packedSize) { return packedSize << 15; }
  // Exactly target.size() bytes, or false. Whatever the source claims, nothing beyond the target is written or taken.
  static bool Uncompress(std::span<const std::byte> source, std::span<std::byte> target);
};

}  // namespace orlix
