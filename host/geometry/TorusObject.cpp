// A ring about the y axis.

#include <cmath>
#include <numbers>

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kTorusRadiusId, "radius", 100, "host units", "From the axis to the middle of the pipe")
        .Between(0, kMostHostUnits),
    FloatParameter(kTorusPipeRadiusId, "pipe_radius", 50, "host units", "Radius of the pipe")
        .Between(0, kMostHostUnits),
    IntParameter(kTorusSegmentsId, "segments", 72, "", "Quads along the ring").Between(3, 2048),
    IntParameter(kTorusPipeSegmentsId, "pipe_segments", 36, "", "Quads around the pipe").Between(3, 2048),
};

class TorusObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double radius = LengthOf(object, kTorusRadiusId), pipe = LengthOf(object, kTorusPipeRadiusId);
    const int around = SegmentsOf(object, kTorusPipeSegmentsId, 3);
    std::vector<ProfilePoint> profile;
    for (int s = 0; s < around; ++s) {
      const double angle = 2 * std::numbers::pi * s / around;
      profile.push_back({radius + pipe * std::cos(angle), pipe * std::sin(angle)});
    }
    Revolve(profile, true, SegmentsOf(object, kTorusSegmentsId, 3), result);
  }
};

}  // namespace

const TypeInfo kTorusType{
    .id = kTorusTypeId,
    .resource = "torus",
    .className = "TorusObject",
    .label = "Torus",
    .text = "A ring about the y axis. Closed.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<TorusObject>(); },
};

}  // namespace orlix
