// The march against closed forms: slabs and spheres of smoke, flames, light maps.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/constraints/Constraint.h"
#include "fluids/volume_renderer/BlackBodyTable.h"
#include "fluids/volume_renderer/Diffusor.h"
#include "fluids/volume_renderer/GasMaterial.h"
#include "fluids/volume_renderer/PhaseFunction.h"
#include "tests/fluids/volume_renderer/TestGas.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"
#include "tests/support/TestScene.h"
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

// Halves whatever it is asked of.
struct Half final : Constraint {
  using Constraint::Constraint;
  bool Evaluate(const Vec3D&, double& amount, const iBase*, std::int32_t) const override { return (amount *= 0.5) > 0; }
  std::unique_ptr<Constraint> Clone() const override { return nullptr; }
};

TEST(Marcher, LightMapsAreShadedByTheGasItself) {
  test::TestScene scene;
  scene.Step(0);
  Half half(scene.root, scene.scene());
  Gas gas;
  Light light;
  light.kind = LightKind::Distant;
  light.direction = {-1, 0, 0};  // from the high side of x
  gas.lights = {light};
  gas.settings.shadowDensity = Vec3D(0.05);
  gas.settings.absorption = Vec3D(0.0);
  gas.settings.scattering = Vec3D(1.0);
  for (const bool filtered : {false, true}) {
    if (filtered) gas.filters[kFilterShadow] = {&half};
    gas.Build();
    // A ray along y at depth x sees the light that came through (kBox - x) of gas.
    for (const double x : {2.25, 10.25, 17.25}) {
      const MarchResult r = gas.marcher.March({Vec3D(-3 + x, 2, 1 + kBox / 2), {0, 1, 0}, kBox}, nullptr, 0);
      const double through = std::exp(-Gas::kGasDensity * (filtered ? 0.025 : 0.05) * (kBox - x));
      EXPECT_NEAR(r.colour.x / (Gas::kGasDensity * kBox), through, 0.03 * through) << x << " " << filtered;
    }
  }
}

// Pictures are made after a frame, when the scene's nodes have released their links.
TEST(GasMaterial, AConstraintSeesTheVolumeThatItLinksTo) {
  test::GasScene s({24, 20, 20});
  BaseObject &smoke = s.Add("channel_scalar", "smoke"), &look = s.Add("gas", "Look");
  look.Set(GasSettings::kDensityId, s.LinkTo(smoke));
  BaseObject &ball = s.AddVolume("Ball", "sphere", s.Centre(), 0.2), &within = s.Add("constraint_volume", "Within");
  within.Set(1000, s.LinkTo(ball));
  look.Set(GasSettings::kDensityFiltersId, s.ListOf({&within}));
  s.Step(0);
  s.NodeOf<ChannelBase_Scalar>(smoke)->grid->Fill(1);
  GasMaterial material(look, s.hook);
  RenderWorld world;
  ASSERT_TRUE(material.RenderStart({&world, &s.pool}).ok());
  for (const double off : {0.0, 0.35}) {
    VolumeRay ray;
    ray.origin = s.Centre() + Vec3D(-5, off, 0), ray.direction = {1, 0, 0};
    VolumeSample sample;
    material.Volume(ray, sample);
    EXPECT_EQ(sample.transmittance.x < 1, off == 0) << off;
  }
  material.RenderEnd();
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

TEST(Marcher, NothingOfTheGasIsHoppedOver) {
  for (int first = 5; first < 13; ++first) {
    Gas gas;
    test::FillCells(*gas.density, [&](int i, int, int) { return i >= first ? Gas::kGasDensity : 0; });
    gas.settings.steps.coarse = 3;
    gas.settings.absorption = Vec3D(0.2);
    gas.Build();
    const double passed = -std::log(gas.Straight().transmittance.x) / (0.2 * Gas::kGasDensity);
    EXPECT_NEAR(passed, (kCells - first) * kCell, 0.55) << first << ": within a fine step";
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

// Phase functions, black bodies and the blur, against closed forms and published tables.

// The mean over the sphere: half the integral over the cosine.
double SphereMean(std::uint32_t index, double g, double second) {
  const auto phase = PhaseFunction::Make(index, 0.7f);
  double sum = 0;
  constexpr int kSteps = 200000;
  for (int n = 0; n < kSteps; ++n) sum += phase->Evaluate(-1 + 2 * (n + 0.5) / kSteps, g, second);
  return sum / kSteps;
}

TEST(PhaseFunction, SphereMeans) {
  for (const double g : {-0.5, 0.0, 0.6, 0.8}) {
    EXPECT_NEAR(SphereMean(1, g, 0), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(6, g, 0), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(7, g, -0.3), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(2, g, 0), 4 * g / 3, 1e-5) << g;
  }
  for (const std::uint32_t index : {0u, 3u, 4u, 5u}) EXPECT_NEAR(SphereMean(index, 0.6, 0), 1, 1e-4) << index;
}

TEST(PhaseFunction, KnownValuesAndRefusedIndices) {
  EXPECT_FALSE(PhaseFunction::Make(9, 0.7f));
  EXPECT_FALSE(PhaseFunction::Make(0xffffffffu, 0.7f));
  EXPECT_EQ(PhaseFunction::Make(5, 0.7f)->Evaluate(1, 0, 0), 17);
  EXPECT_EQ(PhaseFunction::Make(5, 0.7f)->Evaluate(-1, 0, 0), 0.5);
  EXPECT_EQ(PhaseFunction::Make(4, 0.7f)->Evaluate(1, 0, 0), 5);
  EXPECT_EQ(PhaseFunction::Make(2, 0.7f)->Evaluate(0.3, 0, 0), 0);
  EXPECT_DOUBLE_EQ(PhaseFunction::Make(7, 0.2f)->Evaluate(0.4, 0.5, 0.5),
                   PhaseFunction::Make(1, 0)->Evaluate(0.4, 0.5, 0));
  EXPECT_DOUBLE_EQ(PhaseFunction::Make(8, 0)->Evaluate(0.5, 0.0, 0), 1.5 * 1.125);
  EXPECT_TRUE(std::isnan(PhaseFunction::Make(8, 0)->Evaluate(0.5, 1.0, 0)));
  const auto mie = PhaseFunction::Make(3, 0);
  for (const double g : {-1.0, -0.4, 0.0, 0.5, 1.0}) {
    double ahead = mie->Evaluate(1, g, 0);
    for (double c = -1; c <= 1; c += 0.05) {
      const double v = mie->Evaluate(c, g, 0);
      EXPECT_TRUE(std::isfinite(v) && v >= 0 && v <= ahead + 1e-12) << g << " " << c;
    }
  }
}

TEST(BlackBody, ChromaticitiesOfThePublishedLocus) {
  struct Row {
    double kelvin, x, y;
  };
  // Planckian locus (Wyszecki and Stiles 1982); the constants here differ in the fourth digit.
  constexpr Row kRows[] = {{2000, 0.5267, 0.4133}, {2856, 0.4475, 0.4074}, {4000, 0.3805, 0.3768},
                           {5000, 0.3451, 0.3516}, {6500, 0.3135, 0.3237}, {10000, 0.2806, 0.2883}};
  for (const Row& row : kRows) {
    const Vec3D v = BlackBodySpectrum(row.kelvin);
    EXPECT_NEAR(v.x / (v.x + v.y + v.z), row.x, 6e-4) << row.kelvin;
    EXPECT_NEAR(v.y / (v.x + v.y + v.z), row.y, 6e-4) << row.kelvin;
  }
}

TEST(BlackBody, HottestIsWhiteColdIsRedAndThenBlack) {
  for (int system = 0; system < 7; ++system) {
    BlackBodyTable table;
    table.lowest = 0, table.highest = 6500;
    table.Build(1, Vec3D(1.0), system);
    ASSERT_TRUE(table.built());
    const Vec3D hot = table.Sample(9000), warm = table.Sample(1500), cold = table.Sample(0);
    // The adaptation leads to equal energy, which is the white of the CIE system only.
    const double tolerance = system == 4 || system == 6 ? 2e-3 : 0.15;
    EXPECT_NEAR(hot.x, 1, tolerance) << system;
    EXPECT_NEAR(hot.y, 1, tolerance) << system;
    EXPECT_NEAR(hot.z, 1, tolerance) << system;
    EXPECT_EQ(warm.x, 1);
    EXPECT_GT(warm.x, warm.y);
    EXPECT_GE(warm.y, warm.z);
    EXPECT_EQ(cold, Vec3D()) << "nothing to divide by: black, not NaN";
    for (double k = 0; k <= 6600; k += 7) ASSERT_TRUE(IsFinite(table.Sample(k)));
  }
}

TEST(BlackBody, DegenerateTables) {
  BlackBodyTable table;
  EXPECT_EQ(table.Sample(1000), Vec3D());
  table.lowest = table.highest = 3000;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_EQ(table.rows(), 1u);
  EXPECT_EQ(table.Sample(5), table.Sample(50000));
  table.step = 0;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_FALSE(table.built());
  table.step = 1e-300, table.highest = 1e300;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_LE(table.rows(), 1000000u);
}

TEST(BlackBody, TransferCurveJoins) {
  EXPECT_NEAR(Rec709Transfer(0.018), Rec709Transfer(0.018 - 1e-12), 1e-9);
  EXPECT_DOUBLE_EQ(Rec709Transfer(0.01), 0.01 * 4.513774668618915);
  EXPECT_DOUBLE_EQ(Rec709Transfer(1), 1);
}

TEST(Blur, AConstantStaysAlsoAtBorders) {
  WorkerPool pool(3);
  ScalarGrid grid({9, 8, 7}, {9, 8, 7}, 1, kGridSmoke, {});
  grid.Fill(0.6);
  ASSERT_TRUE(Blur(pool, nullptr, grid, grid, 1.5, 3, 0.1, 1));
  for (std::int64_t c = 0; c < grid.count; ++c) EXPECT_NEAR(grid[c], 0.6, 1e-14);
}

TEST(Blur, APointBecomesTheProductOfThreeGaussians) {
  WorkerPool pool(2);
  ScalarGrid grid({15, 15, 15}, {15, 15, 15}, 1, kGridSmoke, {});
  grid.Fill(0);
  grid(7, 7, 7) = 1;
  ScalarGrid out = grid;
  ASSERT_TRUE(Blur(pool, nullptr, grid, out, 1.2, 1, 0, 1));
  double weights[7], total = 0, sum = 0;
  for (int d = -3; d <= 3; ++d) total += weights[d + 3] = std::exp(-d * d / (1.2 * 1.2));
  for (const int d : {-2, 0, 3}) {
    EXPECT_NEAR(out(7 + d, 7, 8), weights[d + 3] * weights[3] * weights[4] / (total * total * total), 1e-15);
  }
  for (std::int64_t c = 0; c < out.count; ++c) sum += out[c];
  EXPECT_NEAR(sum, 1, 1e-12);
  ScalarGrid same = grid;
  ASSERT_TRUE(Blur(pool, nullptr, grid, same, 0.3, 4, 0, 1));
  EXPECT_TRUE(std::equal(same.data, same.data + same.count, grid.data)) << "a kernel of one cell";
  BaseThread thread;
  thread.Break();
  EXPECT_FALSE(Blur(pool, &thread, grid, out, 1.2, 1, 0, 1));
}

}  // namespace
}  // namespace orlix
