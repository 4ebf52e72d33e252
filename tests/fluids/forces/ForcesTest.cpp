// Each force against its closed form.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/constraints/GradientConstraint.h"
#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/forces/Force_Buoyancy.h"
#include "fluids/forces/Force_Curl.h"
#include "fluids/forces/Force_Gravity.h"
#include "fluids/forces/Force_TrigoWave.h"
#include "fluids/forces/Force_Vortex.h"
#include "fluids/helpers/Duration.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

using test::FillCells;
using test::ForceRig;

constexpr VecInt3D kCells{9, 8, 7};

void ExpectNear(const Vec3D& a, const Vec3D& b, double tolerance) {
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
  if (std::string(GetParam()) == "force_gravity") rig_.object.Set(kDurationId, ForceRig::LinkTo(duration));
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

}  // namespace
}  // namespace orlix
