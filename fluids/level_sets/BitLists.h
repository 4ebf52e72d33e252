#pragma once
// Bits without branches: lists of those that are set in a byte, and words of bytes.

#include <array>
#include <cstdint>
#include <cstring>

namespace orlix {

struct BitList {
  std::uint8_t bits[8], count;
};
inline constexpr std::array<BitList, 256> kBitLists = [] {
  std::array<BitList, 256> lists{};
  for (std::size_t pattern = 0; pattern < lists.size(); ++pattern) {
    for (int bit = 0; bit < 8; ++bit) {
      if ((pattern >> bit & 1) != 0) lists[pattern].bits[lists[pattern].count++] = static_cast<std::uint8_t>(bit);
    }
  }
  return lists;
}();

// A bit for each of 64 bytes that are 0 or 1.
inline std::uint64_t PackBytes(const std::uint8_t* bytes) {
  std::uint64_t word = 0;
  for (int n = 0; n < 8; ++n) {
    std::uint64_t eight;
    std::memcpy(&eight, bytes + 8 * n, sizeof eight);
    word |= (eight * 0x0102040810204080) >> 56 << (8 * n);
  }
  return word;
}

}  // namespace orlix
