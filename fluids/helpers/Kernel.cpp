#include "fluids/helpers/Kernel.h"

#include <cmath>
#include <numbers>

namespace orlix {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr std::int32_t kCurveKind = 12;
constexpr SplineKnot kCurve[] = {{0, 1}, {0.4, 0.8}, {1, 0}};

constexpr Choice kKinds[] = {
    {0, "gauss", "Gaussian, normalised"},
    {1, "poly6", "(1 - q)^3, normalised"},
    {2, "poly6_radius", "As poly6"},
    {3, "linear", "45 / (13 pi h^3) (1 - q)"},
    {4, "spiky", "15 / (pi h^3) (1 - q)^3"},
    {5, "cubic_difference", "15 (h^2 - r^2)^3 / (pi h^12)"},
    {6, "quadratic", "1 - q"},
    {7, "inverse", "h^2 / r^2 - 1, with a ceiling near the centre"},
    {8, "soft_object", "1 - 2.44444 q + 1.88888 q^2 - 0.44444 q^3 (Wyvill, McPheeters, Wyvill 1986)"},
    {9, "exponential", "e^(1 - q)"},
    {10, "smooth", "(1 - q^2)^3"},
    {11, "cubic", "(1 - q)^3"},
    {kCurveKind, "curve", "The curve, over the squared relative distance"},
};

constexpr Parameter kParameters[] = {
    ChoiceParameter(7150, "kind", 6, kKinds, "The weight function"),
    SplineParameter(13, "curve", kCurve, "The weight over the squared relative distance")
        .ShownWhen(7150, Relation::Is, kCurveKind),
};

double Cube(double v) { return v * v * v; }

}  // namespace

double EvaluateKernelSquared(std::int32_t type, double r2, double h2, double h3) {
  if (type == 6) return std::fmax(1 - r2 / h2, 0.0);
  if (type == 7) return std::fmax(h2 / std::fmax(r2, 1e-5) - 1, 0.0);
  if (type == 9) return std::exp(1 - r2 / h2);
  if (!(r2 < h2)) return type == kCurveKind ? -1 : 0;
  static const double kGauss = std::pow(2 * kPi, 1.5);
  const double q = r2 / h2;
  switch (type) {
    case 0:
      return std::exp(-r2 / (2 * h2)) / (kGauss * h3);
    case 1:
    case 2:  // 315 / (64 pi h^9) (h^2 - r^2)^3 is kind 1, written another way
      return 315 / (201.06192982974676 * h3) * Cube(1 - q);
    case 3:
      return 45 / (40.840704496667314 * h3) * (1 - q);
    case 4:
      return 15 / (kPi * h3) * Cube(1 - q);
    case 5:
      return 15 * Cube(h2 - r2) / (kPi * Cube(h2) * Cube(h2));
    case 8:
      return 1 - 2.44444 * q + 1.88888 * q * q - 0.44444 * q * q * q;
    case 10:
      return Cube(1 - q * q);
    case 11:
      return std::fmax(Cube(1 - q), 0.0);
    case kCurveKind:
      return q;
    default:
      return 0;
  }
}

double EvaluateKernel(std::int32_t type, const Vec3D& a, const Vec3D& b, double radius) {
  const double r2 = LengthSquared(a - b), h2 = radius * radius;
  if (type == 9 && !(r2 < h2)) return 0;
  return EvaluateKernelSquared(type, r2, h2, h2 * radius);
}

const TypeInfo& Kernel::Type() {
  static const TypeInfo kType = [] {
    TypeInfo info;
    info.id = 1300066;
    info.resource = "zq_kernel";
    info.className = "C4D_Kernel_Object";
    info.label = "Falloff Kernel";
    info.text = "A weight that falls off with distance, for the nodes that link it.";
    info.kinds = kLinkHelper | kLinkKernel;
    info.parameters = kParameters;
    info.common = CommonNodeParameters();
    return info;
  }();
  return kType;
}

bool Kernel::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  type = handler.GetChoice(7150);
  curve = handler.GetSplineData(13);
  return true;
}

double Kernel::Finished(double v) const {
  if (type != kCurveKind) return v;
  return curve && v > 0 ? curve->ValueAt(static_cast<float>(v)) : 0;
}

double Kernel::Evaluate(const Vec3D& a, const Vec3D& b, double radius) const {
  return Finished(EvaluateKernel(type, a, b, radius));
}

double Kernel::EvaluateSquared(double r2, double h2, double h3) const {
  return Finished(EvaluateKernelSquared(type, r2, h2, h3));
}

}  // namespace orlix
