#pragma once
// A bit for each sample of a grid, in words by rows of x: what is found out once while solids stand still, and asked in
// every sub-step.

#include <cstdint>
#include <cstring>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

class CellMask {
 public:
  // All bits 0.
  void Resize(const VecInt3D& dims) {
    dims_ = dims;
    words_ = (dims.x + 63) / 64;
    bits_.assign(static_cast<std::size_t>(words_) * static_cast<std::size_t>(dims.y) * static_cast<std::size_t>(dims.z),
                 0);
  }
  void Clear() { *this = CellMask(); }
  bool IsEmpty() const { return bits_.empty(); }
  const VecInt3D& dims() const { return dims_; }
  int wordsPerRow() const { return words_; }
  std::int64_t Bytes() const { return static_cast<std::int64_t>(bits_.size() * sizeof(std::uint64_t)); }

  // Sample i is bit i % 64 of word i / 64.
  const std::uint64_t* Row(int j, int k) const { return bits_.data() + RowStart(j, k); }
  std::uint64_t* Row(int j, int k) { return bits_.data() + RowStart(j, k); }
  bool operator()(int i, int j, int k) const { return (Row(j, k)[i >> 6] >> (i & 63) & 1) != 0; }

  // Calls f(i) for the set bits with i in [begin, end), ascending.
  template <class F>
  static void ForEachSet(const std::uint64_t* row, int begin, int end, F&& f) {
    for (int w = begin >> 6; w << 6 < end; ++w) {
      std::uint64_t word = row[w];
      if (w == begin >> 6) word &= ~std::uint64_t(0) << (begin & 63);
      for (; word != 0; word &= word - 1) {
        const int i = (w << 6) + __builtin_ctzll(word);
        if (i >= end) return;
        f(i);
      }
    }
  }

 private:
  std::size_t RowStart(int j, int k) const {
    return (static_cast<std::size_t>(k) * static_cast<std::size_t>(dims_.y) + static_cast<std::size_t>(j)) *
           static_cast<std::size_t>(words_);
  }

  VecInt3D dims_;
  int words_ = 0;
  std::vector<std::uint64_t> bits_;
};

// A byte a sample, 0 or 1, on its way to the bits of a row.
class RowFlags {
 public:
  explicit RowFlags(int longestRow) : flags_(static_cast<std::size_t>((longestRow + 7) / 8 * 8)) {}
  std::uint8_t* data() { return flags_.data(); }
  // Overwrites the row's words; what lies beyond the samples stays 0.
  void Pack(std::uint64_t* row) const {
    for (std::size_t n = 0; n < flags_.size(); n += 8) {
      std::uint64_t eight;
      std::memcpy(&eight, flags_.data() + n, 8);
      if (n % 64 == 0) row[n / 64] = 0;
      // The product gathers the lowest bits of the eight bytes in its top byte.
      row[n / 64] |= (eight * 0x0102040810204080u >> 56) << n % 64;
    }
  }

 private:
  std::vector<std::uint8_t> flags_;
};

}  // namespace orlix
