#include "host/render/Light.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "globals/Random.h"
#include "host/objects/BaseDocument.h"
#include "host/render/RenderTypes.h"
#include "host/render/SurfaceMaterial.h"

namespace orlix {
namespace {

TEST(Light, FalloffsFollowTheirLaws) {
  Light light;
  light.colour = {2, 1, 0.5};
  light.position = {1, 2, 3};
  light.radius = 4;
  const Vec3D away = Normalized(Vec3D{1, -2, 0.5});
  for (const double d : {0.5, 1.0, 2.0, 4.0, 7.0, 100.0}) {
    const Vec3D x = light.position + away * d;
    light.falloff = LightFalloff::None;
    EXPECT_EQ(light.Illuminate(x).colour, light.colour);
    light.falloff = LightFalloff::InverseSquare;
    EXPECT_NEAR(light.Illuminate(x).colour.x * d * d, 2 * 16, 1e-9);
    light.falloff = LightFalloff::Linear;
    EXPECT_NEAR(light.Illuminate(x).colour.y, std::max(0.0, 1 - d / 4), 1e-12);
    EXPECT_NEAR(light.Illuminate(x).distance, d, 1e-12);
    EXPECT_NEAR(Length(light.Illuminate(x).toLight + away), 0, 1e-12);
  }
  light.falloff = LightFalloff::InverseSquare;
  EXPECT_TRUE(IsFinite(light.Illuminate(light.position).colour));
  EXPECT_EQ(light.Illuminate(light.position).toLight, Vec3D());
}

TEST(Light, ASpotFadesFromItsInnerToItsOuterAngle) {
  Light light;
  light.kind = LightKind::Spot;
  light.direction = {0, 0, -1};
  light.cosInner = std::cos(0.3), light.cosOuter = std::cos(0.6);
  double last = 1;
  for (int i = 0; i <= 100; ++i) {
    const double angle = i * 0.01;
    const double strength = light.Illuminate({std::sin(angle), 0, -std::cos(angle)}).colour.x;
    EXPECT_LE(strength, last);
    if (angle < 0.299) {
      EXPECT_EQ(strength, 1);
    }
    if (angle > 0.601) {
      EXPECT_EQ(strength, 0);
    }
    if (angle > 0.31 && angle < 0.59) {
      EXPECT_TRUE(strength > 0 && strength < 1);
    }
    last = strength;
  }
}

class MaterialLaws : public testing::TestWithParam<double> {};

TEST_P(MaterialLaws, ReflectsNoMoreThanArrives) {
  const SurfaceMaterial material{.colour = {1, 1, 1}, .specular = 0.5, .roughness = GetParam()};
  for (const double eyeAngle : {0.0, 0.7, 1.3}) {
    const Vec3D eye{std::sin(eyeAngle), 0, std::cos(eyeAngle)};
    // The integral over the half sphere, of which a white and even reflector gives 1.
    double sum = 0;
    constexpr int kSteps = 400;
    for (int i = 0; i < kSteps; ++i) {
      for (int j = 0; j < kSteps; ++j) {
        const double z = (i + 0.5) / kSteps, r = std::sqrt(1 - z * z), a = 2 * std::numbers::pi * (j + 0.5) / kSteps;
        sum += ReflectedLight(material, {0, 0, 1}, eye, {r * std::cos(a), r * std::sin(a), z}).x;
      }
    }
    const double albedo = sum * 2 * std::numbers::pi / (kSteps * kSteps) / std::numbers::pi;
    EXPECT_LT(albedo, 1.005);
    EXPECT_GT(albedo, 0.55);
  }
}

TEST_P(MaterialLaws, ReflectsTheSameBothWays) {
  const SurfaceMaterial material{.colour = {0.3, 0.5, 0.9}, .specular = 0.1, .roughness = GetParam()};
  MersenneTwister random(6);
  for (int i = 0; i < 200; ++i) {
    const auto direction = [&] {
      const double x = random.Uniform() - 0.5, y = random.Uniform() - 0.5;
      return Normalized(Vec3D{x, y, 0.05 + random.Uniform()});
    };
    const Vec3D a = direction(), b = direction();
    const Vec3D ab = ReflectedLight(material, {0, 0, 1}, a, b) / b.z,
                ba = ReflectedLight(material, {0, 0, 1}, b, a) / a.z;
    EXPECT_NEAR(Length(ab - ba), 0, 1e-9 * Length(ab));
  }
}

INSTANTIATE_TEST_SUITE_P(Roughness, MaterialLaws, testing::Values(0.3, 0.6, 1.0));

TEST(SurfaceMaterial, WithoutGlossIsLambert) {
  const SurfaceMaterial material{.colour = {0.2, 0.4, 0.8}, .specular = 0};
  const Vec3D light = Normalized(Vec3D{1, 0, 2});
  EXPECT_EQ(ReflectedLight(material, {0, 0, 1}, {0, 0, 1}, light), material.colour * light.z);
  EXPECT_EQ(ReflectedLight(material, {0, 0, 1}, {0, 0, 1}, -light), Vec3D());
}

}  // namespace
}  // namespace orlix
