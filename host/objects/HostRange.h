#pragma once
// How large places, sizes and scales in parameters may be: single precision, which the ray tracer of pictures
// calculates in, holds their third powers.

namespace orlix {

inline constexpr double kMostHostUnits = 1e9;
inline constexpr double kMostScale = 1e6;

}  // namespace orlix
