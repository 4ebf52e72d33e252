#include "host/files/Compressor.h"

#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace orlix {

namespace {

constexpr std::size_t kPiece = 64 * 1024;        // what is tried at once
constexpr std::size_t kSample = 1024;            // of a piece at least, or an eighth of it
constexpr std::size_t kStoredBlock = 64 * 1024;  // a frame's blocks hold at most 128 KB
constexpr int kFastest = 1;

struct FreeContext {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

// Whether the middle of a piece becomes smaller, as then the rest does.
bool Shrinks(ZSTD_CCtx* context, std::span<const std::byte> piece) {
  const std::size_t size = std::min(piece.size(), std::max(kSample, piece.size() / 8));
  std::byte packed[kPiece / 4];
  const std::size_t result =
      ZSTD_compressCCtx(context, packed, sizeof packed, piece.data() + (piece.size() - size) / 2, size, kFastest);
  return ZSTD_isError(result) || result < size;
}

// A frame of blocks that are stored as they lie (RFC 8878, 3.1.1): its size in eight bytes, no window, no checksum.
std::size_t StoredBytes(std::size_t size) { return 13 + size + 3 * ((size + kStoredBlock - 1) / kStoredBlock); }
std::byte* PutStored(std::span<const std::byte> source, std::byte* to) {
  const unsigned char head[5] = {0x28, 0xB5, 0x2F, 0xFD, 0xE0};
  const std::uint64_t size = source.size();
  std::memcpy(to, head, sizeof head), std::memcpy(to + sizeof head, &size, sizeof size);
  to += sizeof head + sizeof size;
  while (!source.empty()) {
    const std::size_t part = std::min(source.size(), kStoredBlock);
    const auto block = static_cast<std::uint32_t>(part << 3 | (part == source.size() ? 1 : 0));
    std::memcpy(to, &block, 3), std::memcpy(to + 3, source.data(), part);
    to += 3 + part;
    source = source.subspan(part);
  }
  return to;
}

}  // namespace

bool Compressor::Compress(std::span<const std::byte> source, int level, std::vector<std::byte>& out) {
  out.clear();
  try {
    out.resize(ZSTD_compressBound(source.size()));
  } catch (const std::bad_alloc&) {
    return false;
  }
  const std::size_t size =
      ZSTD_compress(out.data(), out.size(), source.data(), source.size(), std::clamp(level, 1, 19));
  if (ZSTD_isError(size)) {
    out.clear();
    return false;
  }
  out.resize(size);
  return true;
}

bool Compressor::CompressPlanes(std::span<const std::byte> planes, std::size_t plane, std::vector<std::byte>& out) {
  thread_local const std::unique_ptr<ZSTD_CCtx, FreeContext> context(ZSTD_createCCtx());
  if (!context) return false;
  std::size_t used = 0;
  // Neighbours of a kind become one frame.
  const auto put = [&](std::span<const std::byte> source, bool shrinks) {
    const std::size_t room = shrinks ? ZSTD_compressBound(source.size()) : StoredBytes(source.size());
    if (out.size() < used + room) out.resize(std::max(used + room, planes.size()));
    if (!shrinks) {
      used = static_cast<std::size_t>(PutStored(source, out.data() + used) - out.data());
      return true;
    }
    const std::size_t size =
        ZSTD_compressCCtx(context.get(), out.data() + used, out.size() - used, source.data(), source.size(), kFastest);
    used += ZSTD_isError(size) ? 0 : size;
    return ZSTD_isError(size) == 0;
  };
  try {
    std::size_t begin = 0;
    bool shrinking = false;
    for (std::size_t at = 0, end; at < planes.size(); at = end) {
      end = std::min({planes.size(), at + kPiece, (at / plane + 1) * plane});
      const bool shrinks = Shrinks(context.get(), planes.subspan(at, end - at));
      if (at > begin && shrinks != shrinking) {
        if (!put(planes.subspan(begin, at - begin), shrinking)) return false;
        begin = at;
      }
      shrinking = shrinks;
    }
    if (begin < planes.size() && !put(planes.subspan(begin), shrinking)) return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  out.resize(used);
  return true;
}

bool Compressor::Uncompress(std::span<const std::byte> source, std::span<std::byte> target) {
  thread_local const std::unique_ptr<ZSTD_DCtx, FreeContext> context(ZSTD_createDCtx());
  if (!context) return false;
  const std::size_t size =
      ZSTD_decompressDCtx(context.get(), target.data(), target.size(), source.data(), source.size());
  return !ZSTD_isError(size) && size == target.size();
}

}  // namespace orlix
