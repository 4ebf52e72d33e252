#pragma once
// The bytes of a HyperFile. All numbers are little-endian.
//
//   file    = ident (4 characters) "hyp1"  item...  end
//   item    = value | chunk
//   value   = tag (1 byte) and 1, 2, 4, 8 or 24 bytes; Memory and String: u64 length and as many bytes
//   chunk   = tag, i32 id, i32 level, u64 length, u64 checksum, and length bytes of items
//   end     = tag, u64 size of the file, u64 checksum of the top level, u64 checksum of the file's first 8 bytes and
//   the
//             end's first 17
//
// A checksum (xxHash64) covers the items of one level: its values and the headers of its chunks, but not their
// contents, which have their own. So each byte is covered once, a reader that needs one chunk checks only that one, and
// the header of a frame is trusted without reading the bulk after it.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orlix {

// What the next item of a HyperFile is; the numbers are the tags.
enum class HyperValue : std::uint8_t {
  None = 0,  // the end of the chunk or of the file
  Bool = 1,
  Word = 2,
  Long = 3,
  LongLong = 4,
  Real = 5,
  LReal = 6,
  Vector = 7,
  Memory = 8,
  String = 9,
  Chunk = 16,
  End = 17
};

namespace hyper {

static_assert(std::endian::native == std::endian::little, "values are copied as they stand in memory");

constexpr char kVersion[4] = {'h', 'y', 'p', '1'};
constexpr std::size_t kFileHeader = 8;
constexpr std::size_t kChunkHeader = 25;
constexpr std::size_t kEnd = 25;
constexpr std::size_t kEndHashed = 17;
constexpr int kMaxDepth = 64;

// Bytes after the tag for the values of a fixed size, 0 for the others.
constexpr std::size_t FixedSize(HyperValue value) {
  switch (value) {
    case HyperValue::Bool:
      return 1;
    case HyperValue::Word:
      return 2;
    case HyperValue::Long:
    case HyperValue::Real:
      return 4;
    case HyperValue::LongLong:
    case HyperValue::LReal:
      return 8;
    case HyperValue::Vector:
      return 24;
    default:
      return 0;
  }
}

struct ChunkHeader {
  std::int32_t id = 0, level = 0;
  std::uint64_t length = 0, checksum = 0;

  void Put(unsigned char* bytes) const {
    bytes[0] = static_cast<unsigned char>(HyperValue::Chunk);
    std::memcpy(bytes + 1, &id, 4);
    std::memcpy(bytes + 5, &level, 4);
    std::memcpy(bytes + 9, &length, 8);
    std::memcpy(bytes + 17, &checksum, 8);
  }
  static ChunkHeader Get(const unsigned char* bytes) {
    ChunkHeader header;
    std::memcpy(&header.id, bytes + 1, 4);
    std::memcpy(&header.level, bytes + 5, 4);
    std::memcpy(&header.length, bytes + 9, 8);
    std::memcpy(&header.checksum, bytes + 17, 8);
    return header;
  }
};

// The first eight bytes: the ident as its four characters, the most significant first, and the version.
inline void PutFileHeader(unsigned char* bytes, std::uint32_t ident) {
  for (int i = 0; i < 4; i++) bytes[i] = static_cast<unsigned char>(ident >> (24 - 8 * i));
  std::memcpy(bytes + 4, kVersion, 4);
}
inline std::uint32_t GetIdent(const unsigned char* bytes) {
  return std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 | std::uint32_t(bytes[2]) << 8 | bytes[3];
}

}  // namespace hyper
}  // namespace orlix
