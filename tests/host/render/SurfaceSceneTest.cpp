#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <set>

#include "globals/Random.h"
#include "host/render/BlueNoise.h"
#include "host/render/Renderer.h"
#include "host/render/SmoothNormals.h"
#include "host/render/SurfaceScene.h"
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

  // Together as one by one: few rays, all of a packet, some that aren't asked for.
  for (const std::uint32_t asked : {0x3u, 0xffffu, 0xfa5u}) {
    for (std::uint32_t i = 0; i < 200; ++i) {
      const Vec3D o = surface.matrix.off + RandomVector(random) * 5, normal = Normalized(RandomVector(random));
      DirectionPacket directions;
      FillWithCosineDirections(normal, 16 * i, 16, {0.3, 0.7}, directions);
      PacketHits packet;
      scene.IntersectPacket(o, directions, asked, packet);
      for (int r = 0; r < DirectionPacket::kSize; ++r) {
        EXPECT_NEAR(Length(directions[r]), 1, 1e-12);
        EXPECT_GE(Dot(directions[r], normal), 0);
        SurfaceHit hit;
        const bool found = (asked >> r & 1u) && scene.Intersect(o, directions[r], 1e6, hit);
        EXPECT_EQ(packet.material[r], found ? hit.material : nullptr);
        if (!found) continue;
        EXPECT_NEAR(packet.distance[r], hit.distance, 1e-5);
      }
    }
  }
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

// Stretched and mirrored a sphere is an ellipsoid: the normal at p is along its gradient, p by the squared half axes.
TEST(SurfaceScene, NormalsOfAStretchedMirrorPointOutwards) {
  PolygonObject mesh = SphereMesh(1, 48);
  mesh.normals = mesh.points;
  Surface surface{&mesh, {}, {}, nullptr};
  surface.matrix.v1 = {-3, 0, 0}, surface.matrix.v3 = {0, 0, 0.5};
  SurfaceScene scene;
  ASSERT_TRUE(scene.Build({surface}));
  MersenneTwister random(1);
  for (int i = 0; i < 100; ++i) {
    const Vec3D d = Normalized(RandomVector(random));
    SurfaceHit hit;
    ASSERT_TRUE(scene.Intersect(d * -5, d, 100, hit));
    EXPECT_TRUE(hit.outside);
    EXPECT_LT(Length(hit.normal - Normalized(hit.point * Vec3D(1 / 9.0, 1, 4))), 0.05);
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
  // A corner of a cube, one of whose faces is two triangles there: a face counts by its angle.
  const std::vector<Vec3D> cube = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}};
  const auto corner = SmoothNormals(cube, std::vector<std::int32_t>{0, 2, 1, 0, 3, 2, 0, 4, 3, 0, 1, 4}, 120);
  EXPECT_LT(Length(Vec3D(corner[0]) - Normalized(Vec3D(-1))), 1e-6);
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

// Water and glass: what they mirror, bend, swallow and let through.

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
  return static_cast<double>(At(Rendered(world), "R", 4, 2));
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
  const Light sun = Sun({0, -1, 0});
  world.lights.push_back(sun);
  const Vec3D below = world.ShadowColour(sun, {0, 0.01, 0});
  EXPECT_NEAR(below.x, below.z * std::exp(-2), 1e-3);
  EXPECT_NEAR(below.z, std::pow(1 - 0.0201, 2), 1e-3);
  EXPECT_EQ(world.ShadowColour(sun, {5, 0.01, 0}), Vec3D(1.0));
}

// What a pixel's samples are spread over: the pixel, the lens, the shutter, the area of a light; and how many there
// are.

double Red(const Picture& picture, int x, int y) { return static_cast<double>(At(picture, "R", x, y)); }

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
  const Picture picture = Rendered(world);
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
  const Picture picture = Rendered(world);
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
    const Picture picture = Rendered(world);
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
  EXPECT_NEAR(Red(Rendered(world), px, py), brute / (kSide * kSide), 0.03 * brute / (kSide * kSide));
}

TEST(Sampling, OnlyPixelsThatStayNoisyGetMoreSamples) {
  Glowing world(4);
  world.square = SquareMesh(1.03);  // its edge runs through pixels
  world.Build();
  RenderReport even, adaptive;
  Rendered(world, 2, &even);
  world.settings.mostSamples = 256, world.settings.noise = 0.01;
  const Picture picture = Rendered(world, 2, &adaptive);
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
  const Picture whole = Rendered(world, 3);
  RenderOptions part;
  part.crop = {20, 25, 50, 40};
  RenderReport report;
  const Picture cropped = Rendered(world, 2, &report, part);
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
  const Picture ended = Rendered(world, 2, &report, more);
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
  world.ofFrame = world.ofNeighbour = world.camera;
  const Picture picture = Rendered(world);
  for (std::size_t n = 0; n < picture.pixelCount(); ++n) {
    for (const char* c : {"R", "G", "B"}) {
      const double sum =
          picture.Find(std::string("gas.") + c)->values[n] + picture.Find(std::string("surfaces.") + c)->values[n];
      ASSERT_NEAR(picture.Find(c)->values[n], sum, 1e-6);
    }
  }
  const std::size_t middle = 32 * 64 + 32;
  EXPECT_NEAR(picture.Find("gas.A")->values[middle], 1 - std::exp(-0.7), 1e-6);
  // The fog in front moves by a tenth of a unit a frame, of 8 across 64 pixels; not at all when the camera goes along.
  EXPECT_NEAR(picture.Find("motion.X")->values[middle], 0.8, 1e-4);
  world.ofNeighbour.position.x = -0.1;
  EXPECT_NEAR(Rendered(world).Find("motion.X")->values[middle], 0, 1e-4);
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
  const Picture glowing = Rendered(world);
  world.volumes.clear();
  Light light;
  light.position = {0, 1, 0}, light.falloff = LightFalloff::InverseSquare, light.colour = Vec3D(5.0);
  world.lights = {light};
  const Picture lit = Rendered(world);
  for (int x = 0; x < 64; ++x) EXPECT_NEAR(Red(glowing, x, 20), Red(lit, x, 20), 1e-4) << x;
  EXPECT_GT(Red(lit, 32, 32), 4);
}

}  // namespace
}  // namespace orlix
