#pragma once
// The numbers of the bits that are set in a byte, for lists that are made without branches.

#include <array>
#include <cstdint>

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

}  // namespace orlix
