#include "fluids/volume_renderer/PhaseFunction.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

double Power15(double v) { return v * std::sqrt(v); }

double HenyeyGreenstein(double c, double g) { return (1 - g * g) / Power15(1 + g * g - 2 * g * c); }

// g limited so that the value is finite, not negative and largest ahead for every cosine.
double CornetteShanks(double c, double g) {
  const double h = std::clamp(g, 0.0, 0.99), h2 = h * h;
  return 1.5 * (1 - h2) / (2 + h2) * (1 + c * c) / Power15(1 + h2 - 2 * h * c);
}

double PowerOfTwo(double v, int doublings) {
  for (int n = 0; n < doublings; ++n) v *= v;
  return v;
}

}  // namespace

std::optional<PhaseFunction> PhaseFunction::Make(std::uint32_t index, float mix) {
  if (index > static_cast<std::uint32_t>(PhaseKind::HenyeyGreensteinCubed)) return std::nullopt;
  return PhaseFunction(static_cast<PhaseKind>(index), mix);
}

double PhaseFunction::Evaluate(double c, double g, double h) const {
  switch (kind_) {
    case PhaseKind::Isotropic:
      return 1;
    case PhaseKind::HenyeyGreenstein:
      return HenyeyGreenstein(c, g);
    case PhaseKind::Rayleigh:
      return (1 + c * c) * g;
    case PhaseKind::Mie:
      return CornetteShanks(c, g);
    case PhaseKind::MieHazy:
      return 4.5 * PowerOfTwo((1 + c) / 2, 3) + 0.5;
    case PhaseKind::MieMurky:
      return 16.5 * PowerOfTwo((1 + c) / 2, 5) + 0.5;
    case PhaseKind::Schlick:
      return (1 - g * g) / ((1 - c * g) * (1 - c * g));
    case PhaseKind::DoubleHenyeyGreenstein:
      return (HenyeyGreenstein(c, g) - HenyeyGreenstein(c, h)) * mix_ + HenyeyGreenstein(c, h);
    case PhaseKind::HenyeyGreensteinCubed:
      return 3 * (1 - g * g) / (2 * (1 - g * g)) * (1 + c * c * c) / Power15(1 + g * g - 2 * g * c);
  }
  return 0;
}

}  // namespace orlix
