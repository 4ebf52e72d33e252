// Small nodes and the interface to settings.

#include <gtest/gtest.h>

#include <functional>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/helpers/Duration.h"
#include "fluids/helpers/Kernel.h"
#include "fluids/helpers/Property.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/position_based/PositionBasedFluidDynamics.h"
#include "fluids/scene/RootObject.h"
#include "fluids/scene/StateCheck.h"
#include "tests/fluids/scene/TraceNode.h"
#include "tests/support/GasScene.h"

namespace orlix {
namespace {

using test::TracedScene;
using test::TraceNode;

TEST(Handler, ConvertsLikeTheHost) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", 0);
  const C4D_InterfaceHandler handler(&n);
  n.Set(TraceNode::kRoundsId, 3.99);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), 3);
  n.Set(TraceNode::kRoundsId, -3.99);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), -3);
  n.Set(TraceNode::kRoundsId, 1e300);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), 2147483647);
  const C4D_InterfaceHandler none;
  EXPECT_EQ(none.GetInt(TraceNode::kStageBitsId, 42), 42);
  BaseObject& copy = s.AddTrace("m", 0);
  const C4D_InterfaceHandler link(&copy);
  EXPECT_TRUE(link.IsHostInDocument(kRootTypeId)) << "every node is an instance of the root's type";
  s.document.RemoveObject(copy);
  EXPECT_FALSE(link.IsHostInDocument(0));
}

TEST(Dirty, FirstCheckFindsAChangeAndMarksPersist) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", 0);
  n.Set(TraceNode::kIdleId, std::int64_t(1));
  s.Step(0);
  TraceNode node(&n, s.scene());
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty());
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_FALSE(node.IsDirty());
  node.MarkDirty(true);
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty()) << "a mark shows once more at the next check";
  n.Set(TraceNode::kSpeedId, 3.0);
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty());
}

TEST(Duration, WindowsPausesAndWeights) {
  TracedScene s;
  BaseObject& object = s.Add("duration", "d");
  s.Step(0);
  Duration d(&object, s.scene());
  d.start = 1;
  EXPECT_FALSE(d.IsActive(0.99));
  double weight = 0.75;
  EXPECT_TRUE(d.IsActive(1e9, weight));
  EXPECT_EQ(weight, 0.75) << "without a length the caller's weight stays";
  d.length = 2, d.pause = 1;
  EXPECT_TRUE(d.IsActive(1));
  EXPECT_FALSE(d.IsActive(3));
  EXPECT_FALSE(d.IsActive(4.5)) << "no repeats: window 0 only";
  d.repeats = 1;
  EXPECT_FALSE(d.IsActive(3.5));
  ASSERT_TRUE(d.IsActive(4.5, weight));
  EXPECT_DOUBLE_EQ(weight, 0.75);
  EXPECT_FALSE(d.IsActive(7.5));
  const SplineKnot knots[] = {{0, 5}, {1, 9}};
  const SplineData ramp(knots);
  d.ramp = &ramp;
  ASSERT_TRUE(d.IsActive(2, weight));
  EXPECT_DOUBLE_EQ(weight, 7);
  EXPECT_EQ(DurationWeight(nullptr, 0), 1);
  EXPECT_EQ(DurationWeight(&d, 0), 0);
  object.Set(Duration::kUseFramesId, std::int64_t(1));
  object.Set(Duration::kLengthFramesId, std::int64_t(12));
  object.Set(Duration::kStartFrameId, std::int64_t(6));
  s.Step(1);
  EXPECT_DOUBLE_EQ(s.NodeOf<Duration>(object)->length, 0.5);
  EXPECT_DOUBLE_EQ(s.NodeOf<Duration>(object)->start, 0.25);
}

TEST(Kernel, NormalisedKindsIntegrateToOne) {
  // 4 pi times the integral of r^2 w(r); kinds 3 to 5 are as they are given and don't.
  const double h = 0.7;
  const auto integral = [&](KernelKind kind) {
    double sum = 0;
    const int steps = 200000;
    for (int n = 0; n < steps; ++n) {
      const double r = (n + 0.5) * h / steps;
      sum += 4 * std::numbers::pi * r * r * EvaluateKernel(kind, {0, 0, 0}, {r, 0, 0}, h) * h / steps;
    }
    return sum;
  };
  EXPECT_NEAR(integral(KernelKind::Poly6), 1, 1e-6);
  EXPECT_NEAR(integral(KernelKind::Poly6Radius), 1, 1e-6);
  EXPECT_NEAR(integral(KernelKind::Gauss), 0.19875, 1e-4) << "the Gaussian's part within one sigma";
}

TEST(Kernel, CentreEdgeAndCurve) {
  const double h = 2;
  EXPECT_EQ(EvaluateKernel(KernelKind(12), {}, {2, 0, 0}, h), -1);
  for (int type = 0; type < 13; ++type) {
    const KernelKind kind{type};
    EXPECT_LE(EvaluateKernel(kind, {1, 2, 3}, {1, 2, 5.5}, h), 0) << type;
    EXPECT_EQ(EvaluateKernel(kind, {1, 2, 3}, {1, 1, 3}, h), EvaluateKernel(kind, {1, 1, 3}, {1, 2, 3}, h));
  }
  EXPECT_EQ(EvaluateKernel(KernelKind(13), {}, {}, h), 0);
  TracedScene s;
  BaseObject& object = s.Add("kernel", "k");
  object.Set(Kernel::kKindId, KernelKind::Curve);
  s.Step(0);
  const Kernel* kernel = s.NodeOf<Kernel>(object);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->Evaluate({}, {}, h), 0) << "distance 0 gives 0, not the curve's first value";
  EXPECT_NEAR(kernel->Evaluate({}, {std::sqrt(1.6), 0, 0}, h), 0.8, 1e-6);
}

TEST(Property, RadiusIsInVoxels) {
  TracedScene s;
  s.root->Set(RootSettings::kVoxelSizeId, 0.5);
  BaseObject& real = s.Add("property_scalar", "r");
  real.Set(iProperty::kValueId, 3.0);
  real.Set(iProperty::kPropertyIdId, std::int64_t(0));
  BaseObject& whole = s.Add("property_int", "i");
  whole.Set(iProperty::kValueId, 3.0);
  whole.Set(iProperty::kPropertyIdId, std::int64_t(0));
  s.Step(0);
  EXPECT_DOUBLE_EQ(s.NodeOf<Property<double>>(real)->value, 1.5);
  EXPECT_EQ(s.NodeOf<Property<std::int32_t>>(whole)->value, 1) << "1.5 and half a cell, truncated";
  EXPECT_TRUE(s.NodeOf<iProperty>(real)->HasRetrieveType(RETRIEVE_SCALAR));
}

TEST(StateCheck, FindsEveryKindOfNonNumber) {
  WorkerPool pool(3);
  for (const double bad : {double(NAN), double(INFINITY), -double(INFINITY)}) {
    for (const int at : {0, 17, 4999, 8 * 25 * 25 - 1}) {
      auto grid = std::make_unique<ScalarGrid>(VecInt3D(8, 25, 25), Vec3D(1, 1, 1), 1.0f, kGridSmoke, Vec3D());
      grid->Fill(std::numeric_limits<double>::max());
      NonFiniteFinder clean(pool);
      clean.VisitGrid("g", grid);
      EXPECT_FALSE(clean.found());
      (*grid)[at] = bad;
      NonFiniteFinder finder(pool);
      finder.VisitGrid("g", grid);
      ASSERT_TRUE(finder.found());
      EXPECT_EQ(grid->Index(finder.found()->i, finder.found()->j, finder.found()->k), at);
    }
  }
}

// What a scene tells of itself: nothing when it is whole, and each thing that can't work by its node and key, without a
// step.

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
      {"Air", "no-cell", [](auto& s) { s.fluid->Set(FluidSolver::kContainerId, Vec3D(1, 0.05, 1)); }},
      {"Air", "turned-container", [](auto& s) { s.root->Set(kRotationId, Vec3D(0, 30, 0)); }},
      {"Water body", "turned-container",
       [](auto& s) { s.Add("particlegroup", "Water"), s.Add("liquid", "Water body").Set(kScaleId, Vec3D(2, 1, 1)); }},
      {"Air", "part-cells", [](auto& s) { s.fluid->Set(FluidSolver::kContainerId, Vec3D(1, 1, 1.07)); }},
      {"Source", "place-not-read:position", [](auto& s) { s.emitter->Set(kPositionId, Vec3D(1, 0, 0)); }},
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
      {"Blur", "row-not-read:constraints",
       [](auto& s) { s.Add("grid_diffusion", "Blur").Set(kConstraintsId, s.ListOf({s.emitter})); }},
      {"Density", "adds-up", [](auto& s) { s.Add("grid_variabledensity", "Density").Set(1000, s.LinkTo(*s.smoke)); }},
      {"Carry smoke", "other-scene:channel",
       [](auto& s) {
         BaseObject& other = s.document.AddObject(RootSettings::Type());
         s.carry->Set(1000, s.LinkTo(s.Add("channel_scalar", "far", &other)));
       }},
      {"When", "no-repeats",
       [](auto& s) {
         BaseObject& when = s.Add("duration", "When");
         when.Set(1002, std::int64_t(3)), s.settings->Set(1004, s.LinkTo(when));
       }},
      {"When", "row-not-read:length_frames",
       [](auto& s) {
         BaseObject& when = s.Add("duration", "When");
         when.Set(1005, std::int64_t(3)), when.MarkGiven(1005);
         s.settings->Set(1004, s.LinkTo(when));
       }},
      {"smoke", "reversed-range:value_min", [](auto& s) { s.smoke->Set(1050, 2.0); }},
      {"smoke", "row-not-read:stage", [](auto& s) { s.smoke->Set(kStageId, std::int64_t(7)); }},
      {"Lift", "row-not-read:priority",
       [](auto& s) { s.Add("force_swirling", "Lift").Set(kPriorityId, std::int64_t(1)); }},
      {"Air", "one-stage", [](auto& s) { s.fluid->Set(kStageId, std::int64_t(10)); }},
      {"Next", "other-container",
       [](auto& s) { s.Add("fluid", "Next").Set(FluidSolver::kContainerId, Vec3D(5, 5, 5)); }},
      {"", "row-not-read:cfl",
       [](auto& s) { s.root->Set(RootSettings::kCflId, 4.0), s.root->MarkGiven(RootSettings::kCflId); }},
      {"", "restarts",
       [](auto& s) {
         s.document.AddTrack({s.root->creationNumber(), RootSettings::kVoxelSizeId, std::vector<SplineData>(1)});
       }},
      {"Amount", "rate-of-another-kind",
       [](auto& s) {
         BaseObject& rate = s.Add("rate", "Many");
         rate.Set(5000, std::int64_t(2)), s.settings->Set(1002, s.LinkTo(rate));
       }},
      {"Where", "no-channel",
       [](auto& s) { s.emitter->Set(kConstraintsId, s.ListOf({&s.Add("constraint_gridvalue", "Where")})); }},
      {"State", "on-cells:Scene/Source",
       [](auto& s) { s.emitter->Set(kConstraintsId, s.ListOf({&s.Add("constraint_particle_collision", "State")})); }},
      {"Free", "not-linked",
       [](auto& s) {
         s.Add("grid_celliterator", "Cells").Set(kConstraintsId, s.ListOf({&s.Add("constraint_noise", "Listed")}));
         s.Add("constraint_noise", "Free");
       }},
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
      " force_gravity force_swirling force_trigowave force_vortex force_coffee iop_spawn iop_repulsion "
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

TEST(Advice, KeyframesMayBringAnEmitterIntoTheContainer) {
  SmokeScene scene;
  BaseObject& ball = scene.Geometry("Ball");
  ball.Set(kPositionId, Vec3D(9, 0.5, 0.5));
  scene.document.AddTrack({ball.creationNumber(), kPositionId, std::vector<SplineData>(3)});
  scene.hook.BuildScenes(scene.document, false);
  EXPECT_EQ(scene.All(), "");
}

TEST(Advice, WhatOnlyARunShowsIsToldInItOrAtItsEnd) {
  SmokeScene late, empty, outside, alone, buried;
  for (const char* name : {"Scene/Ball", "Scene/Seed"}) {
    alone.document.RemoveObject(*alone.document.FindByPath(name));
  }
  buried.AddObstacle("Stone", "sphere", buried.Centre(), 0.4);
  BaseObject& duration = late.Add("duration", "Late");
  duration.Set(1001, 1000.0);
  late.settings->Set(1004, late.LinkTo(duration));
  empty.settings->Set(1013, 0.0);
  BaseObject& ball = outside.Geometry("Ball");
  ball.Set(kPositionId, Vec3D(9, 0.5, 0.5));
  const SplineKnot places[] = {{0, 9}, {100, 9}};
  outside.document.AddTrack({ball.creationNumber(), kPositionId, std::vector<SplineData>(3, SplineData(places))});
  for (SmokeScene* scene : {&late, &empty, &outside, &alone, &buried}) {
    scene->StepThrough(0, 2);
    scene->hook.Conclude();
  }
  EXPECT_TRUE(late.Told("Source", "nothing-emitted")) << late.All();
  EXPECT_TRUE(empty.Told("Source", "nothing-emitted")) << empty.All();
  EXPECT_TRUE(outside.Told("Source", "outside")) << outside.All();
  EXPECT_TRUE(alone.Told("Air", "no-cells")) << alone.All();
  EXPECT_TRUE(buried.Told("Source", "in-obstacle")) << buried.All();
}

}  // namespace
}  // namespace orlix
