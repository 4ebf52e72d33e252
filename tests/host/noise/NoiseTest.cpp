#include "host/noise/Noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "globals/Random.h"
#include "host/noise/LatticeNoise.h"

namespace orlix {
namespace {

// Mean over space, as the formulas give it for octaves of plain gradient noise and cells.
struct Case {
  NoiseType type;
  double meanLow, meanHigh;  // over space
  double largestSlope;       // per unit of the finest octave's wavelength
};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
  for (const NoiseTypeInfo& type : kNoiseTypes) {
    if (type.type == info.param.type) return type.key;
  }
  return "unknown";
}

class NoiseLaws : public testing::TestWithParam<Case> {};

Vec3D RandomPoint(MersenneTwister& random, double size) {
  const double x = random.Uniform(), y = random.Uniform();
  return Vec3D{x - 0.5, y - 0.5, random.Uniform() - 0.5} * size;
}

TEST_P(NoiseLaws, StaysInRangeAroundItsMean) {
  const Noise noise(7);
  MersenneTwister random(3);
  double low = 1, high = 0, sum = 0, squares = 0;
  constexpr int kSamples = 20000;
  for (int i = 0; i < kSamples; ++i) {
    const double v = noise.Sample(GetParam().type, RandomPoint(random, 1000), {.time = random.Uniform() * 100});
    low = std::min(low, v), high = std::max(high, v), sum += v, squares += v * v;
  }
  const double mean = sum / kSamples, deviation = std::sqrt(squares / kSamples - mean * mean);
  EXPECT_GE(low, 0);
  EXPECT_LE(high, 1);
  EXPECT_GT(mean, GetParam().meanLow);
  EXPECT_LT(mean, GetParam().meanHigh);
  EXPECT_GT(deviation, 0.05) << "hardly a pattern";
}

TEST_P(NoiseLaws, IsContinuousInSpaceAndTime) {
  const Noise noise(11);
  MersenneTwister random(5);
  constexpr double kStep = 1e-5;
  const double bound = GetParam().largestSlope * 4 * kStep;  // three octaves: the finest has a frequency of 4
  for (int i = 0; i < 4000; ++i) {
    // Every other point lies on a face of the lattice, where a wrong neighbour would show.
    Vec3D p = RandomPoint(random, i % 8 == 3 ? 1 : 50);
    if (i % 2) p.x = std::floor(p.x) - kStep / 2;
    const double time = i % 4 < 2 ? random.Uniform() * 8 : std::floor(random.Uniform() * 8) - kStep / 2;
    const double v = noise.Sample(GetParam().type, p, {.time = time});
    EXPECT_NEAR(v, noise.Sample(GetParam().type, p + Vec3D{kStep, 0, 0}, {.time = time}), bound);
    EXPECT_NEAR(v, noise.Sample(GetParam().type, p + Vec3D{0, kStep, kStep}, {.time = time}), bound);
    EXPECT_NEAR(v, noise.Sample(GetParam().type, p, {.time = time + kStep}), bound);
  }
}

TEST_P(NoiseLaws, RepeatsByItsSeedAndDiffersBetweenSeeds) {
  const Noise a(42), b(42), c(43);
  MersenneTwister random(9);
  int different = 0;
  double product = 0, squareA = 0, squareC = 0;
  for (int i = 0; i < 2000; ++i) {
    const Vec3D p = RandomPoint(random, 100);
    const double va = a.Sample(GetParam().type, p, {}), vc = c.Sample(GetParam().type, p, {});
    EXPECT_EQ(va, b.Sample(GetParam().type, p, {}));
    different += va != vc;
    const double mean = 0.5 * (GetParam().meanLow + GetParam().meanHigh);
    product += (va - mean) * (vc - mean), squareA += (va - mean) * (va - mean), squareC += (vc - mean) * (vc - mean);
  }
  EXPECT_GT(different, 1900);
  EXPECT_LT(std::abs(product) / std::sqrt(squareA * squareC), 0.2) << "seeds must not correlate";
}

TEST_P(NoiseLaws, ARowEqualsItsPoints) {
  const Noise noise(1);
  const Vec3D start{-3.25, 700.5, 0.125};
  const NoiseArguments arguments{.time = 2.25, .octaves = 4, .absolute = true, .detailAttenuation = 0.8};
  std::vector<double> row(75);  // more than two blocks
  // Across all axes; along x by parts of a cell to either side, and by more than one.
  for (const Vec3D& step : {Vec3D(0.37, 0, -0.011), Vec3D(0.09, 0, 0), Vec3D(-0.37, 0, 0), Vec3D(2.3, 0, 0)}) {
    noise.SampleRow(GetParam().type, start, step, arguments, row);
    for (std::size_t i = 0; i < row.size(); ++i) {
      EXPECT_EQ(row[i], noise.Sample(GetParam().type, start + step * static_cast<double>(i), arguments));
    }
  }
}

TEST_P(NoiseLaws, TimeRepeats) {
  const Noise noise(6);
  MersenneTwister random(2);
  double change = 0;
  for (int i = 0; i < 200; ++i) {
    const Vec3D p = RandomPoint(random, 30);
    const double time = std::floor(random.Uniform() * 4096) / 1024;  // exact after adding a period
    const double v = noise.Sample(GetParam().type, p, {.time = time, .timeRepeat = 3});
    EXPECT_EQ(v, noise.Sample(GetParam().type, p, {.time = time + 3, .timeRepeat = 3}));
    EXPECT_EQ(v, noise.Sample(GetParam().type, p, {.time = time - 6, .timeRepeat = 3}));
    change += std::abs(v - noise.Sample(GetParam().type, p, {.time = time + 1, .timeRepeat = 3}));
  }
  EXPECT_GT(change / 200, 0.02);
}

TEST_P(NoiseLaws, HostileArgumentsGiveAValue) {
  Noise noise(0xffffffffu);
  const double nan = std::numeric_limits<double>::quiet_NaN(), huge = std::numeric_limits<double>::max();
  noise.SetUpFractal(1000000, 1e300, -400);
  int checked = 0;
  for (const Vec3D& p : {Vec3D{nan, huge, -huge}, Vec3D{1e18, -1e9, 16777216}, Vec3D{INFINITY, 0, 5e-324}}) {
    for (const double time : {nan, huge, -huge, 16777215.5, -1e-300}) {
      for (const int octaves : {-5, 0, 1, 1000}) {
        const double v = noise.Sample(GetParam().type, p,
                                      {.time = time,
                                       .octaves = octaves,
                                       .sampleRadius = nan,
                                       .detailAttenuation = -huge,
                                       .timeRepeat = 2147483647});
        EXPECT_TRUE(v >= 0 && v <= 1) << v;
        ++checked;
      }
    }
  }
  EXPECT_EQ(checked, 60);
}

INSTANTIATE_TEST_SUITE_P(Types, NoiseLaws,
                         testing::Values(Case{NoiseType::Fbm, 0.49, 0.51, 3}, Case{NoiseType::Turbulence, 0.15, 0.3, 5},
                                         Case{NoiseType::Gradient, 0.49, 0.51, 3},
                                         Case{NoiseType::HybridMultifractal, 0.25, 0.45, 5},
                                         Case{NoiseType::RidgedMultifractal, 0.45, 0.7, 8},
                                         Case{NoiseType::Warped, 0.48, 0.52, 40},
                                         Case{NoiseType::Cellular, 0.4, 0.6, 3}),
                         NameOf);

TEST(Noise, EveryListedTypeHasItsLaws) {
  std::set<int> numbers;
  for (const NoiseTypeInfo& type : kNoiseTypes) {
    numbers.insert(static_cast<int>(type.type));
    EXPECT_EQ(NoiseTypeOf(static_cast<int>(type.type)), type.type);
  }
  EXPECT_EQ(numbers, (std::set<int>{3, 8, 13, 15, 16, 25, 30}));
  EXPECT_FALSE(IsNoiseType(99));
  EXPECT_EQ(NoiseTypeOf(99), NoiseType::Gradient);
}

TEST(Noise, GradientNoiseVanishesAtLatticePoints) {
  NoisePoints points;
  points.count = 3;
  for (int i = 0; i < 3; ++i) points.x[i] = 5 + i, points.y[i] = -2 * i, points.z[i] = 1000;
  double out[NoisePoints::kCapacity];
  GradientNoise({12, 4.0, 0}, points, 1.0, out);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], 0);
}

TEST(Noise, CellularIsTheDistanceToPointsInEveryCell) {
  // A feature lies where the distance is 0: by F1 <= 1 and |F1(p) - F1(q)| <= |p - q|.
  MersenneTwister random(8);
  NoisePoints points;
  points.count = 2;
  for (int i = 0; i < 3000; ++i) {
    const Vec3D p = RandomPoint(random, 20), q = p + RandomPoint(random, 0.5);
    points.x[0] = p.x, points.y[0] = p.y, points.z[0] = p.z;
    points.x[1] = q.x, points.y[1] = q.y, points.z[1] = q.z;
    double out[NoisePoints::kCapacity];
    CellularNoise({3, 0.4, 0}, points, 1.0, out);
    EXPECT_LE(std::abs(out[0] - out[1]), Length(p - q) * (1 + 1e-12));
  }
}

TEST(Noise, FractalTableHasMusgravesWeights) {
  // One octave of frequency 1; with a second, the sum of both over their weights.
  Noise one(4), two(4);
  one.SetUpFractal(1, 0.77, 1.0);
  two.SetUpFractal(2, 0.77, 1.0);
  NoisePoints point;
  point.count = 1;
  point.x[0] = 0.3, point.y[0] = 8.1, point.z[0] = -4.7;
  const Vec3D p{0.3, 8.1, -4.7};
  const double first = 2 * one.Sample(NoiseType::Fbm, p, {.octaves = 50}) - 1;
  const double both = 2 * two.Sample(NoiseType::Fbm, p, {.octaves = 50}) - 1;
  const double weight = 1 / 0.77, second = both * (1 + weight) - first;
  EXPECT_LE(std::abs(second), weight * (1 + 1e-12));
  // The second octave alone: the detail of the first one taken away would be the other way round.
  EXPECT_EQ(two.Sample(NoiseType::Fbm, p, {.octaves = 2, .detailAttenuation = 0}), (first + 1) / 2);
  // A set-up that makes no sense leaves the table.
  two.SetUpFractal(5, 0, 1);
  two.SetUpFractal(5, -2, 1);
  EXPECT_EQ(2 * two.Sample(NoiseType::Fbm, p, {.octaves = 50}) - 1, both);
}

TEST(Noise, ARidgeWeighsTheNextOctaveByTwiceItself) {
  Noise one(4), two(4);
  one.SetUpFractal(1, 0.77, 1.0);
  two.SetUpFractal(2, 0.77, 1.0);
  const double weight = 1 / 0.77;  // of the second octave
  MersenneTwister random(9);
  for (int i = 0; i < 100; ++i) {
    const Vec3D p = RandomPoint(random, 20);
    const auto sample = [&](const Noise& noise, NoiseType type) { return noise.Sample(type, p, {.octaves = 50}); };
    const double first = 2 * sample(one, NoiseType::Fbm) - 1;
    const double second = ((2 * sample(two, NoiseType::Fbm) - 1) * (1 + weight) - first) / weight;
    const double ridge = (1 - std::abs(first)) * (1 - std::abs(first));
    EXPECT_NEAR(sample(one, NoiseType::RidgedMultifractal), ridge, 1e-12);
    const double next = (1 - std::abs(second)) * (1 - std::abs(second)) * std::min(1.0, 2 * ridge);
    EXPECT_NEAR(sample(two, NoiseType::RidgedMultifractal), (ridge + weight * next) / (1 + weight), 1e-9);
  }
}

TEST(Noise, DetailAttenuationRemovesFineOctaves) {
  const Noise noise(4);
  for (const NoiseTypeInfo& type : kNoiseTypes) {
    const auto sample = [&](int octaves, double detail, double radius) {
      return noise.Sample(type.type, {0.37, 5.61, -2.2},
                          {.octaves = octaves, .sampleRadius = radius, .detailAttenuation = detail});
    };
    EXPECT_EQ(sample(6, 0, 1), sample(1, 1, 1)) << type.key;
    EXPECT_EQ(sample(6, 0.5, 2), sample(6, 0.25, 1)) << type.key;
    EXPECT_EQ(sample(6, 0.5, 0), sample(6, 1, 1)) << type.key;
    EXPECT_NE(sample(6, 0.5, 1), sample(6, 1, 1)) << type.key;
  }
}

}  // namespace
}  // namespace orlix
