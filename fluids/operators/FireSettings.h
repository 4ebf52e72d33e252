#pragma once
// What combustion and cooling read of a fire or fuel channel. A plain scalar channel in its place counts as one with
// the values of a new object.

#include <algorithm>

#include "fluids/channels/ScalarChannels.h"

namespace orlix {

inline double FlameTemperatureOf(const ChannelBase_Scalar& channel) {
  const auto* fire = dynamic_cast<const FireGridChannel*>(&channel);
  return fire ? fire->flameTemperature : 1600.0;
}
inline double IgnitionTemperatureOf(const ChannelBase_Scalar& channel) {
  const auto* fuel = dynamic_cast<const FuelGridChannel*>(&channel);
  return fuel ? fuel->ignitionTemperature : 600.0;
}
// The fire value above which a flame burns: the flame's temperature as a share of the largest, at most 0.99.
inline double FlameThreshold(const ChannelBase_Scalar& fire, const ChannelBase_Scalar& temperature) {
  return std::min(0.99, FlameTemperatureOf(fire) / temperature.valueMax);
}

}  // namespace orlix
