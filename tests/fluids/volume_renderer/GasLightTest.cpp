// Light in and out of a gas that isn't of one lamp: the sky's, that of flames on surfaces, units and presets.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/volume_renderer/GasGlow.h"
#include "fluids/volume_renderer/GasPresets.h"
#include "fluids/volume_renderer/SceneSampler.h"
#include "host/objects/BaseDocument.h"
#include "tests/fluids/volume_renderer/TestGas.h"

namespace orlix {
namespace {

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

}  // namespace
}  // namespace orlix
