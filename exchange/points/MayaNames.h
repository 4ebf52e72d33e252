#pragma once
// What Maya calls the columns of particles.

#include "exchange/points/PointBytes.h"

namespace orlix {

inline constexpr PointName kMayaNames[] = {{"id", "particleId"}, {"color", "rgbPP"}, {"radius", "radiusPP"}};

}  // namespace orlix
