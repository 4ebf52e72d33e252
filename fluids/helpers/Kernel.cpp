#include "fluids/helpers/Kernel.h"

#include <cmath>
#include <numbers>

namespace orlix {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr SplineKnot kCurve[] = {{0, 1}, {0.4, 0.8}, {1, 0}};

constexpr Choice kKinds[] = {
    {KernelKind::Gauss, "gauss", "Gaussian, normalised"},
    {KernelKind::Poly6, "poly6", "(1 - q)^3, normalised"},
    {KernelKind::Poly6Radius, "poly6_radius", "As poly6"},
    {KernelKind::Linear, "linear", "45 / (13 pi h^3) (1 - q)"},
    {KernelKind::Spiky, "spiky", "15 / (pi h^3) (1 - q)^3"},
    {KernelKind::CubicDifference, "cubic_difference", "15 (h^2 - r^2)^3 / (pi h^12)"},
    {KernelKind::Quadratic, "quadratic", "1 - q"},
    {KernelKind::Inverse, "inverse", "h^2 / r^2 - 1, with a ceiling near the centre"},
    {KernelKind::SoftObject, "soft_object",
     "1 - 2.44444 q + 1.88888 q^2 - 0.44444 q^3 (Wyvill, McPheeters, Wyvill 1986)"},
    {KernelKind::Exponential, "exponential", "e^(1 - q)"},
    {KernelKind::Smooth, "smooth", "(1 - q^2)^3"},
    {KernelKind::Cubic, "cubic", "(1 - q)^3"},
    {KernelKind::Curve, "curve", "The curve, over the squared relative distance"},
};

double Cube(double v) { return v * v * v; }

}  // namespace

double EvaluateKernelSquared(KernelKind kind, double r2, double h2, double h3) {
  if (kind == KernelKind::Quadratic) return std::fmax(1 - r2 / h2, 0.0);
  if (kind == KernelKind::Inverse) return std::fmax(h2 / std::fmax(r2, 1e-5) - 1, 0.0);
  if (kind == KernelKind::Exponential) return std::exp(1 - r2 / h2);
  if (!(r2 < h2)) return kind == KernelKind::Curve ? -1 : 0;
  static const double kGauss = std::pow(2 * kPi, 1.5);
  const double q = r2 / h2;
  switch (kind) {
    case KernelKind::Gauss:
      return std::exp(-r2 / (2 * h2)) / (kGauss * h3);
    case KernelKind::Poly6:
    case KernelKind::Poly6Radius:  // 315 / (64 pi h^9) (h^2 - r^2)^3 is poly6, written another way
      return 315 / (201.06192982974676 * h3) * Cube(1 - q);
    case KernelKind::Linear:
      return 45 / (40.840704496667314 * h3) * (1 - q);
    case KernelKind::Spiky:
      return 15 / (kPi * h3) * Cube(1 - q);
    case KernelKind::CubicDifference:
      return 15 * Cube(h2 - r2) / (kPi * Cube(h2) * Cube(h2));
    case KernelKind::SoftObject:
      return 1 - 2.44444 * q + 1.88888 * q * q - 0.44444 * q * q * q;
    case KernelKind::Smooth:
      return Cube(1 - q * q);
    case KernelKind::Cubic:
      return std::fmax(Cube(1 - q), 0.0);
    case KernelKind::Curve:
      return q;
    default:
      return 0;
  }
}

double EvaluateKernel(KernelKind kind, const Vec3D& a, const Vec3D& b, double radius) {
  const double r2 = LengthSquared(a - b), h2 = radius * radius;
  if (kind == KernelKind::Exponential && !(r2 < h2)) return 0;
  return EvaluateKernelSquared(kind, r2, h2, h2 * radius);
}

const TypeInfo& Kernel::Type() {
  static constexpr Parameter kParameters[] = {
      ChoiceParameter(kKindId, "kind", KernelKind::Quadratic, kKinds, "The weight function"),
      SplineParameter(kCurveId, "curve", kCurve, "The weight over the squared relative distance")
          .ShownWhen(kKindId, Relation::Is, KernelKind::Curve),
  };
  static const TypeInfo kType = {
      .id = 1300066,
      .resource = "zq_kernel",
      .className = "C4D_Kernel_Object",
      .label = "Falloff Kernel",
      .text = "A weight that falls off with distance, for the nodes that link it.",
      .kinds = kLinkHelper | kLinkKernel,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool Kernel::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  base.kind = handler.GetChoice<KernelKind>(kKindId);
  base.curve = handler.GetSplineData(kCurveId);
  return true;
}

double Kernel::EvaluateSquared(double r2, double h2, double h3) const {
  return base.Finished(EvaluateKernelSquared(base.kind, r2, h2, h3));
}

double KernelBase::Finished(double v) const {
  if (kind != KernelKind::Curve) return v;
  return curve && v > 0 ? curve->ValueAt(static_cast<float>(v)) : 0;
}

double KernelBase::EvaluateWithin(double r2, double h2, double h3) const {
  if (kind != KernelKind::Exponential) return Finished(EvaluateKernelSquared(kind, r2, h2, h3));
  if (!(r2 < h2)) return 0;
  return EvaluateKernelSquared(kind, r2, length > 0 ? length * length : h2, h3);
}

// The kinds that are used most go without a branch for each pair.
void KernelBase::EvaluateRun(const double* r2, std::int32_t count, double h2, double h3, double* out) const {
  const auto each = [&](auto&& f) {
    for (std::int32_t n = 0; n < count; ++n) out[n] = r2[n] < h2 ? f(r2[n] / h2) : 0;
  };
  switch (kind) {
    case KernelKind::Poly6:
    case KernelKind::Poly6Radius: {
      const double scale = 315 / (201.06192982974676 * h3);
      return each([=](double q) { return scale * Cube(1 - q); });
    }
    case KernelKind::Quadratic:
      return each([](double q) { return 1 - q; });
    case KernelKind::SoftObject:
      return each([](double q) { return 1 - 2.44444 * q + 1.88888 * q * q - 0.44444 * q * q * q; });
    case KernelKind::Smooth:
      return each([](double q) { return Cube(1 - q * q); });
    case KernelKind::Cubic:
      return each([](double q) { return Cube(1 - q); });
    default:
      for (std::int32_t n = 0; n < count; ++n) out[n] = EvaluateWithin(r2[n], h2, h3);
  }
}

std::span<const Choice> KernelKinds() { return kKinds; }

}  // namespace orlix
