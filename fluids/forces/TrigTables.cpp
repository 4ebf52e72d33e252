#include "fluids/forces/TrigTables.h"

#include <array>
#include <cmath>
#include <numbers>

namespace orlix {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr int kEntries = 4096;

struct Tables {
  std::array<double, kEntries + 1> sine, arcSine;
  Tables() {
    for (int i = 0; i <= kEntries; ++i) {
      sine[i] = std::sin(2 * kPi * i / kEntries);
      arcSine[i] = std::asin(2.0 * i / kEntries - 1);
    }
  }
};

const Tables& TheTables() {
  static const Tables kTables;
  return kTables;
}

}  // namespace

double TableSin(double x) {
  const double turns = x / (2 * kPi), period = turns - std::floor(turns);
  if (!(period >= 0 && period <= 1)) return 0;
  return TheTables().sine[static_cast<std::size_t>(period * kEntries + 0.5)];
}

double TableCos(double x) { return TableSin(x + kPi / 2); }

double TableAcos(double x) {
  if (x <= -1) return kPi;
  if (!(x < 1)) return 0;
  return kPi / 2 - TheTables().arcSine[static_cast<std::size_t>((x + 1) * (kEntries / 2) + 0.5)];
}

}  // namespace orlix
