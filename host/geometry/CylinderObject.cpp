// A cylinder along the y axis.

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"

namespace orlix {

namespace {

constexpr int kRadius = 1140, kHeight = 1141, kSegments = 1142, kHeightSegments = 1143, kCaps = 1144;

constexpr Parameter kParameters[] = {
    FloatParameter(kRadius, "radius", 50, "host units", "Distance of the mantle from the axis").Min(0),
    FloatParameter(kHeight, "height", 200, "host units", "Length along y").Min(0),
    IntParameter(kSegments, "segments", 48, "", "Quads around the axis").Between(3, 2048),
    IntParameter(kHeightSegments, "height_segments", 1, "", "Quads along the axis").Between(1, 2048),
    BoolParameter(kCaps, "caps", true, "Close both ends"),
};

class CylinderObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double radius = LengthOf(object, kRadius), height = LengthOf(object, kHeight);
    const int layers = SegmentsOf(object, kHeightSegments, 1);
    const bool caps = object.GetBool(kCaps);
    std::vector<ProfilePoint> profile;
    if (caps) profile.push_back({0, -height / 2});
    for (int l = 0; l <= layers; ++l) profile.push_back({radius, height * (double(l) / layers - 0.5)});
    if (caps) profile.push_back({0, height / 2});
    Revolve(profile, false, SegmentsOf(object, kSegments, 3), result);
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
