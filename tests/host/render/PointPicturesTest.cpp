// Particles in pictures: what is nearest, against brute force; with surfaces and volumes; and what can't be drawn.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "host/render/LegendBar.h"
#include "host/render/Renderer.h"
#include "tests/host/render/TestSurfaces.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

constexpr float kInfinite = std::numeric_limits<float>::infinity();

// Looks along -z from z = 20 at a square of side 8; discs are exact in a parallel projection.
void LookAhead(RenderWorld& world, int side, int samples = 1) {
  SetUpPicture(world, side, side, samples);
  world.camera.projection = Projection::Parallel;
  world.camera.halfWidth = 4;
  world.camera.position = {0, 0, 20};
}

PointCloud RandomCloud(int points, double largest, MersenneTwister& random) {
  PointCloud cloud;
  cloud.origin = {0.3, -0.2, 0.1};
  cloud.leastRadius = 0;
  for (int n = 0; n < points; ++n) {
    const Vec3D at = RandomVector(random) * 8, colour = RandomVector(random) + Vec3D(0.5);
    // Few are as large as they may be.
    const double share = random.Uniform();
    cloud.points.push_back({Vec3F(at), static_cast<float>(0.02 + largest * share * share * share), Vec3F(colour), 1});
  }
  return cloud;
}

TEST(PointPictures, ShowWhatBruteForceFindsNearest) {
  MersenneTwister random(7);
  RenderWorld world;
  LookAhead(world, 90);
  world.points = {RandomCloud(300, 0.4, random), RandomCloud(60, 3.0, random)};
  world.points[1].lit = false;
  const Picture picture = Rendered(world);
  int hits = 0;
  for (int y = 0; y < 90; ++y) {
    for (int x = 0; x < 90; ++x) {
      const CameraRay ray = world.camera.RayThrough(x + 0.5, y + 0.5, 90, 90);
      double nearest = world.camera.far, rim = 1;
      for (const PointCloud& cloud : world.points) {
        for (const PointCloud::Point& point : cloud.points) {
          const Vec3D d = Vec3D(point.position) + cloud.origin - ray.origin;
          const double square = (d.x * d.x + d.y * d.y) / (point.radius * point.radius);
          rim = std::min(rim, std::abs(square - 1));
          if (square > 1) continue;
          const double depth = 20 - (d.z + ray.origin.z) - (cloud.lit ? point.radius * std::sqrt(1 - square) : 0);
          nearest = std::min(nearest, depth);
        }
      }
      if (rim < 1e-3) continue;  // single precision may see it either way
      hits += nearest < world.camera.far;
      ASSERT_NEAR(At(picture, "Z", x, y), nearest, 1e-3) << x << " " << y;
    }
  }
  EXPECT_GT(hits, 3000);
}

TEST(PointPictures, StandInFrontOfAndBehindSurfacesAndInsideVolumes) {
  RenderWorld world;
  LookAhead(world, 40);
  PolygonObject wall = SquareMesh(10);
  for (Vec3D& p : wall.points) p = {p.x, -p.z, 0};
  ASSERT_TRUE(world.surfaces.Build({{&wall, {}, {.colour = {}, .specular = 0, .emission = {0, 0.5, 0}}, nullptr}}));
  PointCloud cloud;
  cloud.lit = false;
  cloud.points = {{{-2, 0, 1}, 1, {1, 0, 0}, 1}, {{2, 0, -1}, 1, {1, 0, 0}, 1}};
  world.points.push_back(cloud);
  BoxVolume fog;  // from z = 3 to -9
  fog.low = {-10, -10, -9}, fog.high = {10, 10, 3};
  fog.absorption = 0.3;
  world.volumes.push_back(&fog);
  const Picture picture = Rendered(world);
  EXPECT_NEAR(At(picture, "R", 10, 20), std::exp(-0.3 * 2), 1e-5) << "the disc stands 2 deep in the fog";
  EXPECT_EQ(At(picture, "G", 10, 20), 0);
  EXPECT_NEAR(At(picture, "Z", 10, 20), 19, 1e-5);
  EXPECT_EQ(At(picture, "R", 30, 20), 0) << "the wall hides the other";
  EXPECT_NEAR(At(picture, "G", 30, 20), 0.5 * std::exp(-0.3 * 3), 1e-5);
}

TEST(PointPictures, LitBallsFollowLambertAndSurfacesShadeThem) {
  RenderWorld world;
  LookAhead(world, 64);
  world.settings.skyLight = 0;
  PointCloud cloud;
  cloud.points = {{{0, 0, 0}, 3, {1, 0.5, 0.25}, 1}};
  world.points.push_back(cloud);
  world.lights.push_back(Sun({0, -1, 0}));
  const Picture open = Rendered(world);
  int seen = 0;
  for (int y = 10; y < 32; y += 4) {
    const double up = (31.5 - y) * 8 / 64 / 3;  // of the unit normal
    EXPECT_NEAR(At(open, "R", 32, y), up, 0.01);
    EXPECT_NEAR(At(open, "B", 32, y), up / 4, 0.01);
    ++seen;
  }
  EXPECT_EQ(seen, 6);
  PolygonObject roof = SquareMesh(10);
  for (Vec3D& p : roof.points) p.y = 3.5;
  ASSERT_TRUE(world.surfaces.Build({{&roof, {}, {}, nullptr}}));
  EXPECT_EQ(At(Rendered(world), "R", 32, 20), 0);
}

// 200,000 that each fill the picture: 70 thousand million samples, if they were drawn.
TEST(PointPictures, AHeapBeforeTheCameraEndsSoon) {
  RenderWorld world;
  LookAhead(world, 160, 2);
  PointCloud cloud;
  cloud.lit = false;
  for (int n = 0; n < 200000; ++n) {
    const float shade = static_cast<float>(n) / 200000;
    cloud.points.push_back({{0, 0, 8 * shade}, 50, Vec3F(shade), 0.5f});
  }
  world.points.push_back(cloud);
  const Picture picture = Rendered(world);
  for (const float v : picture.Find("R")->values) ASSERT_GT(v, 0.999f);
}

TEST(PointPictures, OpacityIsTheShareOfSamples) {
  RenderWorld world;
  LookAhead(world, 16, 64);
  PointCloud cloud;
  cloud.lit = false;
  cloud.points = {{{0, 0, 0}, 20, {1, 1, 1}, 0.25f}};
  world.points.push_back(cloud);
  const Picture picture = Rendered(world);
  for (const float v : picture.Find("R")->values) ASSERT_NEAR(v, 0.25, 1.5 / 64);
}

// A disc of radius 1 at a depth of 20, whose middle goes over the x axis from -1 to 1, or over a disc of radius 1. Its
// shares of the samples are those of two discs, or of two lengths, that overlap.
TEST(PointPictures, BlurWhatMovesAndWhatIsOutOfFocus) {
  enum Cause { Velocity, Camera, Lens };
  for (const Cause cause : {Velocity, Camera, Lens}) {
    RenderWorld world;
    LookAhead(world, 64, 64);
    PointCloud cloud;
    cloud.lit = false;
    cloud.points = {{{0, 0, 0}, 1, {1, 1, 1}, 1}};
    if (cause != Lens) world.settings.shutter = 0.5, world.settings.frameSeconds = 0.1;
    if (cause == Velocity) cloud.velocities = {{40, 0, 0}};
    world.points.push_back(cloud);
    world.closing = world.camera;
    if (cause == Camera) world.cameraMoves = true, world.camera.position.x = 1, world.closing.position.x = -1;
    if (cause == Lens) {
      world.camera.projection = Projection::Perspective, world.camera.halfWidth = 0.2;
      world.camera.aperture = 2, world.camera.focus = 10;
    }
    const Picture picture = Rendered(world);
    for (int x = 4; x < 60; ++x) {
      const double d = std::min(2.0, std::abs((x + 0.5) / 8 - 4));
      const double discs = (2 * std::acos(d / 2) - d / 2 * std::sqrt(4 - d * d)) / std::numbers::pi;
      EXPECT_NEAR(At(picture, "R", x, 32), cause == Lens ? discs : 1 - d / 2, 0.06) << cause << " " << x;
    }
  }
}

TEST(PointPictures, PassOverWhatIsNoPlace) {
  RenderWorld world;
  LookAhead(world, 16);
  PointCloud cloud;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const Vec3F& place : {Vec3F(nan, 0, 0), Vec3F(0, kInfinite, 0), Vec3F(0, 0, -kInfinite), Vec3F(1e30f, 0, 0)}) {
    cloud.points.push_back({place, 1, {1, 1, 1}, 1});
  }
  cloud.points.push_back({{0, 0, 30}, 1, {1, 1, 1}, 1});  // behind the camera
  cloud.points.push_back({{0, 0, 0}, nan, {1, 1, 1}, 1});
  cloud.leastRadius = 0;
  world.points.push_back(cloud);
  const Picture picture = Rendered(world);
  for (const float v : picture.Find("R")->values) ASSERT_EQ(v, 0);
}

TEST(PointPicturesThreads, AreTheSameAtAnyNumberOfWorkers) {
  MersenneTwister random(3);
  RenderWorld world;
  LookAhead(world, 70, 4);
  world.settings.skyColour = {0.2, 0.3, 0.4};
  world.points = {RandomCloud(2000, 0.6, random)};
  world.points[0].points.insert(world.points[0].points.end(), world.points[0].points.begin(),
                                world.points[0].points.begin() + 500);  // equally near ones
  world.settings.shutter = 0.5;
  for (auto& point : world.points[0].points) {
    point.opacity = static_cast<float>(random.Uniform());
    world.points[0].velocities.push_back(Vec3F(RandomVector(random) * 50));
  }
  test::SameForAnyWorkers([&](int workers) {
    std::vector<float> values;
    const Picture picture = Rendered(world, workers);
    for (const PictureChannel& channel : picture.channels()) {
      values.insert(values.end(), channel.values.begin(), channel.values.end());
    }
    return values;
  });
}

TEST(Legends, StandInTheCornerAndKeepOffPicturesTooSmall) {
  const GradientKnot knots[] = {{0, {1, 0, 0}}, {1, {0, 0, 1}}};
  const Legend legend{"speed m/s", 0, 12.5, Gradient(knots)};
  for (const int side : {4, 200}) {
    Picture picture(side, side);
    for (const char* name : {"R", "G", "B", "A"}) picture.AddChannel(name, 0.5f);
    DrawLegends({legend, legend}, 1, picture);
    const auto& red = picture.Find("R")->values;
    const auto drawn = std::count_if(red.begin(), red.end(), [](float v) { return v != 0.5f; });
    EXPECT_EQ(drawn > 0, side > 4) << side;
    for (int x = 0; x < side; ++x) ASSERT_EQ(red[static_cast<std::size_t>(x)], 0.5f) << "the top stays";
  }
}

}  // namespace
}  // namespace orlix
