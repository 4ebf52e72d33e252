// Light that scatters many times: depths and lengths in a constant medium, the pyramid, what lights add up to.

#include "fluids/volume_renderer/MultipleScattering.h"
#include "tests/fluids/volume_renderer/TestGas.h"

namespace orlix {
namespace {

Light SunAlong(const Vec3D& direction, const Vec3D& colour = {1, 1, 1}) {
  Light light;
  light.kind = LightKind::Distant;
  light.direction = direction, light.colour = colour;
  return light;
}

struct ScatteringGas : Gas {
  ScatteringGas() {
    ScatteringSettings& s = settings.scatter;
    s.enabled = s.ownAbsorption = s.ownSpread = s.ownStep = true;
    s.absorption = 0.002, s.scattering = 0.08, s.lengthScale = 0.01, s.step = 0.5, s.phaseScale = 1, s.mapScale = 0.5;
    lights = {SunAlong({-1, 0, 0})};
  }
  Vec3D Glow(double y = kBox / 2) {
    return marcher.Scattered({Vec3D(-3, 2 + y, 1 + kBox / 2), {1, 0, 0}, kBox}, nullptr, 0);
  }
};

TEST(MultipleScattering, AConstantMediumIsMeasuredExactly) {
  for (const bool homogeneous : {false, true}) {
    ScatteringGas gas;
    gas.settings.scatter.homogeneous = homogeneous;
    gas.settings.densityMultiplier = 1.5, gas.settings.scatter.densityScale = 0.7;
    gas.Build();
    const double length = 7.3, depth = Gas::kGasDensity * 1.5 * 0.7 * length;
    const MarchRay ray{Vec3D(0, 8, 9), {1, 0, 0}, length};
    MultipleScattering::Measure out{-1, -1, -1};
    gas.marcher.scattering()->MeasureRay(ray, 1, out, nullptr, 0);
    EXPECT_EQ(out.length, -1);
    EXPECT_EQ(out.absorption, -1);
    EXPECT_NEAR(out.scattering, depth * 0.08, 1e-12);
    gas.marcher.scattering()->MeasureRay(ray, 0, out, nullptr, 0);
    EXPECT_NEAR(out.length, 0.01 * length, 1e-12);
    EXPECT_NEAR(out.absorption, depth * 0.002, 1e-12);
    EXPECT_NEAR(out.scattering, depth * 0.08, 1e-12);
    // The maps hold the same of the way to the light: 2.25 host units from the side that it comes from.
    const ScatteringMap& map = gas.marcher.scattering()->maps().at(0);
    const Vec3D x(-3 + kBox - 2.25, 8.25, 9.25);
    EXPECT_NEAR(map.depth(x), Gas::kGasDensity * 1.5 * 0.7 * 2.25 * 0.08, 1e-6);
    EXPECT_NEAR(map.length(x), 0.01 * 2.25, 1e-6);
  }
}

TEST(MultipleScattering, LevelsHalveAndKeepAConstant) {
  WorkerPool pool(2);
  const auto make = [&](int cells) {
    auto grid = std::make_unique<ScalarGrid>(VecInt3D(cells, cells, cells + 1), Vec3D(cells * 0.5), 0.1f, kGridScratch,
                                             Vec3D());
    grid->Fill(3.0);
    return grid;
  };
  LightPyramid pyramid;
  for (const auto& [cells, levels] : {std::pair(4, 1u), {5, 2u}, {16, 3u}, {40, 5u}, {90, 5u}}) {
    ASSERT_TRUE(pyramid.Build(make(cells), 0.6, pool, nullptr));
    ASSERT_EQ(pyramid.levels(), levels) << cells;
    for (unsigned l = 0; l < levels; ++l) EXPECT_NEAR(pyramid.widthOf(l), 0.3 * (1 << l), 1e-12);
    for (const double width : {0.0, 0.1, 0.3, 0.7, 1.3, 9.0}) {
      EXPECT_NEAR(pyramid.Sample({1, 1.2, 0.9}, width), 3, 1e-12);
    }
  }
}

TEST(MultipleScattering, WidthsBlendTheirLevels) {
  WorkerPool pool(1);
  auto spot = std::make_unique<ScalarGrid>(VecInt3D(20, 20, 20), Vec3D(10), 0.1f, kGridScratch, Vec3D());
  spot->Fill(0.0);
  (*spot)(10, 10, 10) = 1000;
  LightPyramid pyramid;
  ASSERT_TRUE(pyramid.Build(std::move(spot), 0.6, pool, nullptr));
  ASSERT_EQ(pyramid.levels(), 4u);
  const Vec3D x(5.25, 5.25, 5.25);
  const double w = pyramid.widthOf(0), sharp = pyramid.Sample(x, 0), soft = pyramid.Sample(x, 0.9 * w);
  EXPECT_GT(sharp, 1.3 * soft);
  EXPECT_NEAR(pyramid.Sample(x, 0.45 * w), (sharp + soft) / 2, 1e-9 * sharp) << "one line below the first width";
  EXPECT_GT(soft, 5 * pyramid.Sample(x, w)) << "from there on between the next two levels";
  EXPECT_EQ(pyramid.Sample(x, 3 * w), pyramid.Sample(x, 30 * w)) << "the last level alone";
}

TEST(MultipleScattering, LightsAddUpAndCountByTheirStrength) {
  const auto glow = [](const std::vector<Light>& lights) {
    ScatteringGas gas;
    gas.lights = lights;
    gas.Build();
    return gas.Glow();
  };
  const Light front = SunAlong({1, 0, 0}), red = SunAlong({0, -1, 0}, {2, 1, 0.5});
  const Vec3D a = glow({front}), b = glow({red}), both = glow({front, red});
  EXPECT_GT(a.x, 0);
  EXPECT_GT(b.x, 0);
  EXPECT_NEAR(b.y, b.x / 2, 1e-12 * b.x) << "its own colour";
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(both[c], a[c] + b[c], 1e-9 * both[c]);
  const Vec3D twice = glow({SunAlong({0, -1, 0}, {4, 2, 1})});
  EXPECT_NEAR(twice.x, 2 * b.x, 1e-9 * b.x);
  EXPECT_EQ(glow({}), Vec3D());
}

TEST(MultipleScattering, DimsWithTheWayThroughTheGas) {
  // A ray across the light, near the lit side and far from it.
  ScatteringGas gas;
  gas.lights = {SunAlong({0, -1, 0})};
  gas.settings.scatter.lengthScale = 0.05;
  gas.Build();
  EXPECT_GT(gas.Glow(kBox - 2).x, 1.2 * gas.Glow(4).x);
  ScatteringGas edge;
  edge.settings.scatter.leastDepth = 1e9;
  edge.Build();
  EXPECT_EQ(edge.Glow(), Vec3D()) << "an edge that reaches through all of the gas";
}

}  // namespace
}  // namespace orlix
