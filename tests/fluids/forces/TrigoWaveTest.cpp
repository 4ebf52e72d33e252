// Waves: the tables against the true functions, each type and shape at chosen points, and the force that moves the gas.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "fluids/forces/Force_TrigoWave.h"
#include "fluids/forces/TrigTables.h"
#include "fluids/forces/TrigoWave.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTable = 2e-3;  // the tables' own error

void ExpectNear(const Vec3D& a, const Vec3D& b, double tolerance = kTable) {
  EXPECT_LT(Length(a - b), tolerance) << a.x << " " << a.y << " " << a.z << " instead of " << b.x << " " << b.y << " "
                                      << b.z;
}

TrigoWave Wave(int type, int shape, double travelled = 0) {
  TrigoWave wave;
  wave.type = static_cast<WaveType>(type), wave.shape = static_cast<WaveShape>(shape), wave.travelled = travelled;
  wave.amplitude = 2, wave.frequency = 0.25, wave.offsetVector = {0, 0, 2};
  return wave;
}

TEST(TrigTables, FollowTheFunctions) {
  for (double x = -20; x < 20; x += 0.0371) {
    EXPECT_NEAR(TableSin(x), std::sin(x), 8e-4);
    EXPECT_NEAR(TableCos(x), std::cos(x), 8e-4);
  }
  for (double c = -0.99; c < 1; c += 0.013) EXPECT_NEAR(TableAcos(c), std::acos(c), 5e-3);
  EXPECT_EQ(TableSin(0), 0);
  EXPECT_EQ(TableAcos(-1), kPi);
  EXPECT_EQ(TableAcos(-7), kPi);
  EXPECT_EQ(TableAcos(1), 0);
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double odd : {std::nan(""), kInfinity, -kInfinity, 1e300}) EXPECT_LE(std::abs(TableSin(odd)), 1);
}

TEST(TrigoWave, PlaneRunsAlongZ) {
  // A wave of 4 m: at z = -1 the phase is pi / 2, at 1 it is -pi / 2.
  ExpectNear(Wave(0, 0).At({7, 8, -1}), {0, 0, 2});
  ExpectNear(Wave(0, 0).At({7, 8, 1}), {0, 0, 0});
  ExpectNear(Wave(0, 1).At({7, 8, 1}), {0, 0, -2});
  ExpectNear(Wave(0, 4).At({7, 8, 1}), {0, 0, -2});
  ExpectNear(Wave(0, 2).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 3).At({0, 0, 1}), {0, -2, 0});
  ExpectNear(Wave(0, 7).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 5).At({0, 0, -0.0001}), {0, 1, 1}, 0.01);
  ExpectNear(Wave(0, 6).At({0, 0, 0}), {0, -1, 1});
  ExpectNear(Wave(0, 8).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 9).At({0, 0, 0}), {0, 2, 0});
  ExpectNear(Wave(0, 10).At({0, 0, -1}), {0, 0, 2});
  ExpectNear(Wave(0, 11).At({0, 0, -1}), {});
  ExpectNear(Wave(5, 0).At({0, 0, -1}), {});
  // After it has travelled a metre the crest stands a metre on.
  ExpectNear(Wave(0, 0, 1).At({0, 0, 0}), {0, 0, 2});
}

TEST(TrigoWave, SecondPlaneMovesAwayFromTheAxisToo) {
  ExpectNear(Wave(1, 2).At({3, 4, -1}), {1.2, 1.6, 0});
  ExpectNear(Wave(1, 2).At({0, 0, -1}), {});  // on the axis there is no outward
  ExpectNear(Wave(1, 4).At({3, 4, -1}), {0, 0, 2});
}

TEST(TrigoWave, RingsGoByTheDistanceFromTheAxis) {
  ExpectNear(Wave(2, 4).At({3, 0, 9}), {2, 0, 0});   // phase -3 pi / 2
  ExpectNear(Wave(2, 4).At({0, -1, 9}), {0, 2, 0});  // phase -pi / 2
  ExpectNear(Wave(2, 2).At({0, 3, 9}), {0, 0, 2});
  ExpectNear(Wave(2, 8, 0).At({}), {0, 0, 0});  // phase 0 divides nothing
  EXPECT_TRUE(IsFinite(Wave(2, 9).At({})));
}

TEST(TrigoWave, AroundTheAxisTheAngleCounts) {
  ExpectNear(Wave(3, 4).At({}), {});
  // Outward x: the side is y, the angle 0. Outward y: the side is -x, the angle a right one, times the amplitude.
  ExpectNear(Wave(3, 5).At({5, 0, 0}), {1, 0, 1});
  const double phase = -2 * kPi * 0.25 * (kPi / 2 * 2);
  ExpectNear(Wave(3, 4).At({0, 5, 0}), {0, 2 * std::sin(phase), 0}, 0.02);
}

TEST(TrigoWave, ASpiralStartsOneAmplitudeFromTheAxis) {
  for (int shape = 0; shape <= 10; ++shape) {
    ExpectNear(Wave(4, shape).At({1.99, 0, 3}), {});
    ExpectNear(Wave(4, shape).At({0, 202, 3}), {});  // 100 amplitudes on, it has ended
  }
  const double r = 1.5, p = 1;  // at x = 5
  const Vec3D t = Normalized(Vec3D(r * r, 4 * r * p, 0));
  const double angle = std::acos(t.y);
  const double phase = -2 * kPi * 0.25 * (2 * kPi - angle) * 2;
  const double factor = (100 - r) / (5 / r + 4 * r);
  ExpectNear(Wave(4, 0).At({5, 0, 3}), Vec3D(-t.y, t.x, 0) * ((std::sin(phase) + 1) / 2 * 2 * factor), 0.3);
}

TEST(TrigoWave, TheNinthShapeWeighsItsSecondVectorToo) {
  // Rings: a phase of pi, where the sine of the double frequency adds nothing; then a quarter further, all of it.
  const double phase = kPi / 2, travelled = phase / (2 * kPi * 0.25);
  ExpectNear(Wave(2, 9, travelled + 3).At({3, 0, 0}), Vec3D(2 * 3 / phase, 0, 0), 0.01);
  // Around the axis at right angles: outward alone, times the amplitude.
  const double quarter = kPi / 2 * 2;
  ExpectNear(Wave(3, 9, quarter + travelled).At({0, 5, 0}), {0, 2, 0}, 0.02);
  // A spiral's factor weighs it as it does the sine of shape 4.
  const Vec3D place{5, 0, 3};
  const double angle = 2 * kPi - std::acos(6 / std::sqrt(2.25 * 2.25 + 36));
  const Vec3D sine = Wave(4, 4, angle * 2 + travelled).At(place), ninth = Wave(4, 9, angle * 2 + travelled).At(place);
  EXPECT_GT(Length(ninth), 10);
  ExpectNear(ninth, sine, 0.5);
}

TEST(TrigoWave, AFrequencyBeyondReasonGivesNoWave) {
  for (const double frequency : {1001.0, -1001.0, static_cast<double>(INFINITY), static_cast<double>(NAN)}) {
    TrigoWave wave = Wave(0, 0);
    wave.frequency = frequency;
    EXPECT_EQ(wave.At({0, 0, -1}), Vec3D());
  }
}

TEST(TrigoWaveForce, MovesTheGasByTheWaveInTheObjectsFrame) {
  test::ForceRig rig("force_trigowave", {9, 8, 7});
  rig.object.Set(Force_TrigoWave::kAmplitudeId, 50.0);
  rig.object.Set(Force_TrigoWave::kSpeedId, 100.0);
  rig.object.Set(Force_TrigoWave::kWavelengthId, 400.0);
  rig.object.Set(Force_TrigoWave::kWaveTypeId, WaveType::Plane);
  rig.object.Set(Force_TrigoWave::kWaveShapeId, WaveShape::Sine);
  rig.object.Set(kRotationId, Vec3D(-90, 0, 0));  // its z is the world's y
  rig.Ready();
  rig.scene().info.time = 0.5;
  ASSERT_TRUE(rig.Run());
  double largest = 0;
  rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const double y = rig.Centre(i, j, k).y;
    const double expected = 0.5 * std::sin(2 * kPi * 0.25 * (0.5 - y)) * rig.dt();
    ExpectNear(f, {0, expected, 0}, 1e-4);
    largest = std::max(largest, std::abs(f.y));
  });
  EXPECT_GT(largest, 0.02);
  // With a time of its own it stands still.
  rig.object.Set(Force_TrigoWave::kUseTimeId, std::int64_t{0});
  rig.object.Set(Force_TrigoWave::kPhaseId, 0.25);
  rig.Run();
  const Vec3D before = rig.At(3, 3, 3);
  rig.scene().info.time = 9;
  rig.Run();
  EXPECT_EQ(rig.At(3, 3, 3), before);
}

}  // namespace
}  // namespace orlix
