#pragma once
// The noise that multiplies the density of a gas.

#include <memory>

#include "fluids/volume_renderer/GasSettings.h"
#include "host/description/CurveData.h"
#include "host/noise/Noise.h"

namespace orlix {

class GasNoise {
 public:
  // curve may be null; time in seconds.
  GasNoise(const GasNoiseSettings& settings, const Gradient* curve, double time);

  // At a place in host units, or in metres: what the settings' space says.
  double Value(const Vec3D& place) const;
  bool hostSpace() const { return settings_.hostSpace; }

 private:
  GasNoiseSettings settings_;
  std::unique_ptr<Gradient> curve_;
  Noise noise_;
  NoiseType type_;
  NoiseArguments arguments_;
};

}  // namespace orlix
