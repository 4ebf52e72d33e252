// From groups to clouds of points: who is shown, in which colour, by which material.

#include "fluids/particle_renderer/ParticlePicture.h"

#include <gtest/gtest.h>

#include "fluids/particle_renderer/ParticleLook.h"
#include "fluids/particles/ParticleGroup.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

struct Stage : test::TestScene {
  Stage() : TestScene(3) {
    groupObject = &Add("particlegroup", "Group");
    scene.Step(0);
    group = NodeOf<ParticleGroup>(*groupObject);
  }
  // n particles with speeds 0, 1, 2, ... m/s along x.
  void Fill(std::int32_t kind, int n) {
    ParticleList& list = *group->list(kind);
    for (int i = 0; i < n; ++i) {
      BaseParticleData data;
      data.position = {0.1 * i, 1, 2};
      data.velocity = {static_cast<double>(i), 0, 0};
      list.Append(1, data);
    }
  }
  BaseObject& Material(std::vector<std::int32_t> kinds = {}) {
    static constexpr std::uint32_t kFlags[] = {1, 4, 2, 8};
    BaseObject& material = Add("particles", "Look " + std::to_string(++materials));
    auto list = std::make_shared<InExcludeData>();
    for (const std::int32_t kind : kinds) list->entries.push_back({groupObject->creationNumber(), kFlags[kind]});
    material.Set(ParticleLook::kGroupsId, InExcludeValue(std::move(list)));
    return material;
  }
  ParticlePicture Shown(bool velocities = false) {
    Result<ParticlePicture> made = MakeParticlePicture(document, hook, pool, velocities, observer.warnings, 0);
    EXPECT_TRUE(made);
    return made ? *made : ParticlePicture();
  }

  test::TestScene& scene = *this;
  BaseObject* groupObject;
  ParticleGroup* group;
  int materials = 0;
};

TEST(ParticlePicture, ShowsTheLivingOfAllKindsButVorticity) {
  Stage stage;
  EXPECT_TRUE(stage.Shown().clouds.empty());
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) stage.Fill(kind, 3 + kind);
  stage.group->At(PK_Passive, 1).Kill();
  const ParticlePicture shown = stage.Shown(true);
  ASSERT_EQ(shown.clouds.size(), 3u);
  EXPECT_EQ(shown.clouds[0].points.size(), 2u);
  EXPECT_EQ(shown.clouds[1].points.size(), 5u) << "the liquid";
  EXPECT_EQ(shown.clouds[2].points.size(), 6u);
  EXPECT_TRUE(shown.legends.empty());
  const PointCloud& water = shown.clouds[1];
  const Vec3D perMetre = stage.test::TestScene::scene().GetSimulationSpace().hostPerSim;
  for (int n = 0; n < 5; ++n) {
    const Vec3D at = Vec3D(water.points[n].position) + water.origin;
    EXPECT_NEAR(Length(at - Vec3D(0.1 * n, 1, 2) * perMetre), 0, 1e-5 * perMetre.x);
    EXPECT_NEAR(water.velocities[n].x, n * perMetre.x, 1e-3);
    EXPECT_GT(water.points[n].radius, 0);
  }
  EXPECT_LT(water.points[0].colour.x, 0.01) << "still water is blue, fast water white";
  EXPECT_GT(water.points[4].colour.x, 0.9);
  EXPECT_LT(shown.low.x, shown.high.x);
}

TEST(ParticlePicture, TheMaterialThatNamesAKindComesBeforeTheOneThatNamesNone) {
  Stage stage;
  for (const std::int32_t kind : {PK_Passive, PK_Vorticity}) stage.Fill(kind, 4);
  BaseObject& all = stage.Material();
  all.Set(ParticleLook::kColourById, std::int64_t{ParticleLook::kPlain});
  all.Set(ParticleLook::kColourId, Vec3D(0.1, 0.2, 0.3));
  all.Set(ParticleLook::kBrightnessId, 2.0);
  BaseObject& dots = stage.Material({PK_Passive});
  dots.Set(ParticleLook::kShapeId, static_cast<std::int64_t>(ParticleShape::Dots));
  dots.Set(ParticleLook::kDotSizeId, 5.0);
  stage.Material();  // names none, either: the first one stays
  const ParticlePicture shown = stage.Shown();
  ASSERT_EQ(shown.clouds.size(), 2u);
  EXPECT_FALSE(shown.clouds[0].lit);
  EXPECT_EQ(shown.clouds[0].leastRadius, 2.5f);
  EXPECT_TRUE(shown.clouds[1].lit);
  EXPECT_NEAR(shown.clouds[1].points[2].colour.y, 0.4, 1e-6);
  ASSERT_EQ(shown.legends.size(), 1u);
  EXPECT_EQ(shown.legends[0].title, "speed m/s");
  EXPECT_EQ(shown.legends[0].high, 3) << "the fastest of the frame";
  dots.Set(ParticleLook::kVisibleId, false);
  EXPECT_EQ(stage.Shown().clouds.size(), 1u);
}

TEST(ParticlePicture, ColoursComeFromRealsVectorsAndOnesOwnProperties) {
  Stage stage;
  stage.Fill(PK_Diffuse, 3);
  const auto colourOf = [&](int n) {
    return Vec3D(stage.Shown().clouds.at(0).points.at(static_cast<std::size_t>(n)).colour);
  };
  BaseObject& look = stage.Material();
  look.Set(ParticleLook::kColoursId,
           GradientValue(std::make_shared<Gradient>(std::vector<GradientKnot>{{0, {0, 0, 0}}, {1, {1, 1, 1}}})));
  look.Set(ParticleLook::kLowId, 200.0), look.Set(ParticleLook::kHighId, 600.0);
  look.Set(ParticleLook::kColourById, std::int64_t{PP::Temperature});
  stage.group->At(PK_Diffuse, 0).SetOrAddReal(PP::Temperature, 300);
  EXPECT_NEAR(colourOf(0).x, 0.25, 2e-3);
  EXPECT_NEAR(colourOf(1).x, 0.6, 1e-6) << "the plain colour where there is no value";
  look.Set(ParticleLook::kColourById, std::int64_t{PP::Color});
  stage.group->At(PK_Diffuse, 0).SetOrAddVector(PP::Color, {0.9, 0.1, 0.4});
  EXPECT_NEAR(Length(colourOf(0) - Vec3D(0.9, 0.1, 0.4)), 0, 1e-6);
  look.Set(ParticleLook::kColourById, std::int64_t{PP::Velocity});
  look.Set(ParticleLook::kVectorColoursId, static_cast<std::int64_t>(VectorColours::Direction));
  EXPECT_NEAR(Length(colourOf(2) - Vec3D(1, 0.5, 0.5)), 0, 1e-6);
  EXPECT_NEAR(Length(colourOf(0) - Vec3D(0.5)), 0, 1e-6) << "it stands still";

  BaseObject& own = stage.Add("property_scalar", "Wetness");
  look.Set(ParticleLook::kPropertyId, test::TestScene::LinkTo(own));
  stage.Step(0);
  stage.group = stage.NodeOf<ParticleGroup>(*stage.groupObject);
  if (stage.group->Count(PK_Diffuse) == 0) stage.Fill(PK_Diffuse, 3);
  EXPECT_TRUE(stage.warnings.empty());
  EXPECT_NEAR(colourOf(1).x, 0.6, 1e-6);
  ASSERT_EQ(stage.warnings.size(), 1u) << "told once";
  EXPECT_NE(stage.warnings[0].second.find("Wetness"), std::string::npos);
  stage.group->At(PK_Diffuse, 1).SetOrAddReal({75, own.creationNumber()}, 500);
  EXPECT_NEAR(colourOf(1).x, 0.75, 2e-3);
}

TEST(ParticlePicture, LivesFadeOut) {
  Stage stage;
  stage.Fill(PK_Diffuse, 3);
  for (int n = 0; n < 3; ++n) stage.group->At(PK_Diffuse, n).SetOrAddReal(PP::Age, 4 + 8 * n);
  BaseObject& look = stage.Material();
  look.Set(ParticleLook::kFadeOutId, 8.0), look.Set(ParticleLook::kOpacityId, 0.5);
  const ParticlePicture shown = stage.Shown();
  EXPECT_EQ(shown.clouds[0].points[0].opacity, 0.25f);
  EXPECT_EQ(shown.clouds[0].points[1].opacity, 0.5f);
}

}  // namespace
}  // namespace orlix
