#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>

#include "host/geometry/GeometryTypes.h"
#include "host/objects/BaseDocument.h"

namespace orlix {
namespace {

struct Geometry {
  Geometry() { RegisterGeometryTypes(types); }
  const PolygonObject& Build(BaseObject& object) {
    EXPECT_TRUE(document.SetTime({}).ok());
    return *object.Polygons();
  }
  BaseObject& Add(int type) { return document.AddObject(*types.Find(type)); }
  TypeRegistry types;
  BaseDocument document{types};
};

struct Measures {
  int openEdges = 0, points = 0, usedPoints = 0;
  double volume = 0, area = 0;
  int euler = 0;
};

Measures Measure(const PolygonObject& mesh) {
  Measures m;
  std::map<std::pair<int, int>, int> edges;  // directed, so that a neighbour runs it the other way
  std::map<int, int> used;
  m.points = static_cast<int>(mesh.points.size());
  for (const auto& p : mesh.polygons) {
    std::vector<int> corners{p.a, p.b, p.c};
    if (!p.IsTriangle()) corners.push_back(p.d);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      ++edges[{corners[i], corners[(i + 1) % corners.size()]}];
      ++used[corners[i]];
    }
    for (std::size_t i = 2; i < corners.size(); ++i) {
      const Vec3D &a = mesh.points[std::size_t(corners[0])], &b = mesh.points[std::size_t(corners[i - 1])],
                  &c = mesh.points[std::size_t(corners[i])];
      m.volume += Dot(a, Cross(b, c)) / 6;
      m.area += Length(Cross(b - a, c - a)) / 2;
    }
  }
  for (const auto& [edge, count] : edges) {
    if (count != 1 || edges.count({edge.second, edge.first}) != 1) ++m.openEdges;
  }
  m.usedPoints = static_cast<int>(used.size());
  m.euler = m.points - static_cast<int>(edges.size()) / 2 + static_cast<int>(mesh.polygons.size());
  return m;
}

constexpr double kPi = std::numbers::pi;

struct Solid {
  int type;
  double volume, area;  // of the ideal shape; 0 isn't known
  int euler;
};

class ClosedPrimitive : public testing::TestWithParam<Solid> {};

// Each edge is shared by two faces that run it in opposite directions, no point is left over, and the volume is
// positive: watertight, with outward winding.
TEST_P(ClosedPrimitive, IsWatertightWithOutwardWinding) {
  Geometry geometry;
  const Measures m = Measure(geometry.Build(geometry.Add(GetParam().type)));
  EXPECT_EQ(m.openEdges, 0);
  EXPECT_EQ(m.usedPoints, m.points);
  EXPECT_EQ(m.euler, GetParam().euler);
  EXPECT_GT(m.volume, 0);
  if (GetParam().volume > 0) {
    EXPECT_NEAR(m.volume / GetParam().volume, 1, 0.01);
    EXPECT_NEAR(m.area / GetParam().area, 1, 0.01);
  }
}
INSTANTIATE_TEST_SUITE_P(
    Types, ClosedPrimitive,
    testing::Values(Solid{kBoxTypeId, 8e6, 24e4, 2}, Solid{kSphereTypeId, 4.0 / 3 * kPi * 1e6, 4 * kPi * 1e4, 2},
                    Solid{kTorusTypeId, 2 * kPi* kPi * 100 * 2500, 4 * kPi* kPi * 100 * 50, 0},
                    Solid{kCylinderTypeId, kPi * 2500 * 200, kPi * 50 * (2 * 200 + 2 * 50), 2},
                    Solid{kConeTypeId, kPi * 1e4 * 200 / 3, kPi * 100 * (100 + std::sqrt(1e4 + 4e4)), 2},
                    Solid{kCapsuleTypeId, kPi * 2500 * (4.0 / 3 * 50 + 100), 2 * kPi * 50 * 200, 2},
                    Solid{kTorusKnotTypeId, 0, 0, 0}));

TEST(Primitives, SettingsChangeTheShape) {
  Geometry geometry;
  BaseObject& box = geometry.Add(kBoxTypeId);
  box.Set(kBoxSizeId, Vec3D(1, 2, 3));
  for (const int id : {1101, 1102, 1103}) box.Set(id, std::int64_t(id - 1098));
  const PolygonObject& mesh = geometry.Build(box);
  const std::uint64_t version = mesh.version;
  EXPECT_EQ(mesh.polygons.size(), 2u * (3 * 4 + 4 * 5 + 5 * 3));
  EXPECT_NEAR(Measure(mesh).volume, 6, 1e-12);
  EXPECT_EQ(Measure(mesh).openEdges, 0);
  geometry.Build(box);
  EXPECT_EQ(mesh.version, version);  // nothing changed, nothing is built
  box.Set(kBoxSizeId, Vec3D(2, 2, 3));
  geometry.Build(box);
  EXPECT_GT(mesh.version, version);
  EXPECT_NEAR(Measure(mesh).volume, 12, 1e-12);
}

TEST(Primitives, PlaneIsOpenAndFacesUp) {
  Geometry geometry;
  const PolygonObject& mesh = geometry.Build(geometry.Add(kPlaneTypeId));
  ASSERT_EQ(mesh.polygons.size(), 1u);
  const auto& p = mesh.polygons[0];
  const Vec3D normal = Cross(mesh.points[p.b] - mesh.points[p.a], mesh.points[p.c] - mesh.points[p.a]);
  EXPECT_EQ(Normalized(normal), Vec3D(0, 1, 0));
  EXPECT_EQ(Measure(mesh).openEdges, 4);
}

// Whatever a keyframe or a damaged scene puts there, the result is finite and its indices hold.
TEST(Primitives, EverySettingGivesAUsableMesh) {
  Geometry geometry;
  const double reals[] = {0, -5, 1e300, std::nan(""), 1e-300};
  const std::int64_t wholes[] = {0, -7, 1, 3, 1000000000000};
  int built = 0;
  for (const auto& [id, type] : geometry.types.types()) {
    if (!(type->kinds & kLinkGeometry) || id == kMeshTypeId) continue;
    for (std::size_t n = 0; n < 5; ++n) {
      BaseObject& object = geometry.Add(id);
      for (const Parameter& p : type->parameters) {
        if (p.type == ParameterType::Float) object.Set(p.id, reals[n]);
        if (p.type == ParameterType::Vector) object.Set(p.id, Vec3D(reals[n]));
        // The largest count only for one parameter at a time, or the test takes long.
        if (p.type == ParameterType::Int && (n < 4 || &p == &type->parameters.back())) object.Set(p.id, wholes[n]);
      }
      const PolygonObject& mesh = geometry.Build(object);
      for (const Vec3D& p : mesh.points) ASSERT_TRUE(IsFinite(p)) << type->resource << n;
      const auto count = static_cast<std::int32_t>(mesh.points.size());
      for (const auto& p : mesh.polygons) {
        for (const std::int32_t corner : {p.a, p.b, p.c, p.d}) ASSERT_TRUE(corner >= 0 && corner < count);
      }
      ++built;
      geometry.document.RemoveObject(object);
    }
  }
  EXPECT_EQ(built, 8 * 5);
}

}  // namespace
}  // namespace orlix
