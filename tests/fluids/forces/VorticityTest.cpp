// Vorticity: linear fields are exact, and a vortex is kept up.

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/forces/Force_Swirling.h"
#include "fluids/forces/VorticityKernels.h"
#include "globals/Random.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

using test::ForceRig;

constexpr VecInt3D kCells{11, 9, 10};
constexpr double kConfinement = 0.8 * 0.2;  // of the default strength

MacView ViewOf(const ForceRig& rig) { return {*rig.velocity.grids[0], *rig.velocity.grids[1], *rig.velocity.grids[2]}; }

class Vorticity : public testing::Test {
 protected:
  Vorticity() { rig_.Ready(); }
  ForceRig rig_{"force_swirling", kCells};
};

TEST_F(Vorticity, IsExactOnLinearFields) {
  const Vec3D omega(0.3, -1.2, 2.5);
  rig_.SetVelocity([&](const Vec3D& p) { return Cross(omega, p) + Vec3D(5, 6, 7); });
  double x[kCells.x], y[kCells.x], z[kCells.x];
  int checked = 0;
  for (int k = 1; k < kCells.z - 1; ++k) {
    CurlRow(ViewOf(rig_), 4, {0, 0, 1}, 3, k, 1, kCells.x - 1, x, y, z);
    for (int i = 0; i < kCells.x - 2; ++i, ++checked) {
      EXPECT_NEAR(x[i], 2 * omega.x, 1e-12);
      EXPECT_NEAR(y[i], 2 * omega.y, 1e-12);
      EXPECT_NEAR(z[i], 2 * omega.z - 1, 1e-12);
    }
  }
  EXPECT_EQ(checked, 8 * 9);
}

TEST_F(Vorticity, TheMeanNeedsOnlyTheOuterLayers) {
  MersenneTwister random(4);
  rig_.SetVelocity([&](const Vec3D&) { return Vec3D(random.Uniform() - 0.5, random.Uniform(), random.Uniform() * 2); });
  Vec3D sum;
  double x[kCells.x], y[kCells.x], z[kCells.x];
  for (int k = 1; k < kCells.z - 1; ++k) {
    for (int j = 1; j < kCells.y - 1; ++j) {
      CurlRow(ViewOf(rig_), 4, {}, j, k, 1, kCells.x - 1, x, y, z);
      for (int i = 0; i < kCells.x - 2; ++i) sum += Vec3D(x[i], y[i], z[i]);
    }
  }
  const Vec3D mean = MeanCurl(ViewOf(rig_), 4, rig_.pool);
  EXPECT_LT(Length(mean - sum / (9.0 * 7 * 8)), 1e-12);
  EXPECT_GT(Length(mean), 1e-3);
}

TEST_F(Vorticity, AStillFieldIsLeftAlone) {
  rig_.SetVelocity([](const Vec3D&) { return Vec3D(); });
  EXPECT_TRUE(rig_.Run());
  rig_.ForEach([](int, int, int, const Vec3D& f) { EXPECT_EQ(f, Vec3D()); });
}

TEST(Swirling, PushesAlongAGaussianVortex) {
  // |w| falls from the axis, so that n points inwards and n x w along the rotation. With the flow, the wind along the
  // axis scales it.
  const Vec3D axis(2.0 / 3, -1.0 / 3, 2.0 / 3);
  constexpr double kWidth = 1.5, kWind = 3;  // m, m/s
  for (const bool alongFlow : {false, true}) {
    ForceRig rig("force_swirling", {25, 25, 25});
    rig.object.Set(1003, std::int64_t{0});
    rig.object.Set(1004, std::int64_t{alongFlow});
    rig.Ready();
    const auto fromAxis = [&](const Vec3D& p) {
      const Vec3D r = p - Vec3D(12.5) * ForceRig::kCell;
      return r - axis * Dot(r, axis);
    };
    rig.SetVelocity([&](const Vec3D& p) {
      const Vec3D r = fromAxis(p);
      return Cross(axis, r) * std::exp(-LengthSquared(r) / (kWidth * kWidth)) + axis * kWind;
    });
    ASSERT_TRUE(rig.Run());
    int checked = 0;
    rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
      const Vec3D r = fromAxis(rig.Centre(i, j, k));
      const double radius = Length(r), q = radius * radius / (kWidth * kWidth);
      // Away from the border, from the axis and from where |w| = |2 (1 - q)| e^-q turns.
      if (std::min({i, j, k}) < 2 || std::max({i, j, k}) > 22 || radius < 0.5 || radius > 1.2) return;
      const double w = alongFlow ? kWind * 2 * (1 - q) * std::exp(-q) : 2 * (1 - q) * std::exp(-q);
      const Vec3D expected = Cross(axis, r) / radius * (w * ForceRig::kCell * kConfinement * rig.dt());
      EXPECT_LT(Length(f - expected), 0.12 * Length(expected));
      ++checked;
    });
    EXPECT_GT(checked, 500);
  }
}

TEST(Swirling, IsIdleWithoutStrength) {
  ForceRig rig("force_swirling", kCells);
  rig.object.Set(Force_Swirling::kStrengthId, 0.0);
  rig.Ready();
  EXPECT_FALSE(rig.Run());
}

}  // namespace
}  // namespace orlix
