#pragma once
// Time as a fraction, in seconds, as the host keeps it. Frame numbers come from the fraction, never from rounded
// seconds.

#include <cmath>
#include <cstdint>

namespace orlix {

struct BaseTime {
  double numerator = 0, denominator = 1;

  // Seconds; 0 when the denominator is 0.
  double Seconds() const { return denominator == 0 ? 0 : numerator / denominator; }
  // floor(numerator x fps) / floor(denominator), truncated; 0 when the denominator is 0.
  std::int32_t Frame(double fps) const {
    const double d = std::floor(denominator);
    return d == 0 ? 0 : static_cast<std::int32_t>(std::floor(numerator * fps) / d);
  }
  static BaseTime OfFrame(std::int32_t frame, double fps) { return {static_cast<double>(frame), fps}; }
};

}  // namespace orlix
