// A box about the origin, its faces cut into quads along the axes.

#include <array>
#include <unordered_map>

#include "host/geometry/GeneratedGeometry.h"
#include "host/geometry/GeometryTypes.h"
#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr std::array<int, 3> kSegments{kBoxSegmentsXId, kBoxSegmentsYId, kBoxSegmentsZId};

constexpr Parameter kParameters[] = {
    VectorParameter(kBoxSizeId, "size", {200, 200, 200}, "host units", "Edge lengths along x, y and z")
        .Between(0, kMostHostUnits),
    IntParameter(kBoxSegmentsXId, "segments_x", 1, "", "Quads along x").Between(1, 512),
    IntParameter(kBoxSegmentsYId, "segments_y", 1, "", "Quads along y").Between(1, 512),
    IntParameter(kBoxSegmentsZId, "segments_z", 1, "", "Quads along z").Between(1, 512),
};

class BoxObject : public GeneratedGeometry {
 protected:
  void Build(const BaseObject& object, PolygonObject& result) const override {
    const Vec3D size = LengthsOf(object, kBoxSizeId);
    VecInt3D n;
    for (int axis = 0; axis < 3; ++axis) n[axis] = SegmentsOf(object, kSegments[axis], 1, 512);
    // Points of the lattice's surface, numbered when a face first uses them, so that faces share their edges.
    std::unordered_map<std::int64_t, std::int32_t> numbers;
    const auto pointAt = [&](const VecInt3D& at) {
      const std::int64_t key = (std::int64_t(at.z) * (n.y + 1) + at.y) * (n.x + 1) + at.x;
      const auto [found, isNew] = numbers.try_emplace(key, static_cast<std::int32_t>(result.points.size()));
      if (isNew) result.points.push_back((Vec3D(at) / Vec3D(n) - Vec3D(0.5)) * size);
      return found->second;
    };
    for (int axis = 0; axis < 3; ++axis) {
      const int u = (axis + 1) % 3, v = (axis + 2) % 3;
      for (const int side : {0, 1}) {
        for (int a = 0; a < n[u]; ++a) {
          for (int b = 0; b < n[v]; ++b) {
            VecInt3D at;
            at[axis] = side ? n[axis] : 0;
            const auto corner = [&](int da, int db) {
              at[u] = a + da, at[v] = b + db;
              return pointAt(at);
            };
            const std::int32_t p = corner(0, 0), q = corner(1, 0), r = corner(1, 1), s = corner(0, 1);
            if (side) {
              result.polygons.push_back({p, q, r, s});
            } else {
              result.polygons.push_back({p, s, r, q});
            }
          }
        }
      }
    }
  }
};

}  // namespace

const TypeInfo kBoxType{
    .id = kBoxTypeId,
    .resource = "box",
    .className = "BoxObject",
    .label = "Box",
    .text = "A box about its origin. Closed.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<BoxObject>(); },
};

}  // namespace orlix
