// A cylinder along the y axis with a half sphere on both ends.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kCapsuleRadiusId, "radius", 50, "host units", "Radius of the mantle and of both ends")
        .Between(0, kMostHostUnits),
    FloatParameter(kCapsuleHeightId, "height", 200, "host units", "Length along y over all, at least twice the radius")
        .Between(0, kMostHostUnits),
    IntParameter(kCapsuleSegmentsId, "segments", 48, "", "Quads around the axis; a quarter as many on each end's arc")
        .Between(4, 2048),
    IntParameter(kCapsuleHeightSegmentsId, "height_segments", 1, "", "Quads along the mantle").Between(1, 2048),
};

class CapsuleObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double radius = LengthOf(object, kCapsuleRadiusId);
    const double half = std::max(LengthOf(object, kCapsuleHeightId) / 2 - radius, 0.0);  // of the mantle
    const int segments = SegmentsOf(object, kCapsuleSegmentsId, 4), arc = std::max(segments / 4, 1);
    const int layers = SegmentsOf(object, kCapsuleHeightSegmentsId, 1);
    std::vector<ProfilePoint> profile{{0, -half - radius}};
    const auto addArcPoint = [&](int step, double side) {
      const double angle = std::numbers::pi / 2 * step / arc;
      profile.push_back({radius * std::cos(angle), side * (half + radius * std::sin(angle))});
    };
    for (int a = arc - 1; a >= 0; --a) addArcPoint(a, -1);
    for (int l = 1; l < layers; ++l) profile.push_back({radius, half * (2.0 * l / layers - 1)});
    for (int a = half > 0 ? 0 : 1; a < arc; ++a) addArcPoint(a, 1);
    profile.push_back({0, half + radius});
    Revolve(profile, false, segments, result);
  }
};

}  // namespace

const TypeInfo kCapsuleType{
    .id = kCapsuleTypeId,
    .resource = "capsule",
    .className = "CapsuleObject",
    .label = "Capsule",
    .text = "A cylinder along the y axis with a half sphere on both ends. Closed.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<CapsuleObject>(); },
};

}  // namespace orlix
