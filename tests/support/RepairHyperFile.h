#pragma once
// Gives a broken HyperFile checksums and an end record that agree, so that what follows them is tried, too.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <vector>

#include "globals/Hash.h"
#include "host/files/HyperFileFormat.h"

namespace orlix::test {

// The checksum of the items between begin and end, with the chunks among them repaired. Stops at what is no item.
inline std::uint64_t RepairLevel(std::vector<std::byte>& bytes, std::size_t begin, std::size_t end, int depth = 0) {
  StateHash hash;
  std::size_t at = begin, from = begin;
  while (at < end && depth < 200) {
    const auto value = static_cast<HyperValue>(bytes[at]);
    std::size_t header = 1, size = hyper::FixedSize(value);
    if (value == HyperValue::Memory || value == HyperValue::String) header = 9;
    if (value == HyperValue::Chunk) header = hyper::kChunkHeader;
    if ((header == 1 && size == 0) || header > end - at) break;
    if (header == 9) std::memcpy(&size, &bytes[at + 1], 8);
    if (value == HyperValue::Chunk) std::memcpy(&size, &bytes[at + 9], 8);
    if (size > end - at - header) break;
    if (value == HyperValue::Chunk) {
      const std::uint64_t sum = RepairLevel(bytes, at + header, at + header + size, depth + 1);
      std::memcpy(&bytes[at + 17], &sum, 8);
      hash.Add(&bytes[from], at + header - from);
      from = at + header + size;
    }
    at += header + size;
  }
  if (end > from) hash.Add(&bytes[from], end - from);
  return hash.Value();
}

inline void RepairHyperFile(std::vector<std::byte>& bytes, std::uint32_t ident) {
  if (bytes.size() < hyper::kFileHeader + hyper::kEnd) return;
  auto* raw = reinterpret_cast<unsigned char*>(bytes.data());
  hyper::PutFileHeader(raw, ident);
  unsigned char* end = raw + bytes.size() - hyper::kEnd;
  const std::uint64_t size = bytes.size();
  const std::uint64_t top = RepairLevel(bytes, hyper::kFileHeader, bytes.size() - hyper::kEnd);
  end[0] = static_cast<unsigned char>(HyperValue::End);
  std::memcpy(end + 1, &size, 8);
  std::memcpy(end + 9, &top, 8);
  unsigned char record[hyper::kFileHeader + hyper::kEndHashed];
  std::memcpy(record, raw, hyper::kFileHeader);
  std::memcpy(record + hyper::kFileHeader, end, hyper::kEndHashed);
  const std::uint64_t own = HashBytes(record, sizeof record);
  std::memcpy(end + hyper::kEndHashed, &own, 8);
}

// Some numbers changed, with checksums that agree.
inline std::vector<std::byte> MutantOf(std::vector<std::byte> bytes, std::uint32_t ident, std::mt19937& random) {
  constexpr std::uint64_t kValues[] = {0, 1, 2, 0x7fffffff, 0xffffffff, 0x80000000, 1625, 0x7ff8000000000000};
  for (std::size_t changes = 1 + random() % 3; changes > 0; changes--) {
    const std::uint64_t value = random() % 3 == 0 ? random() : kValues[random() % std::size(kValues)];
    const std::size_t size = std::size_t(1) << random() % 4;
    std::memcpy(&bytes[random() % (bytes.size() - size)], &value, size);
  }
  RepairHyperFile(bytes, ident);
  return bytes;
}

}  // namespace orlix::test
