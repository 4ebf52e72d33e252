#pragma once
// The tag that makes a volume an obstacle and holds the settings of its body.

#include "host/description/TypeRegistry.h"

namespace orlix {

inline constexpr int kBodyMass = 2002;
inline constexpr int kBodyDensity = 2003;
inline constexpr int kBodyLinearMotionScale = 2004;
inline constexpr int kBodyAngularMotionScale = 2005;
inline constexpr int kBodyMassMode = 2008;
inline constexpr int kBodyDriven = 2040;

const TypeInfo& ObstacleTagType();

}  // namespace orlix
