#include "host/render/Renderer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/host/render/TestSurfaces.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

// From straight above, with a width of 8 host units: pixel (x, y) shows a point of the ground.
void LookDown(RenderWorld& world) {
  world.camera.projection = Projection::Parallel;
  world.camera.halfWidth = 4;
  world.camera.position = {0, 20, 0};
  world.camera.LookAt({0, 0, 0}, {0, 0, -1});
}

Vec3D GroundAt(const RenderWorld& world, int x, int y) {
  const CameraRay ray = world.camera.RayThrough(x + 0.5, y + 0.5, world.settings.width, world.settings.height);
  return ray.origin - ray.direction * (ray.origin.y / ray.direction.y);
}

const SurfaceMaterial kMatt{.colour = {0.8, 0.6, 0.4}, .specular = 0};

// A ball in a square of ground in the sun.
void SetUpBall(RenderWorld& world, int width, int height, int samples) {
  SetUpPicture(world, width, height, samples);
  world.settings.skyColour = {0.1, 0.7, 0.3};
  static const PolygonObject kGround = SquareMesh(3), kBall = SphereMesh(1, 16);
  ASSERT_TRUE(world.surfaces.Build({{&kGround, {}, kMatt, nullptr}, {&kBall, {}, kMatt, nullptr}}));
  world.camera.position = {0, 3, 8};
  world.camera.LookAt({0, 0, 0}, {0, 1, 0});
  world.lights.push_back(Sun({1, -1, -1}));
}

TEST(Renderer, AnEmptyVolumeLeavesTheBackgroundExactly) {
  RenderWorld world;
  SetUpBall(world, 40, 30, 4);
  const Picture without = Rendered(world);
  BoxVolume empty;
  world.volumes.push_back(&empty);
  RenderReport report;
  const Picture with = Rendered(world, 2, &report);
  EXPECT_GT(report.volumeCalls, 100u);
  for (const PictureChannel& channel : without.channels()) {
    EXPECT_EQ(channel.values, with.Find(channel.name)->values) << channel.name;
  }
  EXPECT_FLOAT_EQ(At(with, "G", 0, 0), 0.7f);
}

TEST(Renderer, ALightWithAWidthCastsSoftShadows) {
  RenderWorld world;
  SetUpPicture(world, 64, 4, 4);
  LookDown(world);
  world.settings.skySamples = 0, world.settings.skyColour = {};
  const PolygonObject ground = SquareMesh(50);
  PolygonObject screen = SquareMesh(50);  // over x < 0, half way to the light
  for (Vec3D& p : screen.points) p.x -= 50, p.y = 2;
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}, {&screen, {}, kMatt, nullptr}}));
  world.camera.near = 18.5;  // below the screen
  Light light;
  light.position = {0, 4, 0};
  light.size = 2, light.shadowRays = 64;
  world.lights.push_back(light);
  const Picture soft = Rendered(world);
  world.lights[0].size = 0;
  const Picture sharp = Rendered(world);
  // The part of the disc on the far side of a line through it.
  const auto visible = [](double x) {
    return x >= 1 ? 1 : x <= -1 ? 0 : 1 - (std::acos(x) - x * std::sqrt(1 - x * x)) / M_PI;
  };
  for (int x = 33; x < 64; ++x) {
    const double share = At(soft, "R", x, 2) / At(sharp, "R", x, 2);
    EXPECT_NEAR(share, visible(GroundAt(world, x, 2).x), 0.03) << x;
  }
  EXPECT_EQ(At(sharp, "R", 31, 2), 0);
  EXPECT_GT(At(soft, "R", 30, 2), 0);
}

// A wall on wide ground sees half of an even sky: with 16 directions none of its pixels is off by more than one of
// them.
TEST(Renderer, HalfASkyLightsAWallEvenly) {
  RenderWorld world;
  SetUpPicture(world, 24, 24, 8);
  world.settings.skyColour = world.settings.skyHorizon = {1, 1, 1}, world.settings.skySamples = 2;
  const PolygonObject ground = SquareMesh(1e4);
  PolygonObject wall = SquareMesh(4);
  for (Vec3D& p : wall.points) p = {p.x, -p.z, 0};
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}, {&wall, {}, kMatt, nullptr}}));
  world.camera.projection = Projection::Parallel, world.camera.halfWidth = 1;
  world.camera.position = {0, 2, 10};
  world.camera.LookAt({0, 2, 0}, {0, 1, 0});
  const Picture picture = Rendered(world);
  for (const float value : picture.Find("R")->values) EXPECT_NEAR(value / 0.8, 0.5, 1.0 / 16);
}

TEST(Renderer, APointLightOnAMattPlaneFollowsLambertAndTheSquare) {
  RenderWorld world;
  SetUpPicture(world, 64, 48);
  LookDown(world);
  const PolygonObject ground = SquareMesh(50);
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}}));
  Light light;
  light.position = {0.5, 2, -0.3};
  light.falloff = LightFalloff::InverseSquare, light.radius = 2;
  light.colour = {1, 2, 3};
  world.lights.push_back(light);
  const Picture picture = Rendered(world);
  for (int y = 0; y < 48; ++y) {
    for (int x = 0; x < 64; ++x) {
      const Vec3D to = light.position - GroundAt(world, x, y);
      const double expected = 4 / Dot(to, to) * to.y / Length(to);
      EXPECT_NEAR(At(picture, "R", x, y), 0.8 * expected, 1e-5);
      EXPECT_NEAR(At(picture, "B", x, y), 3 * 0.4 * expected, 1e-5);
      EXPECT_NEAR(At(picture, "Z", x, y), 20, 1e-4);
      EXPECT_EQ(At(picture, "A", x, y), 1);
    }
  }
}

TEST(Renderer, ASphereThrowsItsShadowWhereGeometrySays) {
  RenderWorld world;
  SetUpPicture(world, 160, 120);
  LookDown(world);
  const PolygonObject ground = SquareMesh(50), ball = SphereMesh(0.8, 128);
  Surface sphere{&ball, {}, kMatt, nullptr};
  const Vec3D centre{-1.5, 1, 0.5};
  sphere.matrix.off = centre;
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}, sphere}));
  const Light sun = Sun({1, -1, -0.3});
  world.lights.push_back(sun);
  const Picture picture = Rendered(world);
  int shadowed = 0, lit = 0;
  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 160; ++x) {
      const Vec3D p = GroundAt(world, x, y), toCentre = centre - p;
      if (std::hypot(toCentre.x, toCentre.z) < 0.81) continue;         // the sphere itself
      const double distance = Length(Cross(toCentre, sun.direction));  // of its centre from the line to the sun
      if (std::abs(distance - 0.8) < 0.002) continue;                  // the rim, within what facets make of it
      const float expected = distance < 0.8 ? 0.0f : static_cast<float>(-0.8 * sun.direction.y);
      EXPECT_NEAR(At(picture, "R", x, y), expected, 1e-5) << x << " " << y;
      ++(distance < 0.8 ? shadowed : lit);
    }
  }
  EXPECT_GT(shadowed, 500);
  EXPECT_GT(lit, 5000);
  // A light that casts none.
  world.lights[0].castsShadow = false;
  const Picture open = Rendered(world);
  EXPECT_NEAR(At(open, "R", 100, 60), -0.8 * sun.direction.y, 1e-5);
}

TEST(Renderer, SmokeShadesTheGroundAndGroundHidesSmoke) {
  RenderWorld world;
  SetUpPicture(world, 32, 32);
  LookDown(world);
  const PolygonObject ground = SquareMesh(50);
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}}));
  world.lights.push_back(Sun({1, -2, 0}));
  BoxVolume smoke;
  smoke.low = {-100, 3, -100}, smoke.high = {100, 4, 100};
  smoke.absorption = 0.7;
  smoke.glow = {0.5, 0, 0};
  BoxVolume below;
  below.low = {-100, -3, -100}, below.high = {100, -1, 100};
  below.glow = {9, 9, 9};
  world.volumes = {&smoke, &below};
  world.settings.skySamples = 0;
  const Picture picture = Rendered(world);
  const double cosine = 2 / std::sqrt(5.0), inShadow = 0.8 * cosine * std::exp(-0.7 / cosine);
  EXPECT_NEAR(At(picture, "R", 16, 16), 0.5 + std::exp(-0.7) * inShadow, 1e-6);
  EXPECT_NEAR(At(picture, "G", 16, 16), std::exp(-0.7) * inShadow * 0.75, 1e-6);
}

TEST(Renderer, VolumesStandInOrderOfEntryWhateverTheirOrderInTheScene) {
  BoxVolume front, back;
  front.low = {-9, 5, -9}, front.high = {9, 6, 9}, front.absorption = 2, front.glow = {1, 0, 0};
  back.low = {-9, 1, -9}, back.high = {9, 3, 9}, back.absorption = 0.5, back.glow = {0, 1, 0};
  for (const bool swapped : {false, true}) {
    RenderWorld world;
    SetUpPicture(world, 8, 8);
    LookDown(world);
    world.settings.skyColour = {0, 0, 1};
    world.volumes = {&front, &back};
    if (swapped) std::swap(world.volumes[0], world.volumes[1]);
    const Picture picture = Rendered(world);
    EXPECT_NEAR(At(picture, "R", 4, 4), 1, 1e-6);
    EXPECT_NEAR(At(picture, "G", 4, 4), std::exp(-2) * 2, 1e-6);
    EXPECT_NEAR(At(picture, "B", 4, 4), std::exp(-3), 1e-6);
    EXPECT_NEAR(At(picture, "Z", 4, 4), 14, 1e-5);
    EXPECT_EQ(At(picture, "A", 4, 4), 1);
    world.settings.skyVisible = false;
    const Picture cut = Rendered(world);
    EXPECT_EQ(At(cut, "B", 4, 4), 0);
    EXPECT_NEAR(At(cut, "A", 4, 4), 1 - std::exp(-3), 1e-6);
  }
}

TEST(Renderer, AnOpenPlaneGathersTheWholeSky) {
  RenderWorld world;
  SetUpPicture(world, 16, 16, 2);
  LookDown(world);
  const PolygonObject ground = SquareMesh(50);
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}}));
  world.settings.skyColour = {0.5, 1, 2};
  world.settings.skyLight = 0.5;
  world.settings.skySamples = 3;
  const Picture picture = Rendered(world);
  for (int i = 0; i < 16; ++i) {
    EXPECT_NEAR(At(picture, "R", i, 7), 0.8 * 0.25, 1e-6);
    EXPECT_NEAR(At(picture, "B", i, 7), 0.4 * 1.0, 1e-6);
  }
}

TEST(Renderer, TheSkyGoesFromItsColourToThatOfTheHorizon) {
  RenderWorld world;
  SetUpPicture(world, 3, 101);
  world.camera.position = {}, world.camera.LookAt({0, 0, -1}, {0, 1, 0});
  world.camera.halfWidth = 0.1;  // some 73 degrees up and down
  world.settings.skyColour = {0.1, 0.2, 0.3}, world.settings.skyHorizon = {3, 2, 1};
  const Picture picture = Rendered(world);
  for (int y = 1; y < 101; ++y) EXPECT_GE(At(picture, "R", 1, y), At(picture, "R", 1, y - 1));
  EXPECT_NEAR(At(picture, "R", 1, 0), 0.1, 0.001);
  EXPECT_NEAR(At(picture, "R", 1, 50), 0.3, 0.02);
  EXPECT_NEAR(At(picture, "R", 1, 100), 0.3, 1e-6);
  EXPECT_NEAR(At(picture, "B", 1, 50), 0.3, 1e-6);
}

// A ball of few polygons with smoothed normals, lit from the side: its light half has no shadow of its own, and its
// light is that of the normals.
TEST(Renderer, ASmoothBallIsNotInTheShadowOfItsPolygons) {
  RenderWorld world;
  SetUpPicture(world, 64, 64);
  LookDown(world);
  world.settings.skySamples = 0;
  const PolygonObject ball = SphereMesh(3, 12);
  ASSERT_TRUE(world.surfaces.Build({{&ball, {}, kMatt, nullptr}}));
  world.lights.push_back(Sun({-1, 0, 0.2}));
  const Picture shaded = Rendered(world);
  world.lights[0].castsShadow = false;
  const Picture open = Rendered(world);
  double lost = 0, all = 0;
  for (int i = 0; i < 64 * 64; ++i) {
    const float with = At(shaded, "R", i % 64, i / 64), without = At(open, "R", i % 64, i / 64);
    EXPECT_GE(without + 1e-6f, with);
    lost += without - with, all += without;
  }
  EXPECT_GT(all, 250);
  EXPECT_LT(lost, 0.002 * all);
}

// A glowing wall 14 host units away, and the same seen through a ball that changes nothing.
TEST(Renderer, HazeMixesTheHorizonIntoSurfacesByTheirDistance) {
  RenderWorld world;
  SetUpPicture(world, 3, 3);
  world.camera.projection = Projection::Parallel;
  world.camera.halfWidth = 0.01;
  world.camera.position = {0, 0, 10}, world.camera.LookAt({0, 0, 0}, {0, 1, 0});
  world.settings.skyColour = {1, 1, 1}, world.settings.skyHorizon = {0.2, 0.4, 0.6};
  world.settings.hazeBegin = 4;
  const PolygonObject ball = SphereMesh(3, 16);
  PolygonObject wall = SquareMesh(9);
  for (Vec3D& p : wall.points) p = {p.x, -p.z, -4};
  const SurfaceMaterial glow{.colour = {}, .specular = 0, .emission = Vec3D(2)};
  const SurfaceMaterial air{.colour = {}, .specular = 0, .transmission = 1, .refraction = 1};
  for (const bool through : {false, true}) {
    std::vector<Surface> surfaces{{&wall, {}, glow}};
    if (through) surfaces.push_back({&ball, {}, air});
    ASSERT_TRUE(world.surfaces.Build(surfaces));
    for (const double haze : {0.0, 5.0, 20.0}) {
      world.settings.haze = haze;
      const double way = 10 - world.camera.near, left = haze > 0 ? std::exp(-way / haze) : 1;
      EXPECT_NEAR(At(Rendered(world), "B", 1, 1), 2 * left + 0.6 * (1 - left), 1e-3) << haze << " " << through;
    }
  }
}

TEST(Renderer, GlowingVolumesAndSurfacesLightWhatIsNear) {
  RenderWorld world;
  SetUpPicture(world, 4, 4, 64);
  LookDown(world);
  world.camera.position.y = 0.5;  // below what glows
  world.settings.skySamples = 16;
  const PolygonObject ground = SquareMesh(10);
  BoxVolume fire;
  fire.low = {-1e5, 1, -1e5}, fire.high = {1e5, 2, 1e5};
  fire.glow = {0.1, 0, 0};
  world.volumes.push_back(&fire);
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}}));
  // The mean over directions of 0.1 / cosine, with cosine / pi as the weight, is 0.2.
  EXPECT_NEAR(At(Rendered(world), "R", 2, 2), 0.8 * 0.2, 0.02);

  world.volumes.clear();
  const PolygonObject ceiling = SquareMesh(1e4);
  Surface lamp{&ceiling, {}, {.emission = {0, 3, 0}}, nullptr};
  lamp.matrix.off = {0, 2, 0};
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, nullptr}, lamp}));
  EXPECT_NEAR(At(Rendered(world), "G", 2, 2), 0.6 * 3, 0.01);
}

TEST(Renderer, VelocityIsThatOfWhatIsSeen) {
  RenderWorld world;
  SetUpPicture(world, 8, 8);
  LookDown(world);
  world.settings.writeVelocity = true;
  const PolygonObject ground = SquareMesh(50);
  const std::vector<Vec3D> velocities(4, Vec3D{7, 8, 9});
  ASSERT_TRUE(world.surfaces.Build({{&ground, {}, kMatt, &velocities}}));
  BoxVolume smoke;  // the middle of the picture
  smoke.absorption = 10;
  world.volumes.push_back(&smoke);
  const Picture picture = Rendered(world);
  EXPECT_EQ(At(picture, "velocity.Y", 4, 4), 2);
  EXPECT_EQ(At(picture, "velocity.Y", 0, 0), 8);
  EXPECT_NEAR(At(picture, "Z", 4, 4), 19, 1e-5);
}

TEST(Renderer, AnySizeIsMade) {
  RenderWorld world;
  for (const auto& [width, height] : {std::pair{1, 1}, {1, 70}, {33, 31}, {65, 1}}) {
    SetUpPicture(world, width, height);
    world.settings.skyColour = {0.25, 0.5, 1};
    const Picture picture = Rendered(world);
    ASSERT_EQ(picture.width(), width);
    for (const ChannelRange& range : RangesOf(picture)) {
      if (range.name == "G") {
        EXPECT_TRUE(range.min == 0.5 && range.max == 0.5 && range.notFinite == 0);
      }
    }
  }
  WorkerPool pool(1);
  for (const auto& [width, height] : {std::pair{0, 5}, {5, -1}, {60000, 60000}, {1 << 30, 1}}) {
    SetUpPicture(world, width, height);
    EXPECT_FALSE(RenderPicture(world, pool, {}));
  }
}

TEST(Renderer, AValueThatIsNoNumberIsBlackAndCounted) {
  RenderWorld world;
  SetUpPicture(world, 8, 8);
  LookDown(world);
  BoxVolume broken;
  broken.glow = {std::nan(""), 1, 1};
  world.volumes.push_back(&broken);
  RenderReport report;
  const Picture picture = Rendered(world, 1, &report);
  EXPECT_GT(report.notFinite, 0u);
  for (const ChannelRange& range : RangesOf(picture)) EXPECT_EQ(range.notFinite, 0u);
}

TEST(Renderer, EndsEachVolumeThatItStartedAndHandsOnTheError) {
  RenderWorld world;
  SetUpPicture(world, 8, 8);
  BoxVolume good, bad;
  bad.failing = true;
  world.volumes = {&good, &bad};
  WorkerPool pool(1);
  const Result<Picture> picture = RenderPicture(world, pool, {});
  ASSERT_FALSE(picture);
  EXPECT_EQ(picture.error().text, "no memory for the volume");
  EXPECT_EQ(good.starts, 1);
  EXPECT_EQ(good.ends, 1);
  EXPECT_EQ(bad.ends, 0);
}

TEST(Renderer, TellsItsProgressAndStopsWhenAsked) {
  RenderWorld world;
  SetUpPicture(world, 300, 300);
  WorkerPool pool(2);
  double last = -1;
  RenderOptions options;
  options.onProgress = [&](const RenderProgress& p) {
    EXPECT_GE(p.fraction, last);
    EXPECT_GE(p.elapsedSeconds, 0);
    last = p.fraction;
  };
  ASSERT_TRUE(RenderPicture(world, pool, options));
  EXPECT_EQ(last, 1);

  BaseThread thread;
  thread.Break();
  options = {};
  options.thread = &thread;
  RenderReport report;
  const Result<Picture> broken = RenderPicture(world, pool, options, &report);
  ASSERT_TRUE(broken);
  EXPECT_TRUE(report.broken);
  EXPECT_EQ(report.cameraRays, 0u);
  EXPECT_EQ(At(*broken, "A", 200, 200), 0);
}

TEST(RendererThreads, ThePictureIsTheSameAtAnyNumberOfWorkers) {
  RenderWorld world;
  SetUpBall(world, 97, 75, 2);
  world.settings.skySamples = 2;
  BoxVolume noisy;
  noisy.high = {2, 2, 2}, noisy.absorption = 0.2, noisy.glow = {1, 0.5, 0.1}, noisy.noisy = true;
  world.volumes.push_back(&noisy);
  const auto rendered = [&](int workers) {
    RenderReport report;
    const Picture picture = Rendered(world, workers, &report);
    std::vector<std::vector<float>> values;
    for (const PictureChannel& channel : picture.channels()) values.push_back(channel.values);
    return std::pair(values, report.shadowRays);
  };
  const auto one = test::SameForAnyWorkers(rendered);
  world.settings.seed = 5;
  EXPECT_NE(rendered(2).first, one.first);
}

}  // namespace
}  // namespace orlix
