#pragma once
// Radial weight functions: a weight that falls off with the distance of two points.
//
//   r2: squared distance, h: radius, q = r2 / h^2. All but Quadratic and Inverse give 0 at r2 >= h^2. Those up to
//   CubicDifference depend on a power of h; the others are 1 or near it at the centre.

#include "fluids/scene/iBase.h"

namespace orlix {

enum class KernelKind {
  Gauss,
  Poly6,
  Poly6Radius,
  Linear,
  Spiky,
  CubicDifference,
  Quadratic,
  Inverse,
  SoftObject,
  Exponential,
  Smooth,
  Cubic,
  Curve
};

// For squared distances, without a square root or a power of the radius for each pair. Exponential doesn't test the
// distance here: the caller has. Curve gives q, and -1 from the radius on.
double EvaluateKernelSquared(KernelKind kind, double squaredDistance, double squaredRadius, double cubedRadius);
double EvaluateKernel(KernelKind kind, const Vec3D& a, const Vec3D& b, double radius);

// A weight function by value, as operators hold their own.
struct KernelBase {
  KernelKind kind = KernelKind::Quadratic;
  double length = 0;                  // of Exponential, where it isn't the radius: e^(1 - r2 / length^2) within it
  const SplineData* curve = nullptr;  // of Curve, over q; not owned

  double Evaluate(const Vec3D& a, const Vec3D& b, double radius) const {
    return EvaluateWithin(LengthSquared(a - b), radius * radius, radius * radius * radius);
  }
  // The same of a squared distance; 0 from the radius on.
  double EvaluateWithin(double squaredDistance, double squaredRadius, double cubedRadius) const;
  // The same of many.
  void EvaluateRun(const double* squaredDistances, std::int32_t count, double squaredRadius, double cubedRadius,
                   double* out) const;
  // What the curve makes of a value of Curve; those of all others stay.
  double Finished(double v) const;
};

class Kernel final : public iBase {
 public:
  using iBase::iBase;
  static constexpr int kKindId = 7150, kCurveId = 13;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  std::int32_t GetNodeSubType() const override { return 52; }
  bool ReadParameters() override;

  double Evaluate(const Vec3D& a, const Vec3D& b, double radius) const { return base.Evaluate(a, b, radius); }
  double EvaluateSquared(double squaredDistance, double squaredRadius, double cubedRadius) const;

  KernelBase base;
};

// The kinds, for the nodes that offer a kernel of their own.
std::span<const Choice> KernelKinds();

}  // namespace orlix
