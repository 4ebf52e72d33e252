// Each force against its closed form.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/constraints/GradientConstraint.h"
#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/forces/Force_Buoyancy.h"
#include "fluids/forces/Force_Curl.h"
#include "fluids/forces/Force_Gravity.h"
#include "fluids/forces/Force_TrigoWave.h"
#include "fluids/forces/Force_Vortex.h"
#include "fluids/forces/TrigTables.h"
#include "fluids/forces/TrigoWave.h"
#include "fluids/helpers/Duration.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

using test::FillCells;
using test::ForceRig;

constexpr VecInt3D kCells{9, 8, 7};

constexpr double kTable = 2e-3;  // the tables' own error

void ExpectNear(const Vec3D& a, const Vec3D& b, double tolerance = kTable) {
  EXPECT_LT(Length(a - b), tolerance) << "(" << a.x << " " << a.y << " " << a.z << ") instead of (" << b.x << " " << b.y
                                      << " " << b.z << ")";
}

class EveryForce : public testing::TestWithParam<const char*> {
 protected:
  EveryForce() : rig_(GetParam(), {12, 11, 10}) {}
  // Links and contents under which every force acts.
  static void Connect(ForceRig& rig) {
    BaseObject &heat = rig.Add("channel_scalar", "heat"), &noise = rig.Add("constraint_noise", "noise");
    noise.Set(NoiseConstraint::kFeatureSizeId, 60.0);
    rig.object.Set(kPositionId, Vec3D(30, 20, 10));
    if (std::string(GetParam()) == "force_buoyancy")
      rig.object.Set(Force_Buoyancy::kTemperatureId, ForceRig::LinkTo(heat));
    if (std::string(GetParam()) == "force_trigowave") rig.object.Set(Force_TrigoWave::kAmplitudeId, 30.0);
    rig.object.Set(kConstraintsId, ForceRig::ListOf({&noise}));
    rig.Ready();
    FillCells(rig.GridOf(heat), [](int i, int j, int k) { return 10.0 + i + 2 * j + 3 * k; });
    rig.SetVelocity([](const Vec3D& p) { return Vec3D(std::sin(2 * p.y), std::cos(3 * p.z), std::sin(p.x * p.y)); });
  }
  double Sum() const {
    double sum = 0;
    rig_.ForEach([&](int, int, int, const Vec3D& f) { sum += std::abs(f.x) + std::abs(f.y) + std::abs(f.z); });
    return sum;
  }
  ForceRig rig_;
};

TEST_P(EveryForce, ActsOnlyWhileItsDurationSaysSo) {
  BaseObject& duration = rig_.Add("duration", "when");
  duration.Set(Duration::kStartId, 2.0);  // s, no end
  for (const Parameter& row : rig_.object.type().parameters) {
    if (std::string(row.key) == "force_duration") rig_.object.Set(row.id, ForceRig::LinkTo(duration));
  }
  if (std::string(GetParam()) == "force_gravity") {
    // Settings without a duration leave it its own.
    rig_.object.Set(Force_Gravity::kSettingsId, ForceRig::LinkTo(rig_.Add("emission_setting", "settings")));
    rig_.object.Set(kDurationId, ForceRig::LinkTo(duration));
  }
  Connect(rig_);
  rig_.scene().info.time = 1.9;
  EXPECT_FALSE(rig_.Run());
  EXPECT_EQ(Sum(), 0);
  rig_.scene().info.time = 2.0;
  EXPECT_TRUE(rig_.Run());
  const double full = Sum();
  EXPECT_GT(full, 0);
  // In a window of one second the strength falls to a quarter after three quarters.
  duration.Set(Duration::kLengthId, 1.0);
  rig_.scene().info.time = 2.75;
  EXPECT_TRUE(rig_.Run());
  // A wave moves on meanwhile.
  const double expected = std::string(GetParam()) == "force_trigowave" ? Sum() : full / 4;
  EXPECT_NEAR(Sum(), expected, full * 1e-12);
}

TEST_P(EveryForce, ConstraintsWeighIt) {
  Connect(rig_);
  rig_.Run();
  const double full = Sum();
  // Curl noise goes by the direction of its field alone, which a factor of the potentials doesn't turn.
  BaseObject& noise = *rig_.document.FindByPath("noise");
  noise.Set(Constraint::kIntensityId, 0.5);
  rig_.Run();
  EXPECT_NEAR(Sum(), std::string(GetParam()) == "force_curl" ? full : full / 2, full * 1e-9);
  noise.Set(Constraint::kIntensityId, 0.0);
  rig_.Run();
  EXPECT_EQ(Sum(), 0);
}

// What a force does to particles at the centres of cells is what it does to the cells.
TEST_P(EveryForce, PushesParticlesAsCells) {
  Connect(rig_);
  // Gravity announces no particles, but bodies ask it at places of theirs.
  const bool announced = rig_.Get<Force>(rig_.object).HasRetrieveType(RETRIEVE_PARTICLE) ||
                         std::string_view(GetParam()) == "force_gravity";
  ASSERT_TRUE(rig_.Run());
  ParticleList list;
  std::vector<Vec3D> places, expected;
  rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
    places.push_back(rig_.Centre(i, j, k)), expected.push_back(f * 0.5);
    list.Append(1, {});
  });
  std::vector<double> weights(places.size(), 0.5);
  weights[7] = 0, expected[7] = {};
  std::vector<Vec3D> forces(places.size());
  auto& node = rig_.Get<Force>(rig_.object);
  node.PrepareParticles(nullptr);
  EXPECT_EQ(node.IsActive(), announced);
  node.ProcessParticles(
      {&list, 0, static_cast<std::int32_t>(places.size()), 2, places.data(), weights.data(), forces.data()});
  node.Finish();
  if (!announced) return;
  double largest = 0;
  for (std::size_t n = 0; n < places.size(); ++n) {
    ExpectNear(forces[n], expected[n], 1e-9);
    largest = std::max(largest, Length(expected[n]));
  }
  EXPECT_GT(largest, 1e-3);
}

const auto kTypes = testing::Values("force_gravity", "force_buoyancy", "force_swirling", "force_trigowave",
                                    "force_vortex", "force_curl");
const auto kNameOf = [](const auto& type) { return std::string(type.param).substr(6); };
INSTANTIATE_TEST_SUITE_P(Types, EveryForce, kTypes, kNameOf);

TEST(Gravity, AddsTheAccelerationTurnedByItsObject) {
  ForceRig rig("force_gravity", kCells);
  rig.object.Set(Force_Gravity::kDirectionId, Vec3D(0, -9.81, 1));
  rig.object.Set(Force_Gravity::kStrengthId, 2.0);
  rig.object.Set(kRotationId, Vec3D(0, 0, 90));
  rig.object.Set(kScaleId, Vec3D(3, 2, 0.5));
  rig.Ready();
  ASSERT_TRUE(rig.Run());
  const int cells =
      rig.ForEach([&](int, int, int, const Vec3D& f) { ExpectNear(f, Vec3D(9.81, 0, 1) * (2 * rig.dt()), 1e-12); });
  EXPECT_EQ(cells, 7 * 6 * 5);
}

TEST(Gravity, FollowsAnAlignmentAsAUnitVector) {
  ForceRig rig("force_gravity", kCells);
  BaseObject &alignment = rig.Add("alignment", "a"), &centre = rig.Add("null", "n");
  alignment.Set(AlignmentVector3D::kModeId, AlignmentVector3D::FromCentre);
  alignment.Set(AlignmentVector3D::kReferenceId, ForceRig::LinkTo(centre));
  rig.object.Set(Force_Gravity::kAlignmentId, ForceRig::LinkTo(alignment));
  rig.object.Set(Force_Gravity::kStrengthId, 3.0);
  rig.Ready();
  ASSERT_TRUE(rig.Run());
  rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    ExpectNear(f, Normalized(rig.Centre(i, j, k)) * (3 * rig.dt()), 1e-12);
  });
}

class Buoyancy : public testing::Test {
 protected:
  Buoyancy() {
    heat_.Set(ScalarGridChannel::kValueMinId, 20.0);
    rig_.object.Set(Force_Buoyancy::kTemperatureId, ForceRig::LinkTo(heat_));
    rig_.object.Set(Force_Buoyancy::kDirectionId, Vec3D(0, 2, 0));
    rig_.object.Set(Force_Buoyancy::kTemperatureFactorId, 0.01);
    rig_.object.Set(Force_Buoyancy::kDensityFactorId, -0.3);
  }
  ForceRig rig_{"force_buoyancy", kCells};
  BaseObject &heat_ = rig_.Add("channel_scalar", "heat"), &smoke_ = rig_.Add("channel_scalar", "smoke"),
             &fuel_ = rig_.Add("channel_scalar", "fuel");
};

TEST_F(Buoyancy, LiftsByTemperatureAlone) {
  rig_.Ready();
  FillCells(rig_.GridOf(heat_), [](int i, int, int) { return 20.0 + i - 3; });
  ASSERT_TRUE(rig_.Run());
  rig_.ForEach([&](int i, int, int, const Vec3D& f) {
    // Below the channel's minimum there is nothing to lift.
    const double s = i > 3 ? (i - 3) * 0.01 : 0;
    ExpectNear(f, Vec3D(0, 2, 0) * (s * rig_.dt() * 0.5), 1e-15);
  });
}

TEST_F(Buoyancy, WeighsDensityAndFuel) {
  rig_.object.Set(Force_Buoyancy::kDensityId, ForceRig::LinkTo(smoke_));
  rig_.object.Set(Force_Buoyancy::kFuelId, ForceRig::LinkTo(fuel_));
  rig_.Ready();
  FillCells(rig_.GridOf(heat_), [](int i, int, int) { return 20.0 + (i % 2) * 5; });
  FillCells(rig_.GridOf(smoke_), [](int, int j, int) { return j % 3 == 0 ? 0.0 : 0.5 * j; });
  FillCells(rig_.GridOf(fuel_), [](int, int, int k) { return 0.1 * k; });
  ASSERT_TRUE(rig_.Run());
  int still = 0;
  rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const double t = (i % 2) * 5, d = j % 3 == 0 ? 0 : 0.5 * j;
    const double s = t > 0 || d > 0 ? t * 0.01 - (d + 0.1 * k) * 0.3 : 0;
    ExpectNear(f, Vec3D(0, 2, 0) * (s * rig_.dt() * 0.5), 1e-15);
    // At the minimum and without density, fuel alone weighs nothing.
    still += s == 0;
  });
  EXPECT_GT(still, 10);
}

TEST_F(Buoyancy, SamplesAChannelOfAnotherLattice) {
  rig_.Ready();
  auto& channel = rig_.Get<ChannelBase_Scalar>(heat_);
  // Half the spacing, and moved: linear values stay exact.
  channel.grid = std::make_unique<ScalarGrid>(VecInt3D(24, 24, 24), Vec3D(300), 0.125f, kGridTemperature, Vec3D(-12.5));
  channel.grid->valueOffset = 0;
  ScalarGrid& grid = *channel.grid;
  FillCells(grid, [&](int i, int j, int k) {
    const Vec3D p = test::SamplePlace(grid, i, j, k);
    return 100 + p.x + 10 * p.y - 5 * p.z;
  });
  ASSERT_TRUE(rig_.Run());
  rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const Vec3D p = rig_.Centre(i, j, k);
    ExpectNear(f, Vec3D(0, (100 + p.x + 10 * p.y - 5 * p.z) * 0.01 * rig_.dt(), 0), 1e-12);
  });
}

TEST(Vortex, TurnsAboutItsAxisAndRestsOnIt) {
  ForceRig rig("force_vortex", kCells);
  // The axis runs through the centres of the cells i = 4, k = 3, along y.
  rig.object.Set(kPositionId, Vec3D(4.5, 0, 3.5) * 25.0);
  rig.object.Set(kRotationId, Vec3D(-90, 0, 0));
  rig.object.Set(Force_Vortex::kStrengthId, 10.0);
  rig.Ready();
  ASSERT_TRUE(rig.Run());
  const Vec3D axis = rig.object.GlobalMatrix().v3;
  ExpectNear(axis, {0, 1, 0}, 1e-12);
  rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const Vec3D r = (rig.Centre(i, j, k) - Vec3D(4.5, 0, 3.5) * 0.25) * 100.0;  // host units
    const double scale = 10 * 0.25 * 0.010005072145190424 * rig.dt();
    ExpectNear(f, Cross(axis, r) * scale, 1e-12);
    if (i == 4 && k == 3) ExpectNear(f, {}, 1e-15);
  });
}

TEST(Curl, WithoutConstraintsOrInAConstantFieldNothingMoves) {
  ForceRig rig("force_curl", kCells);
  rig.Ready();
  EXPECT_FALSE(rig.Run());
  BaseObject& constraint = rig.Add("constraint_gradient", "c");
  static constexpr GradientKnot kWhite[] = {{0, {1, 1, 1}}};
  constraint.Set(GradientConstraint::kGradientId, std::make_shared<const Gradient>(kWhite));
  constraint.Set(Constraint::kIntensityId, 0.3);
  rig.object.Set(kConstraintsId, ForceRig::ListOf({&constraint}));
  EXPECT_TRUE(rig.Run());
  const int cells = rig.ForEach([&](int, int, int, const Vec3D& f) { EXPECT_EQ(f, Vec3D()); });
  EXPECT_EQ(cells, 7 * 6 * 5);
}

TEST(Curl, IsTheDirectionOfTheCurlOfThePotentials) {
  ForceRig rig("force_curl", kCells);
  BaseObject& noise = rig.Add("constraint_noise", "n");
  noise.Set(NoiseConstraint::kFeatureSizeId, 50.0);
  rig.object.Set(Force_Curl::kStrengthId, 2.0);
  rig.object.Set(Force_Curl::kStepId, 0.5);
  rig.object.Set(kConstraintsId, ForceRig::ListOf({&noise}));
  rig.Ready();
  ASSERT_TRUE(rig.Run());
  auto& constraint = rig.Get<Constraint>(noise);
  constraint.Prepare(nullptr);
  const double step = 0.5 * 0.25, h = 0.5 / step;
  const double offsets[3] = {9.3143, 2.234, 4.5432};  // m
  const auto potential = [&](int which, Vec3D p) {
    double amount = 1;
    constraint.Evaluate(p + Vec3D(offsets[which]), amount, nullptr, 0);
    return amount;
  };
  const auto slope = [&](int which, const Vec3D& p, int axis) {
    Vec3D d;
    d[axis] = step;
    return potential(which, p + d) * h - potential(which, p - d) * h;
  };
  int moving = 0;
  rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const Vec3D p = rig.Centre(i, j, k);
    const Vec3D curl(slope(2, p, 1) - slope(1, p, 2), slope(0, p, 2) - slope(2, p, 0), slope(1, p, 0) - slope(0, p, 1));
    ExpectNear(f, Normalized(curl) * (2 * 0.25 * rig.dt()), 1e-9);
    moving += Length(f) > 0;
  });
  EXPECT_EQ(moving, 7 * 6 * 5);
}

// Waves: the tables against the true functions, each type and shape at chosen points, and the force that moves the gas.

constexpr double kPi = std::numbers::pi;

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

TEST(TrigoWave, PlanesRingsAndTurnsHaveTheirShapes) {
  // A wave of 4 m: at z = -1 the phase is pi / 2, at 1 it is -pi / 2.
  ExpectNear(Wave(0, 0).At({7, 8, -1}), {0, 0, 2});
  ExpectNear(Wave(0, 0).At({7, 8, 1}), {0, 0, 0});
  ExpectNear(Wave(0, 1).At({7, 8, 1}), {0, 0, -2});
  ExpectNear(Wave(0, 4).At({7, 8, 1}), {0, 0, -2});
  ExpectNear(Wave(0, 2).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 3).At({0, 0, 1}), {0, -2, 0});
  ExpectNear(Wave(0, 7).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 5).At({0, 0, -0.0001}), {0, 1, 1}, 0.01);
  ExpectNear(Wave(0, 5).At({0, 0, -1}), {0, 0, 2});
  ExpectNear(Wave(0, 6).At({0, 0, 0}), {0, -1, 1});
  ExpectNear(Wave(0, 8).At({0, 0, -1}), {0, 2, 0});
  ExpectNear(Wave(0, 9).At({0, 0, 0}), {0, 2, 0});
  ExpectNear(Wave(0, 10).At({0, 0, -1}), {0, 0, 2});
  ExpectNear(Wave(0, 11).At({0, 0, -1}), {});
  ExpectNear(Wave(5, 0).At({0, 0, -1}), {});
  // After it has travelled a metre the crest stands a metre on.
  ExpectNear(Wave(0, 0, 1).At({0, 0, 0}), {0, 0, 2});
  // The second plane moves away from the axis, too.
  ExpectNear(Wave(1, 2).At({3, 4, -1}), {1.2, 1.6, 0});
  ExpectNear(Wave(1, 2).At({0, 0, -1}), {});  // on the axis there is no outward
  ExpectNear(Wave(1, 4).At({3, 4, -1}), {0, 0, 2});
  // Rings go by the distance from the axis.
  ExpectNear(Wave(2, 4).At({3, 0, 9}), {2, 0, 0});   // phase -3 pi / 2
  ExpectNear(Wave(2, 4).At({0, -1, 9}), {0, 2, 0});  // phase -pi / 2
  ExpectNear(Wave(2, 2).At({0, 3, 9}), {0, 0, 2});
  ExpectNear(Wave(2, 8, 0).At({}), {0, 0, 0});  // phase 0 divides nothing
  EXPECT_TRUE(IsFinite(Wave(2, 9).At({})));
  // Around the axis the angle counts.
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
  ForceRig rig("force_trigowave", kCells);
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
  // Across axes of no scale nothing changes.
  rig.object.Set(Force_TrigoWave::kWaveTypeId, WaveType::Rings);
  rig.object.Set(Force_TrigoWave::kWaveScaleId, Vec3D(0, 0, 1));
  rig.Run();
  rig.ForEach([&](int, int, int, const Vec3D& f) { ExpectNear(f, rig.At(3, 3, 3), 1e-12); });
}

}  // namespace
}  // namespace orlix
