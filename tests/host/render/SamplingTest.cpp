// What a pixel's samples are spread over: the pixel, the lens, the shutter, the area of a light; and how many there
// are.

#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "host/render/BlueNoise.h"
#include "host/render/Renderer.h"
#include "tests/host/render/TestSurfaces.h"

namespace orlix {
namespace {

Picture Make(const RenderWorld& world, const RenderOptions& options = {}, RenderReport* report = nullptr,
             int workers = 2) {
  WorkerPool pool(workers);
  Result<Picture> picture = RenderPicture(world, pool, options, report);
  EXPECT_TRUE(picture) << (picture ? "" : picture.error().text);
  return picture ? *picture : Picture();
}

double Red(const Picture& picture, int x, int y) {
  return picture.Find("R")->values[static_cast<std::size_t>(y * picture.width() + x)];
}

// A picture of 64 x 64 pixels and 8 x 8 host units, of a glowing square of side 2 at the origin.
struct Glowing : RenderWorld {
  PolygonObject square = SquareMesh(1);
  std::vector<Vec3D> velocities = std::vector<Vec3D>(4);

  explicit Glowing(int samples) {
    SetUpPicture(*this, 64, 64, samples);
    settings.skySamples = 0;
    camera.projection = Projection::Parallel, camera.halfWidth = 4, camera.position = {0, 20, 0};
    camera.LookAt({0, 0, 0}, {0, 0, -1});
  }
  void Build() {
    Surface surface{&square, {}, {.colour = {}, .specular = 0, .emission = {1, 1, 1}}, &velocities};
    ASSERT_TRUE(surfaces.Build({surface}, settings.ShutterSeconds()));
  }
};

TEST(BlueNoise, HoldsEachValueOnceAndHardlyAnyLowFrequencies) {
  std::set<double> values;
  double deviation = 0;
  constexpr int kBlock = 8;
  for (int by = 0; by < kBlueNoiseSide; by += kBlock) {
    for (int bx = 0; bx < kBlueNoiseSide; bx += kBlock) {
      double sum = 0;
      for (int y = by; y < by + kBlock; ++y) {
        for (int x = bx; x < bx + kBlock; ++x) sum += BlueNoise(x, y), values.insert(BlueNoise(x, y));
      }
      const double off = sum / (kBlock * kBlock) - 0.5;
      deviation += off * off / 64;
    }
  }
  EXPECT_EQ(values.size(), 4096u);
  EXPECT_LT(deviation, 0.1 / 12 / (kBlock * kBlock)) << "a tenth of white noise's";
  EXPECT_EQ(BlueNoise(-1, -64), BlueNoise(63, 0));
}

TEST(Sampling, AMovingSurfaceBlursOverItsWay) {
  Glowing world(64);
  world.settings.shutter = 0.5, world.settings.frameSeconds = 0.1;
  world.velocities.assign(4, Vec3D{40, 0, 0});  // 2 host units while the shutter is open
  world.Build();
  const Picture picture = Make(world);
  // Its right edge runs from 0 to 2: what a place has seen of it falls in a straight line.
  for (int x = 33; x < 48; ++x) {
    const double place = (x + 0.5) / 8 - 4;
    EXPECT_NEAR(Red(picture, x, 32), 1 - place / 2, 0.05) << x;
  }
  EXPECT_EQ(Red(picture, 50, 32), 0);
}

TEST(Sampling, AMovingCameraBlursAsMuch) {
  Glowing world(64);
  world.Build();
  world.settings.shutter = 0.5;
  world.cameraMoves = true, world.closing = world.camera;
  world.camera.position.x = 1, world.closing.position.x = -1;
  const Picture picture = Make(world);
  for (int x = 33; x < 48; ++x) EXPECT_NEAR(Red(picture, x, 32), 1 - ((x + 0.5) / 8 - 4) / 2, 0.05) << x;
}

TEST(Sampling, ALensBlursBehindItsFocusByThinLensGeometry) {
  Glowing world(256);
  world.square = SquareMesh(0.2);
  world.camera.projection = Projection::Perspective, world.camera.halfWidth = 0.2;  // 8 wide at a depth of 20
  world.camera.aperture = 2;
  for (const double focus : {20.0, 10.0}) {
    world.camera.focus = focus;
    world.Build();
    const Picture picture = Make(world);
    int seen = 0;
    for (int x = 0; x < 64; ++x) seen += Red(picture, x, 32) > 0;
    // At depth d the lens's rays spread over aperture x |d - focus| / focus.
    const double width = 2 * std::fabs(20 - focus) / focus + 0.4;
    EXPECT_NEAR(seen, width * 8, 2) << focus;
  }
}

TEST(Sampling, ARectangleLightsAsItsIntegralSays) {
  Light area;
  area.kind = LightKind::Area;
  area.position = {0, 2, 0}, area.direction = {0, -1, 0};
  area.across = {1.5, 0, 0}, area.along = {0, 0, 0.5};
  area.falloff = LightFalloff::InverseSquare, area.radius = 2;
  const Vec3D x{0.7, 0, -0.2};
  double sum = 0, brute = 0;
  constexpr int kSide = 40;
  for (int j = 0; j < kSide; ++j) {
    for (int i = 0; i < kSide; ++i) {
      const Vec2D square{(i + 0.5) / kSide, (j + 0.5) / kSide};
      const Illumination light = area.IlluminateFrom(x, square);
      sum += light.colour.x * light.toLight.y;
      const Vec3D p{1.5 * (2 * square.x - 1), 2, 0.5 * (2 * square.y - 1)}, d = p - x;
      brute += 4 / Dot(d, d) * std::pow(d.y / Length(d), 2);
    }
  }
  EXPECT_NEAR(sum, brute, 1e-9 * brute);
  EXPECT_EQ(area.IlluminateFrom({0, 5, 0}, {0.5, 0.5}).colour, Vec3D()) << "nothing behind it";
  // The same on a surface, by the rays of a picture.
  Glowing world(4);
  world.square = SquareMesh(4);
  ASSERT_TRUE(world.surfaces.Build({{&world.square, {}, {.colour = {1, 1, 1}, .specular = 0}, nullptr}}));
  area.shadowRays = 64;
  world.lights = {area};
  const int px = static_cast<int>((x.x + 4) * 8), py = static_cast<int>((x.z + 4) * 8);
  EXPECT_NEAR(Red(Make(world), px, py), brute / (kSide * kSide), 0.03 * brute / (kSide * kSide));
}

TEST(Sampling, OnlyPixelsThatStayNoisyGetMoreSamples) {
  Glowing world(4);
  world.square = SquareMesh(1.03);  // its edge runs through pixels
  world.Build();
  RenderReport even, adaptive;
  Make(world, {}, &even);
  world.settings.mostSamples = 256, world.settings.noise = 0.01;
  const Picture picture = Make(world, {}, &adaptive);
  EXPECT_EQ(even.pixelSamples, 64u * 64 * 4);
  EXPECT_GT(adaptive.pixelSamples, even.pixelSamples);
  EXPECT_LT(adaptive.pixelSamples, 2.5 * even.pixelSamples) << "all but the edge and what is beside it is even";
  EXPECT_EQ(Red(picture, 32, 32), 1);
  EXPECT_EQ(Red(picture, 2, 2), 0);
}

TEST(Sampling, PartsAndUnfinishedPicturesHaveTheValuesOfTheWhole) {
  Glowing world(4);
  BoxVolume fog;
  fog.low = {-4, -1, -4}, fog.high = {4, 3, 4}, fog.glow = {0.1, 0.1, 0.1}, fog.noisy = true;
  world.volumes = {&fog};
  world.Build();
  const Picture whole = Make(world, {}, nullptr, 3);
  RenderOptions part;
  part.crop = {20, 25, 50, 40};
  RenderReport report;
  const Picture cropped = Make(world, part, &report);
  ASSERT_EQ(cropped.width(), 30);
  ASSERT_EQ(cropped.height(), 15);
  for (int y = 0; y < 15; ++y) {
    for (int x = 0; x < 30; ++x) ASSERT_EQ(Red(cropped, x, y), Red(whole, x + 20, y + 25)) << x << " " << y;
  }
  EXPECT_EQ(report.tiles, 4);
  // A picture that has its first tile already, with a value of its own that must come through.
  Picture unfinished = whole;
  PictureChannel& done = unfinished.AddChannel(kDoneChannel);
  for (int y = 0; y < kTileSize; ++y) {
    for (int x = 0; x < kTileSize; ++x) done.values[static_cast<std::size_t>(y * 64 + x)] = 1;
  }
  unfinished.Find("R")->values[0] = 77;
  RenderOptions more;
  more.unfinished = &unfinished;
  const Picture ended = Make(world, more, &report);
  EXPECT_EQ(report.tiles, 3);
  EXPECT_EQ(Red(ended, 0, 0), 77);
  for (int i = 1; i < 64 * 64; ++i) ASSERT_EQ(Red(ended, i % 64, i / 64), Red(whole, i % 64, i / 64)) << i;
}

TEST(Sampling, LayersAddUpToThePicture) {
  Glowing world(4);
  BoxVolume fog;
  fog.low = {-2, 1, -2}, fog.high = {2, 2, 2}, fog.glow = {0.1, 0.2, 0.3}, fog.absorption = 0.7;
  world.volumes = {&fog};
  world.settings.writeLayers = true, world.settings.frameSeconds = 0.1;
  world.velocities.assign(4, Vec3D{10, 0, 0});
  world.Build();
  const Picture picture = Make(world);
  for (std::size_t n = 0; n < picture.pixelCount(); ++n) {
    for (const char* c : {"R", "G", "B"}) {
      const double sum =
          picture.Find(std::string("gas.") + c)->values[n] + picture.Find(std::string("surfaces.") + c)->values[n];
      ASSERT_NEAR(picture.Find(c)->values[n], sum, 1e-6);
    }
  }
  const std::size_t middle = 32 * 64 + 32;
  EXPECT_NEAR(picture.Find("gas.A")->values[middle], 1 - std::exp(-0.7), 1e-6);
  EXPECT_EQ(picture.Find(kDoneChannel), nullptr);
}

// A volume that shines from one point.
class Spark final : public BoxVolume {
 public:
  int GlowPoints() const override { return 3; }
  GlowPoint GlowAt(const Vec3D&) const override { return {{0, 1, 0}, {5, 5, 5}, 0.1}; }
};

TEST(Sampling, GlowLightsAsAPointOfItsPower) {
  Glowing world(1);
  world.square = SquareMesh(4);
  ASSERT_TRUE(world.surfaces.Build({{&world.square, {}, {.colour = {1, 1, 1}, .specular = 0}, nullptr}}));
  Spark spark;
  world.volumes = {&spark};
  const Picture glowing = Make(world);
  world.volumes.clear();
  Light light;
  light.position = {0, 1, 0}, light.falloff = LightFalloff::InverseSquare, light.colour = Vec3D(5.0);
  world.lights = {light};
  const Picture lit = Make(world);
  for (int x = 0; x < 64; ++x) EXPECT_NEAR(Red(glowing, x, 20), Red(lit, x, 20), 1e-4) << x;
  EXPECT_GT(Red(lit, 32, 32), 4);
}

}  // namespace
}  // namespace orlix
