#pragma once
// Where a row of samples lies against a signed distance, by the eight nodes around each: only the few samples that the
// surface passes need more.

#include <cstdint>
#include <cstring>
#include <vector>

namespace orlix {

enum CornerClass : std::uint8_t { kCornersOpen = 0, kCornersInside = 1, kCornersMixed = 2 };

// Steps from a sample's near node to its others; a step of 0 repeats it.
struct CornerSteps {
  std::int64_t x = 0, y = 0, z = 0;
};

class CornerClasses {
 public:
  explicit CornerClasses(int longestRow) : classes_(static_cast<std::size_t>((longestRow + 7) / 8 * 8)) {}

  // Open: all nodes above openAbove. Inside: none above insideUpTo. The near nodes of the count samples start at p.
  void Find(const double* p, const CornerSteps& steps, int count, double openAbove, double insideUpTo);
  CornerClass operator[](int i) const { return static_cast<CornerClass>(classes_[static_cast<std::size_t>(i)]); }
  const std::uint8_t* data() const { return classes_.data(); }

  // Calls f(i) for the mixed samples of the last row.
  template <class F>
  void ForEachMixed(F&& f) const {
    for (std::size_t n = 0; n < classes_.size(); n += 8) {
      std::uint64_t eight;
      std::memcpy(&eight, classes_.data() + n, 8);
      for (eight &= 0x0202020202020202u; eight != 0; eight &= eight - 1) {
        f(static_cast<int>(n) + __builtin_ctzll(eight) / 8);
      }
    }
  }

 private:
  std::vector<std::uint8_t> classes_;  // open beyond the row
};

}  // namespace orlix
