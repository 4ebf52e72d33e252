#include "host/render/BlueNoise.h"

#include <array>
#include <cmath>
#include <vector>

#include "globals/Random.h"

namespace orlix {

namespace {

constexpr int kSide = kBlueNoiseSide, kCount = kSide * kSide;
constexpr int kReach = 7;  // cells of the filter that count
constexpr double kWidth = 1.5;

// Points on a torus, and how crowded each place is.
class Pattern {
 public:
  Pattern() {
    for (int dy = -kReach; dy <= kReach; ++dy) {
      for (int dx = -kReach; dx <= kReach; ++dx) {
        filter_[Cell(dx + kReach, dy + kReach, 2 * kReach + 1)] =
            std::exp(-(dx * dx + dy * dy) / (2 * kWidth * kWidth));
      }
    }
  }
  bool Has(int cell) const { return points_[static_cast<std::size_t>(cell)]; }
  void Flip(int cell) {
    const double sign = Has(cell) ? -1 : 1;
    points_[static_cast<std::size_t>(cell)] = !Has(cell);
    const int x = cell % kSide, y = cell / kSide;
    for (int dy = -kReach; dy <= kReach; ++dy) {
      for (int dx = -kReach; dx <= kReach; ++dx) {
        crowd_[Cell((x + dx + kSide) % kSide, (y + dy + kSide) % kSide, kSide)] +=
            sign * filter_[Cell(dx + kReach, dy + kReach, 2 * kReach + 1)];
      }
    }
  }
  // The most crowded point, or the emptiest place without one.
  int Tightest() const { return Best(true, 1); }
  int Emptiest() const { return Best(false, -1); }

 private:
  static std::size_t Cell(int x, int y, int width) { return static_cast<std::size_t>(y * width + x); }
  int Best(bool point, double sign) const {
    int best = -1;
    for (int c = 0; c < kCount; ++c) {
      const auto n = static_cast<std::size_t>(c);
      if (points_[n] == point && (best < 0 || sign * crowd_[n] > sign * crowd_[static_cast<std::size_t>(best)]))
        best = c;
    }
    return best;
  }
  std::array<double, (2 * kReach + 1) * (2 * kReach + 1)> filter_{};
  std::vector<bool> points_ = std::vector<bool>(kCount, false);
  std::vector<double> crowd_ = std::vector<double>(kCount, 0.0);
};

std::vector<double> MakeTile() {
  Pattern pattern;
  MersenneTwister random(1);
  int points = 0;
  while (points < kCount / 10) {
    const int cell = static_cast<int>(random.Bits() % kCount);
    if (!pattern.Has(cell)) pattern.Flip(cell), ++points;
  }
  // Even them out: from where they crowd to where there is room, until that is the same place.
  for (;;) {
    const int from = pattern.Tightest();
    pattern.Flip(from);
    const int to = pattern.Emptiest();
    pattern.Flip(to);
    if (to == from) break;
  }
  std::vector<double> tile(kCount);
  const auto give = [&](int cell, int rank) { tile[static_cast<std::size_t>(cell)] = (rank + 0.5) / kCount; };
  Pattern fewer = pattern;
  for (int rank = points - 1; rank >= 0; --rank) {
    const int cell = fewer.Tightest();
    fewer.Flip(cell), give(cell, rank);
  }
  for (int rank = points; rank < kCount; ++rank) {
    const int cell = pattern.Emptiest();
    pattern.Flip(cell), give(cell, rank);
  }
  return tile;
}

}  // namespace

double BlueNoise(int x, int y) {
  static const std::vector<double> kTile = MakeTile();
  return kTile[static_cast<std::size_t>((y & (kSide - 1)) * kSide + (x & (kSide - 1)))];
}

}  // namespace orlix
