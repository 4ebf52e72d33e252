// What a scene tells of itself: nothing when it is whole, and each thing that can't work by its node and key, without a
// step.

#include <gtest/gtest.h>

#include <functional>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/position_based/PositionBasedFluidDynamics.h"
#include "fluids/scene/RootObject.h"
#include "tests/support/GasScene.h"

namespace orlix {
namespace {

using test::GasScene;

// Smoke from a ball, carried as it should be.
struct SmokeScene : GasScene {
  SmokeScene() : GasScene({14, 14, 14}) {
    smoke = &Add("channel_scalar", "smoke");
    AddVolume("Ball", "sphere", Centre(), 0.25);
    settings = &Add("emission_setting", "Amount");
    pair = &Add("channelsettings", "Pair");
    pair->Set(1000, LinkTo(*smoke)), pair->Set(1001, LinkTo(*settings));
    emitter = &Add("gridemitter", "Source");
    emitter->Set(1002, LinkTo(*document.FindByPath("Scene/Ball"))), emitter->Set(1000, ListOf({pair}));
    air = &Add("grid_advection", "Carry air");
    air->Set(1005, LinkTo(*fluid));
    carry = &Add("grid_advection", "Carry smoke");
    carry->Set(1005, LinkTo(*fluid)), carry->Set(1000, LinkTo(*smoke));
  }
  bool Told(const std::string& node, const std::string& key) const {
    for (const Warning& warning : observer.warnings.all()) {
      if (warning.node == (node.empty() ? "Scene" : "Scene/" + node) && warning.key == key)
        return warning.text.find(';') != std::string::npos;
    }
    return false;
  }
  std::string All() const {
    std::string text;
    for (const Warning& warning : observer.warnings.all()) text += warning.node + ": " + warning.key + "\n";
    return text;
  }

  BaseObject *smoke, *settings, *pair, *emitter, *air, *carry;
};

TEST(Advice, AWholeSceneTellsNothing) {
  SmokeScene scene;
  scene.StepThrough(0, 3);
  scene.hook.Conclude();
  EXPECT_EQ(scene.All(), "");
}

TEST(Advice, WhatCanNotWorkIsToldWithoutAStep) {
  const struct {
    const char *node, *key;
    std::function<void(SmokeScene&)> spoil;
  } cases[] = {
      {"Carry smoke", "no-solver", [](auto& s) { s.carry->Set(1005, LinkValue{}); }},
      {"Carry smoke", "no-previous", [](auto& s) { s.smoke->Set(1002, std::int64_t(0)); }},
      {"Carry air", "no-previous", [](auto& s) { s.fluid->Set(1002, std::int64_t(0)); }},
      {"Carry smoke", "carried-twice", [](auto& s) { s.carry->Set(1000, LinkValue{}); }},
      {"smoke", "not-carried", [](auto& s) { s.document.RemoveObject(*s.carry); }},
      {"Air", "velocity-not-carried", [](auto& s) { s.document.RemoveObject(*s.air); }},
      {"Source", "no-volume", [](auto& s) { s.emitter->Set(1002, LinkValue{}); }},
      {"Source", "no-pairs", [](auto& s) { s.emitter->Set(1000, InExcludeValue()); }},
      {"Source", "outside", [](auto& s) { s.Geometry("Ball").Set(kPositionId, Vec3D(9, 0.5, 0.5)); }},
      {"Source", "no-cell", [](auto& s) { s.Geometry("Ball").Set(1110, 0.03); }},
      {"Stone", "no-cell", [](auto& s) { s.AddObstacle("Stone", "sphere", s.Centre(), 0.0003); }},
      {"Ball", "no-geometry", [](auto& s) { s.document.FindByPath("Scene/Ball")->Set(1003, LinkValue{}); }},
      {"Pair", "no-channel", [](auto& s) { s.pair->Set(1000, LinkValue{}); }},
      {"Pair", "no-settings", [](auto& s) { s.pair->Set(1001, LinkValue{}); }},
      {"Lift", "no-temperature", [](auto& s) { s.Add("force_buoyancy", "Lift"); }},
      {"Fade", "no-channel", [](auto& s) { s.Add("grid_dissipate", "Fade"); }},
      {"Cells", "no-operators", [](auto& s) { s.Add("grid_celliterator", "Cells").Set(1000, s.LinkTo(*s.smoke)); }},
      {"Weight", "not-linked", [](auto& s) { s.Add("kernel", "Weight"); }},
      {"When", "not-linked", [](auto& s) { s.Add("duration", "When"); }},
      {"Patches", "not-linked", [](auto& s) { s.Add("constraint_noise", "Patches"); }},
      {"Swirl", "not-linked",
       [](auto& s) {
         s.fluid->Set(VelocityGridEmitter::kForcesId, s.ListOf({&s.Add("force_gravity", "Wind")}));
         s.Add("force_swirling", "Swirl");
       }},
      {"", "no-time", [](auto& s) { s.root->Set(RootSettings::kTimeScaleId, 0.0); }},
      {"Honey", "no-viscosity", [](auto& s) { s.Add("particlegroup", "Water"), s.Add("liquid_viscous", "Honey"); }},
      {"Second", "shared-group",
       [](auto& s) { s.Add("particlegroup", "Water"), s.Add("liquid", "First"), s.Add("liquid", "Second"); }},
      {"Twice", "moved-twice",
       [](auto& s) {
         const BaseObject& water = s.Add("particlegroup", "Water");
         for (const char* name : {"Once", "Twice"}) {
           s.Add("particle_advection", name).Set(ParticleAdvection::kGroupId, s.LinkTo(water));
         }
       }},
      {"Drops", "no-force",
       [](auto& s) { s.Add("fluid_pb", "Drops").Set(PositionBasedFluidDynamics::kVorticityStrengthId, 50.0); }},
      {"Stone", "no-direction",
       [](auto& s) {
         s.AddObstacle("Stone", "sphere", s.Centre(), 0.3);
         BaseObject& stone = *s.document.FindByPath("Scene/Stone");
         stone.FindTag(kObstacleTagId)->Set(ObstacleTag::kVelocitySpeedId, 5.0);
       }},
      {"Twin", "two-bodies",
       [](auto& s) {
         s.AddObstacle("Stone", "sphere", s.Centre(), 0.3), s.AddObstacle("Twin", "sphere", s.Centre(), 0.3);
         s.document.FindByPath("Scene/Twin")->Set(1003, s.LinkTo(s.Geometry("Stone")));
         for (const char* name : {"Scene/Stone", "Scene/Twin"}) {
           BaseObject& tag = *s.document.FindByPath(name)->FindTag(kObstacleTagId);
           tag.Set(ObstacleTag::kDrivenId, false), tag.Set(ObstacleTag::kMassId, 5.0);
         }
       }},
      {"Air", "couple-without-object", [](auto& s) { s.document.AddTag(*s.types.FindName("c4d_couple"), *s.fluid); }},
      {"Air", "row-not-read:obstacles", [](auto& s) { s.fluid->Set(1017, s.ListOf({s.emitter})); }},
      {"smoke", "row-not-read:constraints", [](auto& s) { s.smoke->Set(kConstraintsId, s.ListOf({s.emitter})); }},
  };
  for (const auto& c : cases) {
    SmokeScene scene;
    c.spoil(scene);
    ASSERT_TRUE(scene.document.SetTime(scene.document.minTime).ok());
    scene.hook.BuildScenes(scene.document, false);
    EXPECT_TRUE(scene.Told(c.node, c.key)) << c.node << " " << c.key << ", but:\n" << scene.All();
  }
}

// Of whatever type: alone and with nothing linked a node lets the others be, and says with a remedy why nothing
// happens.
TEST(Advice, EveryNodeAloneTellsWhyNothingHappens) {
  // What a list that is left empty takes, and what may wait for others.
  const std::string quiet =
      " force_gravity force_swirling force_trigowave force_vortex pforce_acceleration iop_spawn iop_repulsion "
      "channel_scalar channel_vector channel_temp channel_fuel channel_fire ";
  const test::TestScene types;
  for (const auto& [id, type] : types.types.types()) {
    if (type->role != TypeRole::Node) continue;
    const std::string name(type->ShortName());
    SmokeScene scene;
    scene.Add(name, "Lone");
    scene.StepThrough(0, 2);
    scene.hook.Conclude();
    EXPECT_FALSE(scene.scene().failure()) << name;
    int told = 0;
    for (const Warning& warning : scene.observer.warnings.all()) {
      EXPECT_NE(warning.text.find_first_of(";:"), std::string::npos) << warning.node << ": " << warning.text;
      told += warning.node == "Scene/Lone";
    }
    EXPECT_EQ(told == 0, quiet.find(" " + name + " ") != std::string::npos) << name;
  }
}

TEST(Advice, WhatAnEmptyListTakesNeedsNoLink) {
  SmokeScene scene;
  scene.Add("iop_repulsion", "Bounce");
  scene.Add("force_swirling", "Stir");
  scene.hook.BuildScenes(scene.document, false);
  EXPECT_EQ(scene.All(), "");
}

TEST(Advice, KeyframesMayBringAnEmitterIntoTheContainer) {
  SmokeScene scene;
  BaseObject& ball = scene.Geometry("Ball");
  ball.Set(kPositionId, Vec3D(9, 0.5, 0.5));
  scene.document.AddTrack({ball.creationNumber(), kPositionId, std::vector<SplineData>(3)});
  scene.hook.BuildScenes(scene.document, false);
  EXPECT_EQ(scene.All(), "");
}

TEST(Advice, WhatOnlyARunShowsIsToldInItOrAtItsEnd) {
  SmokeScene late, empty, outside;
  BaseObject& duration = late.Add("duration", "Late");
  duration.Set(1001, 1000.0);
  late.settings->Set(1004, late.LinkTo(duration));
  empty.settings->Set(1013, 0.0);
  BaseObject& ball = outside.Geometry("Ball");
  ball.Set(kPositionId, Vec3D(9, 0.5, 0.5));
  const SplineKnot places[] = {{0, 9}, {100, 9}};
  outside.document.AddTrack({ball.creationNumber(), kPositionId, std::vector<SplineData>(3, SplineData(places))});
  for (SmokeScene* scene : {&late, &empty, &outside}) {
    scene->StepThrough(0, 2);
    scene->hook.Conclude();
  }
  EXPECT_TRUE(late.Told("Source", "nothing-emitted")) << late.All();
  EXPECT_TRUE(empty.Told("Source", "nothing-emitted")) << empty.All();
  EXPECT_TRUE(outside.Told("Source", "outside")) << outside.All();
}

}  // namespace
}  // namespace orlix
