// A pipe along a (p, q) torus knot: p turns about the y axis while it winds q times around the ring.

#include <cmath>
#include <numbers>
#include <numeric>

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(kTorusKnotRadiusId, "radius", 100, "host units", "From the axis to the middle of the ring")
        .Between(0, kMostHostUnits),
    FloatParameter(kTorusKnotTubeRadiusId, "tube_radius", 40, "host units",
                   "Radius of the ring that the knot winds around")
        .Between(0, kMostHostUnits),
    FloatParameter(kTorusKnotPipeRadiusId, "pipe_radius", 15, "host units", "Radius of the pipe itself")
        .Between(0, kMostHostUnits),
    IntParameter(kTorusKnotTurnsId, "turns", 2, "", "Turns about the axis").Between(1, 64),
    IntParameter(kTorusKnotWindingsId, "windings", 3, "", "Windings around the ring").Between(0, 64),
    IntParameter(kTorusKnotSegmentsId, "segments", 240, "", "Quads along the knot").Between(3, 16384),
    IntParameter(kTorusKnotPipeSegmentsId, "pipe_segments", 24, "", "Quads around the pipe").Between(3, 512),
};

class TorusKnotObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const double ring = LengthOf(object, kTorusKnotRadiusId), tube = LengthOf(object, kTorusKnotTubeRadiusId);
    const double pipe = LengthOf(object, kTorusKnotPipeRadiusId);
    int p = SegmentsOf(object, kTorusKnotTurnsId, 1, 64), q = SegmentsOf(object, kTorusKnotWindingsId, 0, 64);
    const int common = std::gcd(p, q);  // a knot that closes early would be run through again
    p /= common, q /= common;
    const int along = SegmentsOf(object, kTorusKnotSegmentsId, 3, 16384),
              around = SegmentsOf(object, kTorusKnotPipeSegmentsId, 3, 512);
    for (int s = 0; s < along; ++s) {
      const double t = 2 * std::numbers::pi * s / along;
      const double cp = std::cos(p * t), sp = std::sin(p * t), cq = std::cos(q * t), sq = std::sin(q * t);
      const double r = ring + tube * cq;
      const Vec3D centre(r * cp, tube * sq, r * sp);
      // The ring's normal is across the curve at every place and comes back to itself: a frame without a twist.
      const Vec3D normal(cq * cp, sq, cq * sp);
      const Vec3D tangent(-q * tube * sq * cp - p * r * sp, q * tube * cq, -q * tube * sq * sp + p * r * cp);
      const Vec3D across = Cross(Normalized(tangent), normal);
      for (int a = 0; a < around; ++a) {
        const double angle = 2 * std::numbers::pi * a / around;
        result.points.push_back(centre + (normal * std::cos(angle) + across * std::sin(angle)) * pipe);
      }
    }
    for (int s = 0; s < along; ++s) {
      for (int a = 0; a < around; ++a) {
        const std::int32_t here = s * around, next = (s + 1) % along * around, b = (a + 1) % around;
        result.polygons.push_back({here + a, here + b, next + b, next + a});
      }
    }
  }
};

}  // namespace

const TypeInfo kTorusKnotType{
    .id = kTorusKnotTypeId,
    .resource = "torus_knot",
    .className = "TorusKnotObject",
    .label = "Torus Knot",
    .text = "A pipe along a knot on a ring about the y axis. Closed; a pipe that is too thick passes through itself.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<TorusKnotObject>(); },
};

}  // namespace orlix
