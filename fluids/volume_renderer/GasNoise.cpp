#include "fluids/volume_renderer/GasNoise.h"

#include <algorithm>
#include <cmath>

namespace orlix {

GasNoise::GasNoise(const GasNoiseSettings& settings, const Gradient* curve, double time)
    : settings_(settings),
      curve_(curve && !curve->knots().empty() ? std::make_unique<Gradient>(*curve) : nullptr),
      noise_(static_cast<std::uint32_t>(settings.seed)),
      type_(NoiseTypeOf(settings.type)) {
  if (UsesFractalTable(type_)) noise_.SetUpFractal(50, 0.77, 1.0);
  arguments_.time = time * settings.speed;
  arguments_.octaves = settings.octaves;
  arguments_.absolute = settings.absolute;
  arguments_.sampleRadius = settings.sampleRadius;
  arguments_.detailAttenuation = settings.detailAttenuation;
  arguments_.timeRepeat = settings.timeRepeat;
}

double GasNoise::Value(const Vec3D& place) const {
  double v = noise_.Sample(type_, place * settings_.frequency * settings_.scale, arguments_);
  if (v > 0) {
    const double low = settings_.lowClip, high = settings_.highClip;
    v = v <= low && low != high ? 0 : v >= high || low == high ? 1 : (v - low) / (high - low);
    v = std::clamp(v + settings_.brightness, 0.0, 1.0);
    v = (std::fabs(v) - 0.5) * settings_.contrast + 0.5;
  }
  return curve_ ? curve_->ColourAt(v).x : v;
}

}  // namespace orlix
