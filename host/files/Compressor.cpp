#include "host/files/Compressor.h"

#include <zstd.h>

#include <algorithm>
#include <new>

namespace orlix {

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

bool Compressor::Uncompress(std::span<const std::byte> source, std::span<std::byte> target) {
  const std::size_t size = ZSTD_decompress(target.data(), target.size(), source.data(), source.size());
  return !ZSTD_isError(size) && size == target.size();
}

}  // namespace orlix
