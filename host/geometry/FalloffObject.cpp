// A falloff: 1 inside, 0 outside, falling from an inner part to the border. It confines operators by place.

#include <algorithm>
#include <cmath>

#include "host/geometry/GeometryTypes.h"
#include "host/objects/BaseObject.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

enum class Shape { Sphere, Box, Linear };

constexpr Choice kShapes[] = {
    {Shape::Sphere, "sphere", "Falls in all directions"},
    {Shape::Box, "box", "Falls towards the faces of a box"},
    {Shape::Linear, "linear", "Falls along z, from the low end to the high one"},
};

constexpr Parameter kParameters[] = {
    ChoiceParameter(kFalloffShapeId, "shape", Shape::Sphere, kShapes, "Form of the border"),
    VectorParameter(kFalloffSizeId, "size", {100, 100, 100}, "host units", "Radii, or half the edges")
        .Between(0, kMostHostUnits),
    FloatParameter(kFalloffInnerId, "inner", 0.5, "", "Share of the size within which the factor is full")
        .Between(0, 1),
    FloatParameter(kFalloffStrengthId, "strength", 1.0, "", "The full factor"),
    BoolParameter(kFalloffInvertId, "invert", false, "Full outside, 0 inside"),
    BoolParameter(kFalloffEnabledId, "enabled", true, "Weighs places; otherwise lists pass it over"),
};

// 0 at the middle (or the low end), 1 at the border.
double Reach(Shape shape, const Vec3D& p) {
  switch (shape) {
    case Shape::Box:
      return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)});
    case Shape::Linear:
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
    if (!object.GetBool(kFalloffEnabledId)) return;
    const LMatrix inverse = object.GlobalMatrix().Inverse();
    // A size of 0 leaves nothing inside.
    const Vec3D size = Max(object.GetVector(kFalloffSizeId), Vec3D(1e-30));
    const Vec3D first = inverse * start / size, along = inverse.Rotate(step) / size;
    const Shape shape = object.GetChoice<Shape>(kFalloffShapeId);
    const double inner = std::clamp(object.GetDouble(kFalloffInnerId), 0.0, 1.0),
                 strength = object.GetDouble(kFalloffStrengthId);
    const bool invert = object.GetBool(kFalloffInvertId);
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
