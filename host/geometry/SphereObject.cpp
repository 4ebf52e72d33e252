// A sphere of rings and segments, its poles on the y axis.

#include <cmath>
#include <numbers>

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kSphereRadiusId, "radius", 100, "host units", "Distance of the points from the centre")
        .Between(0, kMostHostUnits),
    IntParameter(kSphereSegmentsId, "segments", 48, "", "Quads around the axis; half as many from pole to pole")
        .Between(4, 2048),
};

class SphereObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double radius = LengthOf(object, kSphereRadiusId);
    const int segments = SegmentsOf(object, kSphereSegmentsId, 4), rings = segments / 2;
    std::vector<ProfilePoint> profile{{0, -radius}};
    for (int r = 1; r < rings; ++r) {
      const double angle = std::numbers::pi * r / rings;
      profile.push_back({radius * std::sin(angle), -radius * std::cos(angle)});
    }
    profile.push_back({0, radius});
    Revolve(profile, false, segments, result);
  }
};

}  // namespace

const TypeInfo kSphereType{
    .id = kSphereTypeId,
    .resource = "sphere",
    .className = "SphereObject",
    .label = "Sphere",
    .text = "A sphere about its origin. Closed.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<SphereObject>(); },
};

}  // namespace orlix
