#pragma once
// What Houdini calls the columns of particles.

#include "exchange/points/PointBytes.h"

namespace orlix {

inline constexpr PointName kHoudiniNames[] = {
    {"velocity", "v"}, {"color", "Cd"}, {"normal", "N"}, {"radius", "pscale"}};

}  // namespace orlix
