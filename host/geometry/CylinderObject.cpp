// A cylinder along the y axis.

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kCylinderRadiusId, "radius", 50, "host units", "Distance of the mantle from the axis")
        .Between(0, kMostHostUnits),
    FloatParameter(kCylinderHeightId, "height", 200, "host units", "Length along y").Between(0, kMostHostUnits),
    IntParameter(kCylinderSegmentsId, "segments", 48, "", "Quads around the axis").Between(3, 2048),
    IntParameter(kCylinderHeightSegmentsId, "height_segments", 1, "", "Quads along the axis").Between(1, 2048),
    BoolParameter(kCylinderCapsId, "caps", true, "Close both ends"),
};

class CylinderObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double radius = LengthOf(object, kCylinderRadiusId), height = LengthOf(object, kCylinderHeightId);
    const int layers = SegmentsOf(object, kCylinderHeightSegmentsId, 1);
    const bool caps = object.GetBool(kCylinderCapsId);
    std::vector<ProfilePoint> profile;
    if (caps) profile.push_back({0, -height / 2});
    for (int l = 0; l <= layers; ++l) profile.push_back({radius, height * (double(l) / layers - 0.5)});
    if (caps) profile.push_back({0, height / 2});
    Revolve(profile, false, SegmentsOf(object, kCylinderSegmentsId, 3), result);
  }
};

}  // namespace

const TypeInfo kCylinderType{
    .id = kCylinderTypeId,
    .resource = "cylinder",
    .className = "CylinderObject",
    .label = "Cylinder",
    .text = "A cylinder along the y axis about its origin. Closed when it has its caps.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<CylinderObject>(); },
};

}  // namespace orlix
