#include "host/render/GatherRenderWorld.h"

#include <gtest/gtest.h>

#include <string>

#include "host/render/RenderTypes.h"
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

}  // namespace
}  // namespace orlix
