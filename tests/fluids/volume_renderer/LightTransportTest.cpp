// The gas's light against a plain path tracer and closed forms: constant media that scatter evenly.
//
// An extinction of sigma and an albedo of w are the rows absorption = shadow_density = sigma, and scattering = sigma w
// / 4: a light of colour 1 has an irradiance of pi, of which an even phase function turns 1 / (4 pi) to the eye.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <numbers>

#include "fluids/volume_renderer/GasGlow.h"
#include "fluids/volume_renderer/GasPresets.h"
#include "fluids/volume_renderer/MultipleScattering.h"
#include "fluids/volume_renderer/SceneSampler.h"
#include "host/objects/BaseDocument.h"
#include "tests/fluids/volume_renderer/TestGas.h"

namespace orlix {
namespace {

constexpr double kAlbedos[] = {0.5, 0.9, 0.99};

// A cube of gas that is lit along x, as wide as it takes.
struct LitGas : Gas {
  LitGas(double sigma, double albedo) {
    density->Fill(1.0);
    settings.steps = {0.25, 1, 0, true}, settings.shadowSteps = {0.25, 1, 0, true};
    settings.mapResolution = 1;
    settings.absorption = settings.shadowDensity = Vec3D(sigma), settings.scattering = Vec3D(sigma * albedo / 4);
    Light light;
    light.kind = LightKind::Distant, light.direction = {1, 0, 0};
    lights = {light};
  }
};

TEST(LightTransport, OneScatteringInASlabIsItsClosedForm) {
  for (const double albedo : kAlbedos) {
    const double sigma = 0.15, depth = sigma * kBox;
    LitGas gas(sigma, albedo);
    gas.Build();
    const Vec3D middle = gas.marcher.Space().hostMin + Vec3D(0, kBox / 2, kBox / 2);
    for (const double mu : {1.0, 0.9}) {  // of the direction that it is seen from
      const Vec3D into(mu, std::sqrt(1 - mu * mu), 0);
      const double way = kBox / mu;
      const MarchRay ray{middle - Vec3D(0, into.y * way / 2, 0), into, way};
      const double exact = albedo / 4 / (1 + mu) * (1 - std::exp(-depth * (1 + 1 / mu)));
      EXPECT_NEAR(gas.marcher.March(ray, nullptr, 0).colour.x, exact, 0.03 * exact) << albedo << " " << mu;
    }
  }
}

// What a ball sends back, over all of its face: by the march, and with the light that scatters many times.
struct BallLight {
  double once = 0, many = 0;
};
BallLight LightOfBall(double sigma, double albedo, double strength) {
  LitGas gas(sigma, albedo);
  const double radius = 16;  // cells
  for (int k = 0; k < kCells; ++k) {
    for (int j = 0; j < kCells; ++j) {
      for (int i = 0; i < kCells; ++i) {
        const double r = Length(Vec3D(i + 0.5, j + 0.5, k + 0.5) - Vec3D(kCells / 2.0));
        (*gas.density)(i, j, k) = std::clamp(radius + 0.5 - r, 0.0, 1.0);
      }
    }
  }
  ScatteringSettings& s = gas.settings.scatter;
  s.enabled = s.ownSpread = s.ownStep = true;
  s.scattering = sigma * albedo, s.spread = 2, s.step = 0.5, s.mapScale = 0.5;
  gas.settings.scatter.ownAbsorption = true, s.absorption = sigma * (1 - albedo);
  s.lengthScale = 0.02, s.phaseScale = strength;
  gas.Build();
  BallLight sum;
  constexpr int kRays = 24;
  double area = 0;
  const Vec3D low = gas.marcher.Space().hostMin;
  for (int j = 0; j < kRays; ++j) {
    for (int i = 0; i < kRays; ++i) {
      const Vec3D at(0, (j + 0.5) / kRays * kBox, (i + 0.5) / kRays * kBox);
      if (std::hypot(at.y - kBox / 2, at.z - kBox / 2) > radius * kCell) continue;
      const MarchRay ray{low + at, {1, 0, 0}, kBox};
      sum.once += gas.marcher.March(ray, nullptr, 0).colour.x;
      sum.many += gas.marcher.Scattered(ray, nullptr, 0).x;
      ++area;
    }
  }
  return {sum.once / area, sum.many / area};
}

// The same by paths: radiance straight back, counted with each scattering's chance to go there and get out.
BallLight TracedBall(double sigma, double albedo, int paths) {
  constexpr double kRadius = 16 * kCell;
  const auto wayOut = [&](const Vec3D& x, const Vec3D& d) {
    const double b = Dot(x, d);
    return -b + std::sqrt(std::max(0.0, b * b - Dot(x, x) + kRadius * kRadius));
  };
  MersenneTwister random(11);
  BallLight sum;
  for (int n = 0; n < paths; ++n) {
    const double r = kRadius * std::sqrt(random.Uniform()), turn = 2 * std::numbers::pi * random.Uniform();
    Vec3D x(-std::sqrt(kRadius * kRadius - r * r), r * std::cos(turn), r * std::sin(turn)), d(1, 0, 0);
    for (int bounce = 1;; ++bounce) {
      const double way = -std::log(1 - random.Uniform()) / sigma;
      if (way >= wayOut(x, d)) break;
      x += d * way;
      // Of an irradiance of pi, to the eye: albedo / (4 pi) times what gets out.
      const double back = albedo / 4 * std::exp(-sigma * wayOut(x, {-1, 0, 0}));
      (bounce == 1 ? sum.once : sum.many) += back;
      if (random.Uniform() >= albedo) break;
      const double z = 1 - 2 * random.Uniform(), out = std::sqrt(1 - z * z),
                   angle = 2 * std::numbers::pi * random.Uniform();
      d = {z, out * std::cos(angle), out * std::sin(angle)};
    }
  }
  return {sum.once / paths, sum.many / paths};
}

// The first scattering is exact but for the ball's edge of a cell. The rest is an estimate with a strength to choose:
// one strength serves thick and thin balls of an albedo within the factor that docs/validation.md tells.
TEST(LightTransport, ABallAgainstPaths) {
  std::ofstream csv;
  if (const char* folder = std::getenv("ORLIX_VALIDATION")) csv.open(std::string(folder) + "/ball.csv");
  for (const double albedo : kAlbedos) {
    double least = 1e9, most = 0;
    for (const double sigma : {0.2, 0.5, 1.0}) {
      const BallLight ours = LightOfBall(sigma, albedo, 0.1), traced = TracedBall(sigma, albedo, 20000);
      EXPECT_NEAR(ours.once, traced.once, 0.1 * traced.once) << albedo << " " << sigma;
      EXPECT_GT(ours.many, 0);
      const double ratio = ours.many / traced.many;
      least = std::min(least, ratio), most = std::max(most, ratio);
      if (csv)
        csv << albedo << "," << sigma << "," << ours.once << "," << traced.once << "," << ours.many << ","
            << traced.many << "\n";
    }
    EXPECT_LT(most / least, 5) << albedo;
  }
}

TEST(LightTransport, NoLightIsMade) {
  for (const double albedo : kAlbedos) {
    // A gas that takes nothing away, in light of 1 from all sides, shows 1 at most.
    LitGas gas(0.4, albedo);
    gas.lights.clear();
    gas.settings.scattering = Vec3D(0.4 * albedo), gas.settings.ambient = Vec3D(1.0);
    gas.Build();
    const MarchResult result = gas.Straight();
    EXPECT_LE(result.colour.x + result.transmittance.x, 1.02);
    EXPECT_NEAR(result.colour.x / (1 - result.transmittance.x), albedo, 0.03 * albedo);
  }
}

// Light in and out of a gas that isn't of one lamp: the sky's, that of flames on surfaces, units and presets.

// A gas that only scatters, in light of 1 from everywhere, can't be told from what is behind it.
TEST(GasLight, AWhiteFurnaceStaysWhite) {
  Gas gas;
  gas.world.settings.skyColour = Vec3D(1.0), gas.world.settings.skyHorizon = Vec3D(1.0);
  gas.settings.skyLight = 1;
  gas.settings.absorption = gas.settings.scattering = {0.05, 0.2, 0.35};
  gas.settings.steps.fine = 0.25;
  gas.Build();
  const MarchResult result = gas.Straight();
  for (int c = 0; c < 3; ++c) {
    EXPECT_LT(result.transmittance[c], 0.5);
    EXPECT_NEAR(result.colour[c] + result.transmittance[c], 1, 0.02) << c;
  }
}

TEST(GasLight, TheSkyIsShadedByTheGas) {
  Gas gas;
  gas.world.settings.skyColour = Vec3D(1.0), gas.world.settings.skyHorizon = Vec3D(1.0);
  gas.settings.skyLight = 1;
  gas.settings.shadowDensity = Vec3D(0.2);
  gas.settings.absorption = Vec3D(0.0), gas.settings.scattering = Vec3D(1.0);
  gas.Build();
  int checked = 0;
  for (const double depth : {1.0, 3.0, kBox / 2 + 1}) {  // of cells of the sky's map
    const Vec3D x = gas.marcher.Space().hostMin + Vec3D(kBox / 2 + 1, depth, kBox / 2 + 1);
    double expected = 0;
    constexpr int kRays = 4000;
    for (int n = 0; n < kRays; ++n) {
      const double y = 1 - (2 * n + 1.0) / kRays, out = std::sqrt(1 - y * y), turn = 2.399963229728653 * n;
      double begin = 0, end = 1e6;
      const Vec3D direction(out * std::cos(turn), y, out * std::sin(turn));
      ASSERT_TRUE(ClipToBox(x, direction, gas.marcher.Space().hostMin, gas.marcher.Space().hostMax, 0, begin, end));
      expected += std::exp(-0.2 * Gas::kGasDensity * end) / kRays;
    }
    const Vec3D sky = gas.marcher.SkyLightAt(x);
    EXPECT_NEAR(sky.x, expected, 0.08 * expected) << depth;
    ++checked;
  }
  EXPECT_EQ(checked, 3);
}

TEST(GasLight, UnitsMakeSizesAlike) {
  // A gas of ten times the cells' width and a third of the density, with its look given by units.
  MarchResult results[2];
  for (int n = 0; n < 2; ++n) {
    Gas gas;
    gas.settings.unitLength = 0, gas.settings.unitDensity = n == 0 ? 1 : 1.0 / 3;
    gas.settings.absorption = Vec3D(0.4), gas.settings.ambient = Vec3D(1.0);
    if (n == 1) {
      gas.density = std::make_unique<ScalarGrid>(VecInt3D(kCells, kCells, kCells), Vec3D(10 * kBox), 1.0f, kGridSmoke,
                                                 Vec3D(-3, 2, 1));
      gas.density->valueScale = 1;
      gas.density->Fill(Gas::kGasDensity / 3);
    }
    gas.Build();
    const double side = n == 0 ? kBox : 10 * kBox;
    results[n] = gas.marcher.March({Vec3D(-3, 2 + side / 2, 1 + side / 2), {1, 0, 0}, side}, nullptr, 0);
  }
  EXPECT_NEAR(results[0].transmittance.x, std::exp(-0.4 * 10 * Gas::kGasDensity), 1e-9);
  EXPECT_NEAR(results[1].transmittance.x, results[0].transmittance.x, 1e-9);
  EXPECT_NEAR(results[1].colour.x, results[0].colour.x, 1e-9);
}

TEST(GasLight, PointsOfGlowHaveThePowerOfTheFlame) {
  Gas gas;
  gas.temperature = Gas::Make(0);
  gas.temperature->valueScale = 1000;
  // A hot corner, and one a quarter as dense.
  for (int k = 4; k < 8; ++k) {
    for (int j = 4; j < 8; ++j) {
      for (int i = 4; i < 8; ++i) (*gas.temperature)(i, j, k) = 900, (*gas.temperature)(i + 20, j, k) = 900;
    }
  }
  for (std::int64_t n = 0; n < gas.density->count; ++n) (*gas.density)[n] = n % kCells < 16 ? 0.8 : 0.2;
  const GradientKnot white[] = {{0, {1, 1, 1}}};
  gas.gradients.fire = Gradient(white), gas.settings.fireGradient = true;
  gas.settings.flameStrength = 2, gas.settings.flameThreshold = 1173.4;  // 899.9 and the offset
  gas.Build();
  GasGlow glow;
  glow.Build(gas.marcher, gas.pool);
  ASSERT_FALSE(glow.empty());
  const double cells = 64 * (0.8 + 0.2) * 2;
  EXPECT_NEAR(glow.intensity().x, cells * kCell * kCell * kCell, 1e-9);
  int left = 0;
  constexpr int kPoints = 1000;
  for (int n = 0; n < kPoints; ++n) {
    const GlowPoint point = glow.PointAt({(n + 0.5) / kPoints, 0.3, 0.7});
    EXPECT_NEAR(point.colour.x, glow.intensity().x / std::numbers::pi, 1e-9) << "each carries the whole power";
    const Vec3D cell = (point.place - Vec3D(-3, 2, 1)) / kCell;
    EXPECT_TRUE(cell.y >= 4 && cell.y <= 8 && cell.z >= 4 && cell.z <= 8);
    left += cell.x < 16;
  }
  EXPECT_EQ(left, kPoints * 4 / 5);
}

TEST(GasPresets, EachIsALookOfItsOwnAndKeepsLinks) {
  TypeRegistry types;
  types.Add(GasSettings::Type());
  BaseDocument document(types);
  BaseObject& gas = document.AddObject(GasSettings::Type(), nullptr);
  const GasPresets presets;
  std::vector<Vec3D> seen;
  for (std::size_t n = 0; n <= AllGasPresets().size(); ++n) {
    gas.Set(GasSettings::kPresetId, static_cast<std::int64_t>(n));
    gas.Set(GasSettings::kDensityId, LinkValue{77});
    presets.ApplyPreset(gas);
    EXPECT_EQ(gas.GetInt(GasSettings::kPresetId), 0);
    EXPECT_EQ(std::get<LinkValue>(gas.Get(GasSettings::kDensityId)).target, 77u);
    const GasSettings settings = GasSettings::Read(gas);
    EXPECT_EQ(settings.unitLength, n == 0 ? 1 : 0);
    for (const Vec3D& other : seen) EXPECT_NE(settings.absorption + settings.scattering * 7, other) << n;
    seen.push_back(settings.absorption + settings.scattering * 7);
  }
}

TEST(SampledColours, ValuesMapToTheGradientAndItsLimits) {
  EXPECT_EQ(MapToUnit(1, 3, 1), 0);
  EXPECT_EQ(MapToUnit(2, 3, 1), 0.5);
  EXPECT_EQ(MapToUnit(3, 3, 1), 1);
  EXPECT_EQ(MapToUnit(2, 1, 1), 1) << "equal ends";
  SampledColours colours;
  const GradientKnot ramp[] = {{0, {0, 0, 0}}, {1, {1, 0.5, 0}}};
  colours.gradient = Gradient(ramp);
  colours.least = 0.1, colours.most = 0.8;
  EXPECT_EQ(colours.Of(1, 0), Vec3D(0.8, 0.5, 0.1));
  EXPECT_EQ(colours.Of(-4, 0), Vec3D(0.1));
}

// Light that scatters many times: depths and lengths in a constant medium, the pyramid, what lights add up to.

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
