#include "fluids/bodies/RigidMotion.h"

#include <gtest/gtest.h>

#include <numbers>
#include <random>

namespace orlix {
namespace {

LMatrix RotationAbout(const Vec3D& axis, double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  const auto turned = [&](const Vec3D& p) { return p * c + Cross(axis, p) * s + axis * (Dot(axis, p) * (1 - c)); };
  return {{}, turned({1, 0, 0}), turned({0, 1, 0}), turned({0, 0, 1})};
}

TEST(RigidMotion, FindsAxisAngleAndDisplacement) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const double angle : {1e-9, 1e-4, 0.3, 1.5, 3.0, std::numbers::pi - 1e-4, std::numbers::pi}) {
    for (int n = 0; n < 20; ++n) {
      const Vec3D axis = Normalized(Vec3D(unit(random), unit(random), unit(random)));
      LMatrix from = RotationAbout(Normalized(Vec3D(unit(random), 1, unit(random))), 2 * unit(random));
      LMatrix to = RotationAbout(axis, angle) * from;
      from.off = {1, 2, 3};
      to.off = {1.5, 2, 2};
      const ObjectMotion motion = MotionBetween(from, to);
      EXPECT_EQ(motion.displacement, Vec3D(0.5, 0, -1));
      EXPECT_NEAR(motion.angle, angle, 1e-12);
      // Half a turn about an axis is one about its opposite.
      const double sign = angle > 3.14159 && Dot(motion.rotation, axis) < 0 ? -1 : 1;
      EXPECT_LT(Length(motion.rotation - axis * (angle * sign)), 1e-6 * angle + 1e-15) << angle;
    }
  }
}

TEST(RigidMotion, ScaleIsNoMotionAndStandingStillIsExactlyNone) {
  LMatrix scaled = RotationAbout({0, 1, 0}, 0.7);
  const LMatrix plain = scaled;
  scaled.v1 *= 3, scaled.v2 *= 3, scaled.v3 *= 3;
  EXPECT_NEAR(MotionBetween(plain, scaled).angle, 0, 1e-12);
  EXPECT_TRUE(MotionBetween(plain, plain).IsZero());
  EXPECT_TRUE(MotionBetween(LMatrix(), LMatrix()).IsZero());
}

TEST(RigidMotion, FlatAxesGiveNoRotation) {
  LMatrix flat;
  flat.v2 = {};
  EXPECT_EQ(MotionBetween(LMatrix(), flat).rotation, Vec3D());
}

}  // namespace
}  // namespace orlix
