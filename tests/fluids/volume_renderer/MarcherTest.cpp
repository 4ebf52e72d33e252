// The march against closed forms: slabs and spheres of smoke, flames, light maps.

#include <gtest/gtest.h>

#include <cmath>

#include "tests/fluids/volume_renderer/TestGas.h"
#include "tests/support/Cells.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

TEST(Marcher, AUniformSlabFollowsBeerAndLambert) {
  for (const double step : {0.3, 0.5, 1.7}) {
    Gas gas;
    gas.settings.steps.fine = step;
    gas.settings.absorption = {0.02, 0.05, 0.1};
    gas.Build();
    const MarchResult result = gas.Straight();
    for (int c = 0; c < 3; ++c) {
      const double expected = std::exp(-Gas::kGasDensity * gas.settings.absorption[c] * kBox);
      EXPECT_NEAR(result.transmittance[c], expected, 1e-12) << step;
    }
    EXPECT_GT(result.samples, 10u);
  }
}

TEST(Marcher, TheTrapezoidRuleDiffersByItsFirstStepOnly) {
  Gas gas;
  gas.settings.absorption = Vec3D(0.05);
  gas.settings.steps.trapezoid = true;
  gas.Build();
  const double w = std::exp(-Gas::kGasDensity * 0.05 * 0.5 * kCell), slab = std::exp(-Gas::kGasDensity * 0.05 * kBox);
  EXPECT_NEAR(gas.Straight().transmittance.x, slab / w * (1 + w) / 2, 1e-12);
}

TEST(Marcher, ASpheresTransmittanceAlongAHundredRays) {
  Gas gas;
  const double radius = 12;  // cells
  test::FillCells(*gas.density, [&](int i, int j, int k) {
    // A soft edge of two cells, whose mean lies at the radius.
    const double r = Length(Vec3D(i + 0.5, j + 0.5, k + 0.5) - Vec3D(kCells / 2.0));
    return std::clamp((radius + 1 - r) / 2, 0.0, 1.0);
  });
  gas.settings.steps.fine = 0.25;
  gas.settings.absorption = Vec3D(0.1);
  gas.Build();
  int checked = 0;
  for (int n = 0; n < 100; ++n) {
    const double b = (n % 10) * radius / 10.5, angle = n * 0.37;  // cells from the middle
    const Vec3D origin(-3, 2 + kBox / 2 + b * kCell * std::cos(angle), 1 + kBox / 2 + b * kCell * std::sin(angle));
    const double chord = 2 * std::sqrt(radius * radius - b * b) * kCell;
    const double t = gas.marcher.March({origin, {1, 0, 0}, kBox}, nullptr, 0).transmittance.x;
    EXPECT_NEAR(t, std::exp(-0.1 * chord), 0.015) << n;
    ++checked;
  }
  EXPECT_EQ(checked, 100);
}

TEST(Marcher, ScatteringFromADistantLightConvergesToItsIntegral) {
  // Light along the ray: no shadow. L = s / a (1 - exp(-D a l)) for white smoke and the colour 1.
  const double a = 0.04, s = 0.3;
  const double exact = s / a * (1 - std::exp(-Gas::kGasDensity * a * kBox));
  double before = 1e9;
  for (const double step : {2.0, 1.0, 0.5, 0.25}) {
    Gas gas;
    Light light;
    light.kind = LightKind::Distant;
    light.direction = {0, -1, 0};
    light.castsShadow = false;
    gas.lights = {light};
    gas.settings.steps.fine = step;
    gas.settings.absorption = Vec3D(a);
    gas.settings.scattering = Vec3D(s);
    gas.Build();
    const double error = std::fabs(gas.Straight().colour.x - exact);
    EXPECT_LT(error, before * 0.6) << "first order in the step";
    before = error;
  }
  EXPECT_LT(before, exact * 0.01);
}

TEST(Marcher, LightMapsAreShadedByTheGasItself) {
  Gas gas;
  Light light;
  light.kind = LightKind::Distant;
  light.direction = {-1, 0, 0};  // from the high side of x
  gas.lights = {light};
  gas.settings.shadowDensity = Vec3D(0.05);
  gas.settings.absorption = Vec3D(0.0);
  gas.settings.scattering = Vec3D(1.0);
  gas.Build();
  // A ray along y at depth x sees the light that came through (kBox - x) of gas.
  for (const double x : {2.25, 10.25, 17.25}) {
    const MarchResult r = gas.marcher.March({Vec3D(-3 + x, 2, 1 + kBox / 2), {0, 1, 0}, kBox}, nullptr, 0);
    const double through = std::exp(-Gas::kGasDensity * 0.05 * (kBox - x));
    EXPECT_NEAR(r.colour.x / (Gas::kGasDensity * kBox), through, 0.03 * through) << x;
  }
}

TEST(Marcher, GreyAbsorptionTakesTheBrightestComponent) {
  Gas gas;
  const GradientKnot red[] = {{0, {0.9, 0.3, 0.1}}};
  gas.gradients.smoke = Gradient(red);
  gas.settings.absorption = Vec3D(0.05);
  gas.settings.greyAbsorption = true;
  gas.Build();
  const double expected = std::exp(-Gas::kGasDensity * 0.05 * 0.9 * kBox);
  const MarchResult r = gas.Straight();
  EXPECT_NEAR(r.transmittance.z, expected, 1e-12);
  EXPECT_NEAR(r.transmittance.x, expected, 1e-12);
}

TEST(Marcher, FlamesShineByTheirTemperatureWithTheFallbackDensity) {
  Gas gas;
  gas.density.reset();
  gas.temperature = Gas::Make(0);
  gas.temperature->gridType = kGridTemperature;
  gas.temperature->valueScale = 5000;
  gas.temperature->Fill(1500);
  gas.settings.flameStrength = 2;
  gas.settings.fallbackDensity = 0.03;
  gas.settings.flameThreshold = 1000;
  gas.Build();
  const MarchResult r = gas.Straight();
  EXPECT_EQ(r.transmittance, Vec3D(1.0));
  EXPECT_NEAR(r.colour.x, 0.03 * 2 * kBox, 1e-9) << "red is the table's largest component: 1";
  EXPECT_LT(r.colour.z, r.colour.y);
  EXPECT_LT(r.colour.y, r.colour.x);
  gas.settings.flameThreshold = 2000;
  gas.Build();
  EXPECT_EQ(gas.Straight().colour, Vec3D()) << "below the threshold there is no flame";
}

TEST(Marcher, NothingThereIsClearAndDark) {
  Gas gas;
  gas.density->Fill(0);
  gas.Build();
  const MarchResult r = gas.Straight();
  EXPECT_EQ(r.colour, Vec3D());
  EXPECT_EQ(r.transmittance, Vec3D(1.0));
  EXPECT_EQ(gas.marcher.March({Vec3D(), {1, 0, 0}, 0}, nullptr, 0).transmittance, Vec3D(1.0));
  Gas none;
  none.density.reset();
  none.Build();
  EXPECT_TRUE(none.marcher.IsEmpty());
  EXPECT_EQ(none.Straight().transmittance, Vec3D(1.0));
}

TEST(Marcher, GasWithinACoarseStepOfTheEndDoesNotHoldTheRay) {
  Gas gas;
  test::FillCells(*gas.density, [](int i, int, int) { return i == kCells - 1; });
  gas.settings.steps = {0.4, 7, 0, false};
  gas.settings.absorption = Vec3D(0.5);
  gas.Build();
  for (double length = kBox - 4; length <= kBox; length += 0.07) {
    const MarchResult r = gas.marcher.March({Vec3D(-3, 12, 11), {1, 0, 0}, length}, nullptr, 0);
    EXPECT_LT(r.samples, 200u);
  }
}

TEST(Marcher, ASmallScaleKeepsTheBoxAndStaysClose) {
  Gas gas;
  gas.settings.copyScale = 0.5;
  gas.settings.absorption = Vec3D(0.05);
  gas.Build();
  EXPECT_EQ(gas.marcher.Space().dims, VecInt3D(kCells / 2, kCells / 2, kCells / 2));
  EXPECT_EQ(gas.marcher.Space().hostSize, Vec3D(kBox));
  EXPECT_NEAR(gas.Straight().transmittance.x, std::exp(-Gas::kGasDensity * 0.05 * kBox), 1e-9);
}

// Islands of gas, the border among them; rays from all sides, along the axes too.
TEST(EmptySpace, NoWalkPassesOverGas) {
  constexpr double kThreshold = 0.5;
  const auto grid =
      std::make_unique<ScalarGrid>(VecInt3D(21, 13, 30), Vec3D(42, 26, 60), 0.1f, kGridSmoke, Vec3D(-3, 2, 1));
  MersenneTwister random(5);
  grid->Fill(0.3);
  for (int n = 0; n < 14; ++n) {
    (*grid)(static_cast<int>(random.Uniform() * 21), static_cast<int>(random.Uniform() * 13), n < 3 ? 29 : n * 2) = 3;
  }
  WorkerPool pool(2);
  EmptySpace space;
  space.Build(*grid, kThreshold, pool);
  const HostSampler<double> sampler(*grid, grid->space, Vec3D(0.5));
  int gas = 0, passed = 0, missed = 0;
  for (int n = 0; n < 400; ++n) {
    MarchRay ray;
    Vec3D target;
    for (int axis = 0; axis < 3; ++axis) {
      ray.origin[axis] = grid->space.hostMin[axis] + grid->space.hostSize[axis] * random.Uniform();
      target[axis] = grid->space.hostMin[axis] + grid->space.hostSize[axis] * random.Uniform();
      if (n % 4 == 0 && axis != n / 4 % 3) target[axis] = ray.origin[axis];
    }
    ray.direction = Normalized(target - ray.origin);
    EmptySpaceWalk walk(space, ray);
    for (double t = 0; t < Length(target - ray.origin); t += 0.37) {
      const bool found = sampler(ray.origin + ray.direction * t) > kThreshold, empty = walk.IsEmptyAt(t);
      gas += found, passed += empty, missed += found && empty;
    }
  }
  EXPECT_EQ(missed, 0);
  EXPECT_GT(gas, 100);
  EXPECT_GT(passed, 5000);
}

TEST(MarcherThreads, MapsHaveTheSameBitsForAnyNumberOfWorkers) {
  const Vec3D colour = test::SameForAnyWorkers([](int workers) {
    Gas gas(workers);
    for (std::int64_t c = 0; c < gas.density->count; ++c) (*gas.density)[c] = std::fmod(c * 0.618033988, 1.0);
    Light light;
    light.position = {20, 30, 10};
    gas.lights = {light};
    gas.settings.shadowDensity = Vec3D(0.1);
    gas.settings.shadowSteps.jitter = 1;
    gas.settings.steps.jitter = 1;
    gas.settings.mapBlur = {1, 0.7};
    gas.settings.phase = 1;
    gas.Build();
    MersenneTwister random(3);
    return gas.marcher.March({Vec3D(-3, 9, 8), Normalized(Vec3D(1, 0.1, 0.2)), kBox}, &random, 0).colour;
  });
  EXPECT_GT(colour.x, 0);
}

TEST(Displacer, ShiftsBothPositionsAgainstTheVelocity) {
  std::array<std::unique_ptr<ScalarGrid>, 3> v;
  for (std::uint32_t c = 0; c < 3; ++c) {
    v[c] = std::make_unique<ScalarGrid>(VecInt3D(8, 8, 8) + ExtraCells(c), Vec3D(16), 0.2f, c, Vec3D());
    v[c]->Fill(c == 1 ? 3.0 : 0.0);
  }
  GasChannels channels;
  channels.velocity = {v[0].get(), v[1].get(), v[2].get()};
  GasSettings settings;
  settings.smokeShift = 0.05, settings.fireShift = 0.02;
  VelocityGridDisplacer displacer;
  displacer.Setup(channels, settings);
  Vec3D smoke(8, 8, 8), fire = smoke;
  displacer.DisplaceBoth(smoke, fire);
  const double hostPerMetre = 10;
  EXPECT_NEAR(smoke.y, 8 - 3 * hostPerMetre * 0.05, 1e-5);
  EXPECT_NEAR(fire.y, 8 - 3 * hostPerMetre * 0.02, 1e-5);
  settings.fireShift = 0;
  displacer.Setup(channels, settings);
  smoke = fire = {8, 8, 8};
  displacer.DisplaceBoth(smoke, fire);
  EXPECT_EQ(fire, smoke) << "one shift serves both unless they differ";
}

}  // namespace
}  // namespace orlix
