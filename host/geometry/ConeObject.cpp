// A cone, or a cut one, along the y axis.

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kConeTopRadiusId, "top_radius", 0, "host units", "Radius at the upper end; 0 is a tip")
        .Between(0, kMostHostUnits),
    FloatParameter(kConeBottomRadiusId, "bottom_radius", 100, "host units", "Radius at the lower end")
        .Between(0, kMostHostUnits),
    FloatParameter(kConeHeightId, "height", 200, "host units", "Length along y").Between(0, kMostHostUnits),
    IntParameter(kConeSegmentsId, "segments", 48, "", "Quads around the axis").Between(3, 2048),
    IntParameter(kConeHeightSegmentsId, "height_segments", 8, "", "Quads along the axis").Between(1, 2048),
    BoolParameter(kConeCapsId, "caps", true, "Close both ends"),
};

class ConeObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double top = LengthOf(object, kConeTopRadiusId), bottom = LengthOf(object, kConeBottomRadiusId);
    const double height = LengthOf(object, kConeHeightId);
    const int layers = SegmentsOf(object, kConeHeightSegmentsId, 1);
    const bool caps = object.GetBool(kConeCapsId);
    std::vector<ProfilePoint> profile;
    if (caps && bottom > 0) profile.push_back({0, -height / 2});
    for (int l = 0; l <= layers; ++l) {
      const double t = double(l) / layers;
      profile.push_back({l == layers ? top : bottom + (top - bottom) * t, height * (t - 0.5)});
    }
    if (caps && top > 0) profile.push_back({0, height / 2});
    Revolve(profile, false, SegmentsOf(object, kConeSegmentsId, 3), result);
  }
};

}  // namespace

const TypeInfo kConeType{
    .id = kConeTypeId,
    .resource = "cone",
    .className = "ConeObject",
    .label = "Cone",
    .text = "A cone along the y axis about its origin, cut when both radii are above 0. Closed when it has its caps.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<ConeObject>(); },
};

}  // namespace orlix
