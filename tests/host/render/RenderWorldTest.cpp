#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

#include "globals/Random.h"
#include "host/objects/BaseDocument.h"
#include "host/render/Camera.h"
#include "host/render/GatherRenderWorld.h"
#include "host/render/Light.h"
#include "host/render/RenderTypes.h"
#include "host/render/SurfaceMaterial.h"
#include "tests/host/render/TestSurfaces.h"

namespace orlix {
namespace {

class SquareData : public ObjectData {
 public:
  const PolygonObject* Polygons() const override { return &mesh_; }

 private:
  PolygonObject mesh_ = SquareMesh(1);
};

const TypeInfo kSquareType = {
    .id = 999901,
    .resource = "test_square",
    .text = "A square.",
    .role = TypeRole::Object,
    .kinds = kLinkGeometry,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<SquareData>(); }};
const TypeInfo kOtherMaterialType = {
    .id = 999902, .resource = "test_gas", .text = "No surface.", .role = TypeRole::Material, .kinds = kLinkMaterial};

// Shows where it was asked.
class PlaceShader : public ObjectData, public Shader {
 public:
  const Shader* AsShader() const override { return this; }
  void Colours(const BaseObject&, PlaceKind, std::span<const Vec3D> places, std::span<Vec3D> colours) const override {
    std::copy(places.begin(), places.end(), colours.begin());
  }
};
const TypeInfo kPlaceShaderType = {
    .id = 999903,
    .resource = "test_places",
    .text = "A shader.",
    .role = TypeRole::Object,
    .kinds = kLinkShader,
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<PlaceShader>(); }};

class Gathering : public testing::Test {
 protected:
  Gathering() {
    RegisterRenderTypes(types_);
    types_.Add(kSquareType);
    types_.Add(kOtherMaterialType);
    types_.Add(kPlaceShaderType);
  }
  BaseObject& Add(const TypeInfo& type, BaseObject* parent = nullptr) { return document_.AddObject(type, parent); }
  std::string Gather(const GatherOptions& options = {}) {
    const Status s = GatherRenderWorld(document_, options, world_);
    return s ? "" : s.error().text;
  }

  TypeRegistry types_;
  BaseDocument document_{types_};
  RenderWorld world_;
};

TEST_F(Gathering, AnEmptyDocumentGivesDefaultsALightAndACamera) {
  ASSERT_EQ(Gather(), "");
  EXPECT_EQ(world_.settings.width, 960);
  EXPECT_EQ(world_.lights.size(), 2u);
  EXPECT_TRUE(world_.surfaces.empty());
}

TEST_F(Gathering, AShaderIsTheSkyByLongitudeAndLatitude) {
  BaseObject& settings = Add(kRenderSettingsType);
  settings.Set(kRenderSkyId, LinkValue{Add(kPlaceShaderType).creationNumber()});
  ASSERT_EQ(Gather(), "");
  const auto seen = [&](const Vec3D& direction) { return world_.SkyColour(Normalized(direction)); };
  EXPECT_LT(Length(seen({1, 0, 0}) - Vec3D(0.75, 0.5, 0)), 1e-3);
  EXPECT_LT(Length(seen({0, 0, -1}) - Vec3D(0.5, 0.5, 0)), 1e-3);
  EXPECT_LT(Length(seen({-1, 1, 0}) - Vec3D(0.25, 0.75, 0)), 1e-3);
  EXPECT_NEAR(seen({0, -1, 0}).y, 0, 1e-3);
}

TEST_F(Gathering, ShownMeshesComeWithTheirMatrixAndMaterial) {
  BaseObject& parent = Add(kSquareType);
  parent.Set(kPositionId, Vec3D{0, 10, 0});
  BaseObject& child = Add(kSquareType, &parent);
  child.Set(kPositionId, Vec3D{5, 0, 0});
  BaseObject& red = Add(kSurfaceMaterialType);
  red.Set(kMaterialColourId, Vec3D{1, 0, 0});
  child.Set(kMaterialId, LinkValue{red.creationNumber()});
  BaseObject& hidden = Add(kSquareType);
  hidden.Set(kShownInPicturesId, std::int64_t(0));
  BaseObject& smoky = Add(kSquareType);
  smoky.Set(kMaterialId, LinkValue{Add(kOtherMaterialType).creationNumber()});
  ASSERT_EQ(Gather(), "");
  EXPECT_EQ(world_.surfaces.triangleCount(), 4);
  SurfaceHit hit;
  ASSERT_TRUE(world_.surfaces.Intersect({5, 20, 0}, {0, -1, 0}, 100, hit));
  EXPECT_NEAR(hit.distance, 10, 1e-6);
  EXPECT_EQ(hit.material->colour, (Vec3D{1, 0, 0}));
  ASSERT_TRUE(world_.surfaces.Intersect({0, 20, 0}, {0, -1, 0}, 100, hit));
  EXPECT_EQ(hit.material->colour, SurfaceMaterial().colour);
  EXPECT_FALSE(world_.surfaces.Intersect({0, 5, 0}, {0, -1, 0}, 100, hit)) << "the hidden and the smoky one";
}

TEST_F(Gathering, VelocitiesAreThoseOfTheKeyframes) {
  document_.fps = 24;
  BaseObject& square = Add(kSquareType);
  BaseObject& settings = Add(kRenderSettingsType);
  constexpr auto kLinear = KnotInterpolation::Linear;
  const auto line = [](double end) {
    return SplineData(std::vector<SplineKnot>{{0, 0, kLinear, {}, {}}, {24, end, kLinear, {}, {}}});
  };
  document_.AddTrack({square.creationNumber(), kPositionId, {line(0), line(12), line(0)}});  // 12 units a second
  for (const int frame : {0, 10}) {
    for (const bool asked : {false, true}) {
      settings.Set(kRenderVelocityId, std::int64_t(asked));
      ASSERT_TRUE(document_.SetTime(BaseTime::OfFrame(frame, 24)).ok());
      ASSERT_EQ(Gather(), "");
      EXPECT_EQ(document_.time().Frame(24), frame);
      SurfaceHit hit;
      ASSERT_TRUE(world_.surfaces.Intersect({0, 20, 0}, {0, -1, 0}, 100, hit));
      EXPECT_NEAR(hit.distance, 20 - 0.5 * frame, 1e-5);
      EXPECT_NEAR(hit.velocity.y, asked ? 12 : 0, 1e-4) << frame;
    }
  }
}

TEST_F(Gathering, LightsThatAreOffAreLeftOut) {
  BaseObject& off = Add(kPointLightType);
  off.Set(kLightOnId, std::int64_t(0));
  ASSERT_EQ(Gather(), "");
  EXPECT_EQ(world_.lights.size(), 0u) << "dark by choice: no light of ours";
  BaseObject& on = Add(kSpotLightType);
  on.Set(kPositionId, Vec3D{0, 3, 0});
  ASSERT_EQ(Gather(), "");
  ASSERT_EQ(world_.lights.size(), 1u);
  EXPECT_EQ(world_.lights[0].object, on.creationNumber());
}

TEST_F(Gathering, TheSettingsChooseTheCameraAndTheCallerTheSize) {
  BaseObject& settings = Add(kRenderSettingsType);
  Add(kCameraType).Set(kPositionId, Vec3D{1, 0, 0});
  BaseObject& second = Add(kCameraType);
  second.Set(kPositionId, Vec3D{2, 0, 0});
  ASSERT_EQ(Gather(), "");
  EXPECT_EQ(world_.camera.position.x, 1);
  settings.Set(kRenderCameraId, LinkValue{second.creationNumber()});
  ASSERT_EQ(Gather({.width = 123, .height = 45}), "");
  EXPECT_EQ(world_.camera.position.x, 2);
  EXPECT_EQ(world_.settings.width, 123);
  EXPECT_NE(Gather({.width = 1 << 20, .height = 45}), "");
}

TEST_F(Gathering, AnOwnCameraSeesMeshesAndVolumes) {
  Add(kSquareType);
  ASSERT_EQ(Gather({.boxLow = {0, 0, 0}, .boxHigh = {3, 30, 3}}), "");
  int checked = 0;
  for (const Vec3D& p : {Vec3D{-1, 0, -1}, Vec3D{1, 0, 1}, Vec3D{3, 30, 3}, Vec3D{0, 30, 0}}) {
    const ProjectedPoint seen = world_.camera.Project(p, 960, 540);
    EXPECT_TRUE(seen.x > 0 && seen.x < 960 && seen.y > 0 && seen.y < 540);
    ++checked;
  }
  EXPECT_EQ(checked, 4);
}

TEST_F(Gathering, MistakesComeWithTheObjectsName) {
  BaseObject& light = Add(kDistantLightType);
  light.name = "Sun";
  light.Set(kLightDirectionId, Vec3D{});
  EXPECT_EQ(Gather(), "\"Sun\".direction must not be zero");
  BaseObject& settings = Add(kRenderSettingsType);
  settings.Set(kRenderSamplesId, std::int64_t(0));
  EXPECT_NE(Gather().find("samples"), std::string::npos);
}

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
  object.Set(kCameraFocalLengthId, 50.0);
  object.Set(kCameraSensorWidthId, 36.0);
  const Result<Camera> camera = ReadCamera(object);
  ASSERT_TRUE(camera);
  EXPECT_NEAR(Length(camera->position - Vec3D{10, 0, 5}), 0, 1e-12);
  EXPECT_NEAR(Length(camera->forward - Vec3D{-1, 0, 0}), 0, 1e-12);
  EXPECT_NEAR(Length(camera->up - Vec3D{0, 1, 0}), 0, 1e-12);
  const CameraRay edge = camera->RayThrough(0, 50, 100, 100);
  EXPECT_NEAR(std::acos(Dot(edge.direction, camera->forward)), std::atan(18.0 / 50.0), 1e-12);
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
  for (int i = 0; i <= 100; ++i) {
    const double angle = i * 0.01;
    const double t = std::clamp((std::cos(angle) - std::cos(0.6)) / (std::cos(0.3) - std::cos(0.6)), 0.0, 1.0);
    const double strength = light.Illuminate({std::sin(angle), 0, -std::cos(angle)}).colour.x;
    EXPECT_NEAR(strength, t * t * (3 - 2 * t), 1e-12) << angle;
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
