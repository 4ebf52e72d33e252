// Water and glass: what they mirror, bend, swallow and let through.

#include <gtest/gtest.h>

#include "host/render/Renderer.h"
#include "tests/host/render/TestSurfaces.h"

namespace orlix {
namespace {

SurfaceMaterial Glass(double index) { return {.specular = 0, .transmission = 1, .refraction = index}; }

PolygonObject BoxShape(const Vec3D& low, const Vec3D& high) {
  PolygonObject box;
  for (int c = 0; c < 8; ++c) {
    box.points.push_back({c & 1 ? high.x : low.x, c & 2 ? high.y : low.y, c & 4 ? high.z : low.z});
  }
  box.polygons = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
  return box;
}

TEST(ClearSurface, SplitsByFresnelAndSnell) {
  const Vec3D n{0, 1, 0};
  const ClearSplit down = SplitAtSurface({0, -1, 0}, n, 1 / 1.5);
  EXPECT_NEAR(down.reflected, 0.04, 1e-12);
  EXPECT_LT(Length(down.refraction - Vec3D(0, -1, 0)), 1e-12);
  for (const double degrees : {10.0, 40.0, 75.0}) {
    const double angle = degrees * std::numbers::pi / 180;
    const Vec3D in{std::sin(angle), -std::cos(angle), 0};
    const ClearSplit split = SplitAtSurface(in, n, 1 / 1.33);
    EXPECT_NEAR(split.refraction.x * 1.33, in.x, 1e-12);
    EXPECT_LT(Length(split.reflection - Vec3D(in.x, -in.y, 0)), 1e-12);
    // The same way back.
    EXPECT_NEAR(SplitAtSurface(-split.refraction, -n, 1.33).reflected, split.reflected, 1e-12);
  }
  // Beyond the critical angle, 48.8 degrees, nothing leaves the water.
  EXPECT_EQ(SplitAtSurface(Normalized(Vec3D(1, -0.8, 0)), n, 1.33).reflected, 1);
}

// A glowing wall seen straight through a block of two host units, perhaps with another before it: of 3.5, half a unit
// of them inside of the first.
double Seen(const SurfaceMaterial& block, bool wall, const SurfaceMaterial* another = nullptr) {
  RenderWorld world;
  SetUpPicture(world, 8, 8);
  world.settings.skyColour = {};
  world.camera.projection = Projection::Parallel;
  world.camera.halfWidth = 0.01;
  world.camera.position = {0, 0, 10};
  world.camera.LookAt({0, 0, 0}, {0, 1, 0});
  const PolygonObject box = BoxShape(Vec3D(-3, -3, -1), Vec3D(3, 3, 1));
  const PolygonObject back = BoxShape(Vec3D(-9, -9, -5), Vec3D(9, 9, -4));
  const SurfaceMaterial glow{.colour = {}, .specular = 0, .emission = Vec3D(wall ? 1.0 : 0.0)};
  const PolygonObject before = BoxShape(Vec3D(-3, -3, 0.5), Vec3D(3, 3, 4));
  std::vector<Surface> surfaces{{&box, {}, block}, {&back, {}, glow}};
  if (another) surfaces.push_back({&before, {}, *another});
  EXPECT_TRUE(world.surfaces.Build(surfaces));
  WorkerPool pool(2);
  const Result<Picture> picture = RenderPicture(world, pool, {}, nullptr);
  EXPECT_TRUE(picture);
  return picture->Find("R")->values[20];
}

TEST(ClearSurface, BlockPassesWhatFresnelAndBeerLeave) {
  // All light that bounces to and fro within: (1 - r)^2 a / (1 - r^2 a^2), the last terms too small to be followed.
  SurfaceMaterial glass = Glass(1.5);
  EXPECT_NEAR(Seen(glass, true), 0.96 * 0.96 / (1 - 0.04 * 0.04), 2e-3);
  glass.absorption = Vec3D(0.3);
  EXPECT_NEAR(Seen(glass, true), 0.96 * 0.96 * std::exp(-0.6), 2e-3);
  EXPECT_NEAR(Seen(glass, false), 0, 2e-3);
}

// Three surfaces and no more: into the water, from it into the glass, out of the glass.
TEST(ClearSurface, WaterThatReachesIntoGlassEndsAtTheGlass) {
  SurfaceMaterial glass = Glass(1.5), water = Glass(1.33);
  glass.absorption = Vec3D(0.3), water.absorption = Vec3D(0.2);
  const auto passing = [](double a, double b) { return 4 * a * b / ((a + b) * (a + b)); };
  const double surfaces = passing(1, 1.33) * passing(1.33, 1.5) * passing(1.5, 1);
  EXPECT_NEAR(Seen(glass, true, &water), surfaces * std::exp(-0.3 * 2 - 0.2 * 3), 1e-3);
  EXPECT_NEAR(Seen(water, true, &glass), surfaces * std::exp(-0.3 * 3.5 - 0.2 * 1.5), 1e-3);
}

TEST(ClearSurface, ShadowsAreTinted) {
  RenderWorld world;
  SetUpPicture(world, 48, 32, 2);
  SurfaceMaterial water = Glass(1.33);
  water.absorption = {1, 0.1, 0};
  const PolygonObject ground = SquareMesh(20), ball = SphereMesh(1, 24);
  const LMatrix up{{0, 1.5, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, {.colour = Vec3D(0.5), .specular = 0}}, {&ball, up, water}}));
  Light sun;
  sun.kind = LightKind::Distant, sun.direction = {0, -1, 0};
  world.lights.push_back(sun);
  const Vec3D below = world.ShadowColour(sun, {0, 0.01, 0});
  EXPECT_NEAR(below.x, below.z * std::exp(-2), 1e-3);
  EXPECT_NEAR(below.z, std::pow(1 - 0.0201, 2), 1e-3);
  EXPECT_EQ(world.ShadowColour(sun, {5, 0.01, 0}), Vec3D(1.0));
}

}  // namespace
}  // namespace orlix
