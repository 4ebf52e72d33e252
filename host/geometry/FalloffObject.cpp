// A falloff: 1 inside, 0 outside, falling from an inner part to the border. It confines operators by place.

#include <algorithm>
#include <cmath>

#include "host/geometry/GeometryTypes.h"
#include "host/objects/BaseObject.h"

namespace orlix {

namespace {

constexpr int kShape = 1100, kSize = 1101, kInner = 1102, kStrength = 1103, kInvert = 1104;

enum Shape : std::int64_t { kSphere = 0, kBox = 1, kLinear = 2 };

constexpr Choice kShapes[] = {
    {kSphere, "sphere", "Falls in all directions"},
    {kBox, "box", "Falls towards the faces of a box"},
    {kLinear, "linear", "Falls along z, from the low end to the high one"},
};

constexpr Parameter kParameters[] = {
    ChoiceParameter(kShape, "shape", kSphere, kShapes, "Form of the border"),
    VectorParameter(kSize, "size", {100, 100, 100}, "host units", "Radii, or half the edges").Min(0),
    FloatParameter(kInner, "inner", 0.5, "", "Share of the size within which the factor is full").Between(0, 1),
    FloatParameter(kStrength, "strength", 1.0, "", "The full factor"),
    BoolParameter(kInvert, "invert", false, "Full outside, 0 inside"),
};

// 0 at the middle (or the low end), 1 at the border.
double Reach(std::int64_t shape, const Vec3D& p) {
  switch (shape) {
    case kBox:
      return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)});
    case kLinear:
      return 0.5 * (p.z + 1);
    default:
      return Length(p);
  }
}

class FalloffObject : public ObjectData, public Falloff {
 public:
  const Falloff* AsFalloff() const override { return this; }
  void MultiplyRow(const BaseObject& object, const Vec3D& start, const Vec3D& step,
                   std::span<double> values) const override {
    const LMatrix inverse = object.GlobalMatrix().Inverse();
    // A size of 0 leaves nothing inside.
    const Vec3D size = Max(object.GetVector(kSize), Vec3D(1e-30));
    const Vec3D first = inverse * start / size, along = inverse.Rotate(step) / size;
    const std::int64_t shape = object.GetInt(kShape);
    const double inner = std::clamp(object.GetDouble(kInner), 0.0, 1.0), strength = object.GetDouble(kStrength);
    const bool invert = object.GetBool(kInvert);
    for (std::size_t i = 0; i < values.size(); ++i) {
      const double reach = Reach(shape, first + along * static_cast<double>(i));
      const double share = reach <= inner ? 1 : reach >= 1 ? 0 : (1 - reach) / (1 - inner);
      values[i] *= strength * (invert ? 1 - share : share);
    }
  }
};

}  // namespace

const TypeInfo kFalloffType{
    .id = kFalloffTypeId,
    .resource = "falloff",
    .className = "FalloffObject",
    .label = "Falloff",
    .text = "A factor by place, for the falloff lists of operators.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject | kLinkFalloff,
    .parameters = kParameters,
    .common = TransformParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<FalloffObject>(); },
};

}  // namespace orlix
