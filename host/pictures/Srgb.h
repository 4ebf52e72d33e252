#pragma once
// The curve of sRGB (IEC 61966-2-1) and quantities on a display.

#include <cmath>

#include "globals/Vec.h"

namespace orlix {

inline double LinearToSrgb(double v) { return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055; }
inline double SrgbToLinear(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }

inline Vec3D LinearToSrgb(const Vec3D& c) { return {LinearToSrgb(c.x), LinearToSrgb(c.y), LinearToSrgb(c.z)}; }
inline Vec3D SrgbToLinear(const Vec3D& c) { return {SrgbToLinear(c.x), SrgbToLinear(c.y), SrgbToLinear(c.z)}; }

}  // namespace orlix
