#pragma once
// A bit for each cell or edge of a lattice, in words by rows of x, and how many are set before each word: bits stand
// for the points of a surface, and a point's number is found from its place.

#include <bit>
#include <cstdint>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

class BitRows {
 public:
  BitRows() = default;
  explicit BitRows(const VecInt3D& dims)
      : dims_(dims),
        words_((dims.x + 63) / 64),
        bits_(static_cast<std::size_t>(words_) * static_cast<std::size_t>(dims.y) * static_cast<std::size_t>(dims.z)),
        ranks_(bits_.size()) {}

  const VecInt3D& dims() const { return dims_; }
  int words() const { return words_; }
  std::uint64_t* Row(int j, int k) { return bits_.data() + At(j, k); }
  const std::uint64_t* Row(int j, int k) const { return bits_.data() + At(j, k); }
  bool Has(int i, int j, int k) const { return (Row(j, k)[i / 64] >> (i % 64) & 1) != 0; }

  // Numbers the row's bits from first on; gives the number after the last one.
  std::uint32_t NumberRow(int j, int k, std::uint32_t first) {
    const std::size_t at = At(j, k);
    for (std::size_t w = at; w < at + static_cast<std::size_t>(words_); ++w) {
      ranks_[w] = first;
      first += static_cast<std::uint32_t>(std::popcount(bits_[w]));
    }
    return first;
  }
  // The number of a set bit.
  std::uint32_t Number(int i, int j, int k) const {
    const std::size_t w = At(j, k) + static_cast<std::size_t>(i / 64);
    return ranks_[w] + static_cast<std::uint32_t>(std::popcount(bits_[w] & ((std::uint64_t(1) << (i % 64)) - 1)));
  }

 private:
  std::size_t At(int j, int k) const {
    return (static_cast<std::size_t>(k) * static_cast<std::size_t>(dims_.y) + static_cast<std::size_t>(j)) *
           static_cast<std::size_t>(words_);
  }

  VecInt3D dims_;
  int words_ = 0;
  std::vector<std::uint64_t> bits_;
  std::vector<std::uint32_t> ranks_;
};

// Calls f(i) for the set bits of a word whose first stands for begin.
template <class F>
void ForSetBits(std::uint64_t word, int begin, F&& f) {
  for (; word != 0; word &= word - 1) f(begin + std::countr_zero(word));
}

// Bits [begin, end) of a row, of its word w.
inline std::uint64_t WordOfRange(int w, int begin, int end) {
  const auto below = [w](int n) {
    const int bits = n - 64 * w;
    return bits <= 0 ? 0 : bits >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << bits) - 1;
  };
  return below(end) & ~below(begin);
}

}  // namespace orlix
