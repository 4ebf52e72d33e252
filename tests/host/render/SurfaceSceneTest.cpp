#include "host/render/SurfaceScene.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "globals/Random.h"
#include "host/render/SmoothNormals.h"
#include "tests/host/render/TestSurfaces.h"

namespace orlix {
namespace {

// Moeller and Trumbore 1997.
double DistanceToTriangle(const Vec3D& o, const Vec3D& d, const Vec3D& a, const Vec3D& b, const Vec3D& c) {
  const Vec3D e1 = b - a, e2 = c - a, p = Cross(d, e2);
  const double det = Dot(e1, p);
  const Vec3D s = o - a, q = Cross(s, e1);
  const double u = Dot(s, p) / det, v = Dot(d, q) / det, t = Dot(e2, q) / det;
  return u >= 0 && v >= 0 && u + v <= 1 && t > 0 ? t : std::numeric_limits<double>::infinity();
}

TEST(SurfaceScene, FindsWhatTryingEveryTriangleFinds) {
  MersenneTwister random(3);
  PolygonObject mesh;
  for (int t = 0; t < 100; ++t) {
    const Vec3D centre = RandomVector(random) * 10;
    for (int c = 0; c < 3; ++c) mesh.points.push_back(centre + RandomVector(random) * 2);
    mesh.polygons.push_back({3 * t, 3 * t + 1, 3 * t + 2, 3 * t + 2});
  }
  // Far from the origin, where single precision alone would be lost.
  Surface surface{&mesh, {}, {}, nullptr};
  surface.matrix.off = {1e7, -2e7, 3e6};
  SurfaceScene scene;
  ASSERT_TRUE(scene.Build({surface}));
  int hits = 0;
  for (int i = 0; i < 4000; ++i) {
    const Vec3D o = RandomVector(random) * 20, d = Normalized(RandomVector(random));
    double nearest = std::numeric_limits<double>::infinity();
    for (int t = 0; t < 100; ++t) {
      const auto at = [&](int c) { return mesh.points[static_cast<std::size_t>(3 * t + c)]; };
      nearest = std::min(nearest, DistanceToTriangle(o, d, at(0), at(1), at(2)));
    }
    SurfaceHit hit;
    const bool found = scene.Intersect(o + surface.matrix.off, d, 100, hit);
    EXPECT_EQ(found, std::isfinite(nearest));
    EXPECT_EQ(scene.Occluded(o + surface.matrix.off, d, 100), found);
    if (!found || !std::isfinite(nearest)) continue;
    ++hits;
    EXPECT_NEAR(hit.distance, nearest, 1e-4);
    EXPECT_LT(Dot(hit.faceNormal, d), 0);
    EXPECT_FALSE(scene.Occluded(o + surface.matrix.off, d, nearest - 1e-3));
  }
  EXPECT_GT(hits, 100);
}

TEST(SurfaceScene, SphereNormalsPointOutwards) {
  const PolygonObject mesh = SphereMesh(2, 48);
  Surface surface{&mesh, {}, {}, nullptr};
  surface.matrix.off = {1, 1, 1};
  SurfaceScene scene;
  ASSERT_TRUE(scene.Build({surface}));
  Vec3D low, high;
  ASSERT_TRUE(scene.Bounds(low, high));
  EXPECT_NEAR(low.y, -1, 1e-12);
  EXPECT_NEAR(high.y, 3, 1e-12);
  MersenneTwister random(1);
  for (int i = 0; i < 500; ++i) {
    const Vec3D d = Normalized(RandomVector(random));
    SurfaceHit hit;
    ASSERT_TRUE(scene.Intersect(Vec3D{1, 1, 1} - d * 5, d, 100, hit));
    EXPECT_NEAR(hit.distance, 3, 0.01);
    EXPECT_NEAR(Length(hit.normal + d), 0, 0.01);
    // From inside the normal is on the other side.
    ASSERT_TRUE(scene.Intersect({1, 1, 1}, d, 100, hit));
    EXPECT_NEAR(Length(hit.normal + d), 0, 0.01);
  }
}

TEST(SurfaceScene, BrokenPolygonsAreLeftOut) {
  PolygonObject mesh = SquareMesh(1);
  mesh.points.push_back({std::nan(""), 0, 0});
  mesh.points.push_back({0, INFINITY, 0});
  mesh.polygons.push_back({0, 1, 99, 99});
  mesh.polygons.push_back({-1, 1, 2, 3});
  mesh.polygons.push_back({0, 1, 4, 4});
  mesh.polygons.push_back({0, 1, 5, 5});
  mesh.polygons.push_back({2, 2, 2, 2});
  const PolygonObject nothing;
  SurfaceScene scene;
  ASSERT_TRUE(scene.Build({{&mesh, {}, {}, nullptr}, {&nothing, {}, {}, nullptr}}));
  EXPECT_EQ(scene.triangleCount(), 3);
  SurfaceHit hit;
  ASSERT_TRUE(scene.Intersect({0.3, 1, 0.2}, {0, -1, 0}, 10, hit));
  EXPECT_EQ(hit.normal, (Vec3D{0, 1, 0}));
  ASSERT_TRUE(scene.Build({}));
  EXPECT_TRUE(scene.empty());
  EXPECT_FALSE(scene.Intersect({0.3, 1, 0.2}, {0, -1, 0}, 10, hit));
}

TEST(SmoothNormals, EdgesAboveTheAngleStaySharp) {
  // Two triangles that meet at a right angle.
  const std::vector<Vec3D> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}};
  const std::vector<std::int32_t> corners = {0, 1, 2, 0, 3, 1};
  const auto sharp = SmoothNormals(points, corners, 40), round = SmoothNormals(points, corners, 120);
  EXPECT_EQ(sharp[0], (Vec3F{0, 0, 1}));
  EXPECT_NEAR(Dot(Vec3D(round[0]), Vec3D(round[3])), 1, 1e-6);
  EXPECT_NEAR(Dot(Vec3D(sharp[0]), Vec3D(sharp[3])), 0, 1e-6);
}

TEST(SmoothNormals, AFanOfManyTrianglesTakesNoTime) {
  constexpr int kBlades = 200000;
  std::vector<Vec3D> points = {{0, 0, 0}};
  std::vector<std::int32_t> corners;
  for (int i = 0; i <= kBlades; ++i) points.push_back({std::cos(i * 1e-5), std::sin(i * 1e-5), 0});
  for (int i = 0; i < kBlades; ++i) corners.insert(corners.end(), {0, i + 1, i + 2});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SmoothNormals(points, corners, 40)[0], (Vec3F{0, 0, 1}));
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5.0);
}

}  // namespace
}  // namespace orlix
