// A rectangle in the x-z plane, cut into quads. It is open: it has a front, in +y, and no inside.

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kPlaneWidthId, "width", 400, "host units", "Length along x").Between(0, kMostHostUnits),
    FloatParameter(kPlaneDepthId, "depth", 400, "host units", "Length along z").Between(0, kMostHostUnits),
    IntParameter(kPlaneSegmentsXId, "segments_x", 1, "", "Quads along x").Between(1, 2048),
    IntParameter(kPlaneSegmentsZId, "segments_z", 1, "", "Quads along z").Between(1, 2048),
};

class PlaneObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double width = LengthOf(object, kPlaneWidthId), depth = LengthOf(object, kPlaneDepthId);
    const int nx = SegmentsOf(object, kPlaneSegmentsXId, 1), nz = SegmentsOf(object, kPlaneSegmentsZId, 1);
    for (int k = 0; k <= nz; ++k) {
      for (int i = 0; i <= nx; ++i) {
        result.points.push_back({(double(i) / nx - 0.5) * width, 0, (double(k) / nz - 0.5) * depth});
      }
    }
    for (int k = 0; k < nz; ++k) {
      for (int i = 0; i < nx; ++i) {
        const std::int32_t a = k * (nx + 1) + i, b = a + nx + 1;
        result.polygons.push_back({a, b, b + 1, a + 1});
      }
    }
  }
};

}  // namespace

const TypeInfo kPlaneType{
    .id = kPlaneTypeId,
    .resource = "plane",
    .className = "PlaneObject",
    .label = "Plane",
    .text =
        "A rectangle in the x-z plane that faces +y. Open: as a solid it needs thickness, so use a box for a floor.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<PlaneObject>(); },
};

}  // namespace orlix
