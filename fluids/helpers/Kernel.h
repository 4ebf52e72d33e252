#pragma once
// Radial weight functions: a weight that falls off with the distance of two points.
//
//   r2: squared distance, h: radius, q = r2 / h^2. All but 6 and 7 give 0 at r2 >= h^2; 0 to 5 depend on a power of h,
//   6 to 12 are 1 or near it at the centre.

#include "fluids/scene/iBase.h"

namespace orlix {

// One kind (0 to 12) for squared distances, without a square root or a power of the radius for each pair. Kind 9
// doesn't test the distance here: the caller has. Kind 12 gives q, and -1 from the radius on.
double EvaluateKernelSquared(std::int32_t type, double squaredDistance, double squaredRadius, double cubedRadius);
double EvaluateKernel(std::int32_t type, const Vec3D& a, const Vec3D& b, double radius);

class Kernel final : public iBase {
 public:
  using iBase::iBase;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  std::int32_t GetNodeSubType() const override { return 52; }
  bool ReadParameters() override;

  double Evaluate(const Vec3D& a, const Vec3D& b, double radius) const;
  double EvaluateSquared(double squaredDistance, double squaredRadius, double cubedRadius) const;

  std::int32_t type = 6;
  const SplineData* curve = nullptr;  // of kind 12, not owned

 private:
  double Finished(double v) const;
};

}  // namespace orlix
