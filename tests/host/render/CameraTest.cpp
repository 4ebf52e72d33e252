#include "host/render/Camera.h"

#include <gtest/gtest.h>

#include <cmath>

#include "globals/Random.h"
#include "host/objects/BaseDocument.h"
#include "host/render/Light.h"
#include "host/render/RenderTypes.h"
#include "tests/host/render/TestSurfaces.h"

namespace orlix {
namespace {

class CameraLaws : public testing::TestWithParam<Projection> {};

TEST_P(CameraLaws, APointOnARayFallsOnItsPixel) {
  MersenneTwister random(4);
  for (int i = 0; i < 500; ++i) {
    Camera camera;
    camera.projection = GetParam();
    camera.halfWidth = 0.1 + random.Uniform();
    camera.position = RandomVector(random) * 100;
    camera.near = 0.5, camera.far = 50;
    camera.LookAt(camera.position + RandomVector(random), RandomVector(random));
    const double x = random.Uniform() * 640, y = random.Uniform() * 360;
    const CameraRay ray = camera.RayThrough(x, y, 640, 360);
    EXPECT_NEAR(Length(ray.direction), 1, 1e-14);
    for (const double along : {0.0, 0.3, 1.0}) {
      const ProjectedPoint p = camera.Project(ray.origin + ray.direction * (along * ray.length), 640, 360);
      EXPECT_NEAR(p.x, x, 1e-9);
      EXPECT_NEAR(p.y, y, 1e-9);
      EXPECT_NEAR(p.depth, 0.5 + along * 49.5, 1e-9);
      EXPECT_NEAR(p.depth, camera.near + along * ray.length * ray.cosine, 1e-9);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Both, CameraLaws, testing::Values(Projection::Perspective, Projection::Parallel));

TEST(Camera, ShowsXToTheRightAndYUpLookingAlongMinusZ) {
  const Camera camera;
  const ProjectedPoint p = camera.Project({1, 0.5, -4}, 200, 100);
  EXPECT_DOUBLE_EQ(p.x, 100 + 50);  // half the picture's width at depth 4 is 2
  EXPECT_DOUBLE_EQ(p.y, 50 - 25);
}

TEST(Camera, FocalLengthGivesTheAngle) {
  TypeRegistry types;
  RegisterRenderTypes(types);
  BaseDocument document(types);
  BaseObject& object = document.AddObject(kCameraType);
  object.Set(kCameraFocalLengthId, 50.0);
  object.Set(kCameraSensorWidthId, 36.0);
  const Result<Camera> camera = ReadCamera(object);
  ASSERT_TRUE(camera);
  const CameraRay edge = camera->RayThrough(0, 50, 100, 100);
  EXPECT_NEAR(std::acos(Dot(edge.direction, camera->forward)), std::atan(18.0 / 50.0), 1e-12);
}

TEST(Camera, LooksAtItsTargetAlsoFromStraightAbove) {
  for (const Vec3D& position : {Vec3D{3, 4, 5}, Vec3D{0, 9, 0}, Vec3D{0, -2, 0}}) {
    Camera camera;
    camera.position = position;
    camera.LookAt({0, 0, 0}, {0, 1, 0});
    const ProjectedPoint p = camera.Project({0, 0, 0}, 64, 48);
    EXPECT_NEAR(p.x, 32, 1e-9);
    EXPECT_NEAR(p.y, 24, 1e-9);
    EXPECT_NEAR(Dot(camera.right, camera.up), 0, 1e-15);
    EXPECT_NEAR(Length(camera.right), 1, 1e-15);
    EXPECT_NEAR(Length(Cross(camera.right, camera.forward) - camera.up), 0, 1e-15);
  }
}

TEST(Camera, ReadsItsPlaceInTheTreeAndTurnsWithIt) {
  TypeRegistry types;
  RegisterRenderTypes(types);
  BaseDocument document(types);
  BaseObject& parent = document.AddObject(kPointLightType);
  parent.Set(kPositionId, Vec3D{10, 0, 0});
  BaseObject& object = document.AddObject(kCameraType, &parent);
  object.Set(kPositionId, Vec3D{0, 0, 5});
  object.Set(kCameraLookAtId, std::int64_t(0));
  object.Set(kRotationId, Vec3D{0, 90, 0});  // -z turns to -x
  const Result<Camera> camera = ReadCamera(object);
  ASSERT_TRUE(camera);
  EXPECT_NEAR(Length(camera->position - Vec3D{10, 0, 5}), 0, 1e-12);
  EXPECT_NEAR(Length(camera->forward - Vec3D{-1, 0, 0}), 0, 1e-12);
  EXPECT_NEAR(Length(camera->up - Vec3D{0, 1, 0}), 0, 1e-12);
}

TEST(Camera, FramingShowsEveryCornerOfTheBox) {
  int checked = 0;
  for (const Vec3D& size : {Vec3D{1, 1, 1}, Vec3D{0.01, 50, 3}, Vec3D{4, 0, 0}, Vec3D{0, 0, 0}}) {
    for (const int height : {100, 1000}) {
      const Vec3D low{5, -3, 2}, high = low + size;
      const Camera camera = FramingCamera(low, high, 400, height);
      for (int corner = 0; corner < 8; ++corner) {
        const Vec3D p{corner & 1 ? low.x : high.x, corner & 2 ? low.y : high.y, corner & 4 ? low.z : high.z};
        const ProjectedPoint seen = camera.Project(p, 400, height);
        EXPECT_TRUE(seen.x >= 0 && seen.x <= 400 && seen.y >= 0 && seen.y <= height) << seen.x << " " << seen.y;
        EXPECT_TRUE(seen.depth > camera.near && seen.depth < camera.far);
        ++checked;
      }
    }
  }
  EXPECT_EQ(checked, 64);
}

}  // namespace
}  // namespace orlix
