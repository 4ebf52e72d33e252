// Bodies in scenes: what settings do, and that nothing a scene holds ends a run.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/particle_operators/ParticleForce_Acceleration.h"
#include "fluids/rigid_bodies/BodyTransforms.h"
#include "fluids/rigid_bodies/Bullet_VelocityEmitter.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/GasScene.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {
namespace {

// Bodies in a box of air of a metre, one sub-step a frame; a host unit is a metre.
struct BodyScene : GasScene {
  explicit BodyScene(int edge = 12) : GasScene(VecInt3D(edge, edge, edge), 2) {
    root->Set(RootSettings::kRigidSlopId, 0.002);
    root->Set(RootSettings::kGravityId, Vec3D());
  }
  // Gives the tag.
  BaseObject& AddBody(const std::string& name, const std::string& shape, const Vec3D& place, double size, double mass) {
    BaseObject& tag = *AddObstacle(name, shape, place, size).FindTag(kObstacleTagId);
    tag.Set(ObstacleTag::kDrivenId, std::int64_t(0));
    tag.Set(ObstacleTag::kMassId, mass);
    tag.Set(ObstacleTag::kInertiaId, ObstacleTag::Inertia::Solid);
    tag.Set(ObstacleTag::kMarginId, 0.002);
    return tag;
  }
  VolumeMesh& Volume(const std::string& name) { return *NodeOf<VolumeMesh>(*document.FindByPath("Scene/" + name)); }
  const RigidState& State(const std::string& name) { return Volume(name).Body()->state; }
  void Throw(BaseObject& tag, const Vec3D& velocity) {
    BaseObject& way = Add("alignment", "Way " + tag.parent()->name);
    way.Set(AlignmentVector3D::kModeId, std::int64_t(AlignmentVector3D::Vector));
    way.Set(AlignmentVector3D::kVectorId, Normalized(velocity));
    tag.Set(ObstacleTag::kVelocityFieldId, LinkTo(way));
    tag.Set(ObstacleTag::kVelocitySpeedId, Length(velocity));
  }
};

TEST(RigidBodies, ForceNodesPushInNewtons) {
  for (const auto sampling : {Bullet_VelocityEmitter::Sampling::Centre, Bullet_VelocityEmitter::Sampling::Points}) {
    BodyScene s;
    s.AddBody("Ball", "sphere", s.Centre(), 0.15, 500);
    // One that acts on grids, and one on particles.
    const bool atCentre = sampling == Bullet_VelocityEmitter::Sampling::Centre;
    BaseObject& blow = s.Add(atCentre ? "force_gravity" : "pforce_acceleration", "Blow");
    const Vec3D force(30, 0, 60);
    blow.Set(atCentre ? 1000 : ParticleForce_Acceleration::kDirectionId, force);
    if (!atCentre) blow.Set(ParticleForce_Acceleration::kStrengthId, Length(force));
    BaseObject& node = s.Add("rigid_forces", "Push");
    node.Set(Bullet_VelocityEmitter::kBodiesId, TestScene::ListOf({s.document.FindByPath("Scene/Ball")}));
    node.Set(Bullet_VelocityEmitter::kForcesId, TestScene::ListOf({&blow}));
    node.Set(Bullet_VelocityEmitter::kSamplingId, sampling);
    s.StepThrough(0, 8);
    // A force acts in the step after the one that made it; air is light.
    const Vec3D v = s.State("Ball").velocity;
    EXPECT_NEAR(v.z, 60 / 500.0 * 7 / 24, 0.02 * v.z);
    EXPECT_NEAR(v.x, v.z / 2, 0.02 * v.z);
  }
}

// A cube as text; with a point on top of it, it has other counts.
std::string CubeText(double half, bool pointed, double up = 0) {
  std::string obj;
  for (int n = 0; n < 8; ++n) {
    obj += "v " + std::to_string(n & 1 ? half : -half) + " " + std::to_string((n & 2 ? half : -half) + up) + " " +
           std::to_string(n & 4 ? half : -half) + "\n";
  }
  obj += "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 1 5 7 3\nf 2 4 8 6\n";
  if (!pointed) return obj + "f 3 7 8 4\n";
  return obj + "v 0 " + std::to_string(1.5 * half) + " 0\nf 3 7 9\nf 7 8 9\nf 8 4 9\nf 4 3 9\n";
}

// A weight that hangs from its object's origin: one force node pulls it down at its points, another holds the origin.
TEST(RigidBodies, PendulumHasItsPeriod) {
  constexpr double kLength = 0.2, kHalf = 0.02, kMass = 2, kGravity = 9.81, kStart = 15;
  const TemporaryFolder folder;
  WriteText(folder / "weight.obj", CubeText(kHalf, false, -kLength));
  BodyScene s(6);
  s.root->Set(RootSettings::kMaxSubstepsId, std::int64_t(3));
  s.fluid->Set(Grid_Incompressibility::kDensityId, 1e-6);
  BaseObject& tag = s.AddBody("Weight", "mesh", {0.5, 0.7, 0.5}, 0, kMass);
  tag.Set(ObstacleTag::kInertiaId, ObstacleTag::Inertia::Points);
  s.Geometry("Weight").Set(kMeshFileId, (folder / "weight.obj").string());
  s.Geometry("Weight").Set(kRotationId, Vec3D(0, 0, kStart));
  const auto push = [&](const char* name, double force, Bullet_VelocityEmitter::Sampling where) {
    BaseObject& pull = s.Add("force_gravity", std::string(name) + " force");
    pull.Set(1000, Vec3D(0, force, 0));
    BaseObject& node = s.Add("rigid_forces", name);
    node.Set(Bullet_VelocityEmitter::kBodiesId, TestScene::ListOf({s.document.FindByPath("Scene/Weight")}));
    node.Set(Bullet_VelocityEmitter::kForcesId, TestScene::ListOf({&pull}));
    node.Set(Bullet_VelocityEmitter::kSamplingId, where);
  };
  push("Down", -kMass * kGravity, Bullet_VelocityEmitter::Sampling::Points);
  push("Hold", kMass * kGravity, Bullet_VelocityEmitter::Sampling::Centre);
  std::vector<double> crossings;
  double before = 0;
  for (int frame = 0; frame < 60 && crossings.size() < 3; ++frame) {
    s.Step(frame);
    const double now = s.State("Weight").pose.v1.y;
    if (before * now < 0) crossings.push_back((frame - now / (now - before)) / 24);
    before = now;
  }
  ASSERT_EQ(crossings.size(), 3u);
  const double length = (kLength * kLength + 2 * kHalf * kHalf) / kLength, start = kStart * std::numbers::pi / 180;
  const double period = 2 * std::numbers::pi * std::sqrt(length / kGravity) * (1 + start * start / 16);
  EXPECT_NEAR(crossings[2] - crossings[0], period, 0.01 * period);
  EXPECT_LT(Length(s.State("Weight").pose.off - Vec3D(0.5, 0.7, 0.5)), 1e-3);
}

TEST(RigidBodies, AnInertBodyPushesAirAndAirSlowsIt) {
  BodyScene s;
  s.fluid->Set(Grid_Incompressibility::kDensityId, 200.0);
  BaseObject& tag = s.AddBody("Ball", "sphere", s.Centre(), 0.2, 5);
  s.Throw(tag, {1, 0, 0});
  s.StepThrough(0, 2);
  // A part of its momentum goes to the air around it, at once.
  EXPECT_LT(s.State("Ball").velocity.x, 0.8);
  EXPECT_GT(s.State("Ball").velocity.x, 0.1);
  const ScalarGrid& u = *s.Solver().velocity.grids[0];
  double least = 0;
  for (std::int64_t n = 0; n < u.count; ++n) least = std::min(least, u.data[n]);
  EXPECT_LT(least, -0.02) << "air flows back around it";
}

// In a fluid, too: it has no velocity, moves nothing around it, and sleeps.
TEST(RigidBodies, WhatLiesOnTheGroundIsAtRest) {
  BodyScene s;
  s.root->Set(RootSettings::kGravityId, Vec3D(0, -9.81, 0));
  s.AddBody("Floor", "box", {0.5, 0.2, 0.5}, 0.15, 0);
  BaseObject& tag = s.AddBody("Crate", "box", {0.5, 0.476, 0.5}, 0.12, 20);
  tag.Set(ObstacleTag::kRestitutionId, 0.0);
  double fastest = 0;
  for (int frame = 0; frame <= 60; ++frame) {
    s.Step(frame);
    if (frame >= 24) fastest = std::max(fastest, Length(s.State("Crate").velocity));
  }
  EXPECT_LT(fastest, 0.02) << "gravity makes 0.4 m/s of a sub-step";
  EXPECT_EQ(s.State("Crate").asleep, 1) << "two seconds of rest";
  EXPECT_NEAR(s.State("Crate").pose.off.y, 0.474, 0.01);
  double flow = 0;
  for (const auto& grid : s.Solver().velocity.grids) flow = std::max(flow, LargestMagnitude(*grid, s.scene().pool()));
  EXPECT_LT(flow, 0.02);
}

TEST(RigidBodies, AFrozenBodyStaysAndGoesOn) {
  BodyScene s;
  BaseObject& tag = s.AddBody("Ball", "sphere", s.Centre(), 0.12, 3);
  s.Throw(tag, {0.5, 0, 0});
  s.StepThrough(0, 4);
  tag.Set(ObstacleTag::kMassId, 0.0);
  s.StepThrough(5, 5);
  const Vec3D held = s.State("Ball").pose.off;
  s.StepThrough(6, 8);
  EXPECT_TRUE(s.Volume("Ball").IsDynamicBody());
  EXPECT_TRUE(s.Volume("Ball").Body()->IsFrozen());
  EXPECT_EQ(s.State("Ball").pose.off, held);
  tag.Set(ObstacleTag::kMassId, 2.0);
  s.StepThrough(9, 10);
  EXPECT_FALSE(s.Volume("Ball").Body()->IsFrozen());
  EXPECT_EQ(s.State("Ball").asleep, 0);
}

TEST(RigidBodies, AReplayedBodyGoesItsRecordedWay) {
  BodyScene s;
  BaseObject& tag = s.AddBody("Ball", "sphere", s.Centre(), 0.12, 3);
  tag.Set(ObstacleTag::kRecordId, ObstacleTag::Recording::Frames);
  s.Throw(tag, {0.5, 0.2, 0});
  std::vector<Vec3D> places;
  for (int frame = 0; frame <= 6; ++frame) {
    s.Step(frame);
    places.push_back(s.Volume("Ball").BodyMatrix().off);
  }
  tag.Set(ObstacleTag::kDrivenId, std::int64_t(1));
  tag.Set(ObstacleTag::kReplayId, std::int64_t(1));
  s.Step(0);
  for (int frame = 1; frame <= 6; ++frame) {
    s.Step(frame);
    EXPECT_LT(Length(s.Volume("Ball").BodyMatrix().off - places[std::size_t(frame)]), 1e-9) << frame;
  }
}

// Meshes of numbered files, that grow or become others on the way, as driven and as dynamic bodies; twice in a session.
TEST(RigidBodies, MeshesDeformAndAreReplaced) {
  constexpr double kDensity = 300;
  for (const bool replaced : {false, true}) {
    for (const bool driven : {false, true}) {
      const TemporaryFolder folder;
      const auto half = [&](int frame) { return replaced ? 0.15 : 0.1 + 0.01 * frame; };
      for (int frame = 0; frame <= 6; ++frame) {
        WriteText(folder / ("cube." + std::to_string(frame) + ".obj"), CubeText(half(frame), replaced && frame >= 3));
      }
      BodyScene s;
      BaseObject& tag = s.AddBody("Cube", "mesh", s.Centre(), 0, 1);
      tag.Set(ObstacleTag::kDrivenId, std::int64_t(driven));
      tag.Set(ObstacleTag::kMassModeId, ObstacleTag::MassMode::Density);
      tag.Set(ObstacleTag::kDensityId, kDensity);
      s.Geometry("Cube").Set(kMeshFileId, (folder / "cube.#.obj").string());
      if (!driven) s.Throw(tag, {0.2, 0, 0});
      // Something that moves: bodies exist, and a driven one pushes it.
      s.AddBody("Ball", "sphere", s.Centre() + Vec3D(0, 0, driven ? 0.2 : 0.35), 0.08, 1);
      std::vector<LMatrix> poses[2];
      for (const int run : {0, 1}) {
        for (int frame = 0; frame <= 6; ++frame) {
          s.Step(frame);
          poses[run].push_back(s.State("Cube").pose), poses[run].push_back(s.State("Ball").pose);
        }
        const double edge = 2 * half(6), tip = replaced ? edge * edge * edge / 12 : 0;
        EXPECT_NEAR(s.Volume("Cube").Body()->Volume(), edge * edge * edge + tip, 1e-5) << replaced << driven;
        const Vec3D middle = s.State("Cube").pose.off;
        EXPECT_TRUE(s.Volume("Cube").InsideWorld(middle + Vec3D(0, 0.9 * half(6), 0))) << replaced << driven;
        EXPECT_EQ(s.Volume("Cube").InsideWorld(middle + Vec3D(0, 1.2 * half(6), 0)), replaced) << driven;
        if (!driven) {
          EXPECT_GT(middle.x, s.Centre().x + 0.005);
        } else if (!replaced) {
          EXPECT_GT(s.State("Ball").pose.off.z, s.Centre().z + 0.2) << "pushed";
        }
      }
      EXPECT_EQ(poses[0], poses[1]) << "a restart: " << replaced << driven;
      EXPECT_EQ(std::ranges::count(s.warnings, "Scene/Cube", [](const auto& w) { return w.first; }), 1);
      EXPECT_TRUE(s.Warned("changes its shape")) << replaced << driven;
    }
  }
}

TEST(RigidBodies, NothingEndsTheRun) {
  const auto expect = [](const char* what, const std::string& told, auto&& make) {
    BodyScene s;
    s.root->Set(RootSettings::kGravityId, Vec3D(0, -9.81, 0));
    s.root->Set(RootSettings::kRigidSlopId, 0.01);
    make(s);
    s.StepThrough(0, 6);
    EXPECT_FALSE(s.scene().failure()) << what << ": " << s.scene().failure()->text;
    EXPECT_TRUE(IsFinite(s.State("A").pose.off)) << what;
    EXPECT_TRUE(told.empty() || s.Warned(told)) << what;
    for (const auto& [name, text] : s.warnings) {
      EXPECT_FALSE(told.empty() && name == "Scene/A") << what << ": " << text;
    }
  };
  const Vec3D middle(0.5);
  expect("inside each other", "", [&](BodyScene& s) {
    s.AddBody("A", "box", middle, 0.15, 2), s.AddBody("B", "box", {0.52, 0.5, 0.5}, 0.15, 2);
  });
  expect("leaves the container", "", [](BodyScene& s) {
    s.Throw(s.AddBody("A", "box", {0.9, 0.5, 0.5}, 0.1, 2), {40, 0, 0});
  });
  expect("thinner than the slop", "may pass through it", [&](BodyScene& s) {
    s.root->Set(RootSettings::kRigidSlopId, 0.2);
    s.AddBody("A", "box", middle, 0.15, 2), s.AddBody("B", "box", {0.52, 0.8, 0.5}, 0.15, 2);
  });
  expect("a margin larger than the body", "lower \"margin\"",
         [&](BodyScene& s) { s.AddBody("A", "box", middle, 0.15, 2).Set(ObstacleTag::kMarginId, 0.5); });
  expect("100 m/s onto a light one", "", [&](BodyScene& s) {
    s.Throw(s.AddBody("A", "box", {0.1, 0.5, 0.5}, 0.08, 50), {100, 0, 0}), s.AddBody("B", "box", middle, 0.1, 0.01);
  });
  expect("too fast", "1000 m/s", [&](BodyScene& s) { s.Throw(s.AddBody("A", "box", middle, 0.1, 2), {5000, 0, 0}); });
  expect("no volume", "encloses nothing", [&](BodyScene& s) {
    s.AddBody("A", "box", middle, 0.1, 2).Set(ObstacleTag::kMassModeId, ObstacleTag::MassMode::Density);
    s.Geometry("A").Set(kBoxSizeId, Vec3D(0.3, 0, 0.3));
  });
  expect("too heavy", "a mass between", [&](BodyScene& s) { s.AddBody("A", "box", middle, 0.1, 1e30); });
  expect("sorted axes", "", [&](BodyScene& s) {
    s.root->Set(RootSettings::kRigidBroadphaseId, std::int64_t(1));
    s.AddBody("A", "box", middle, 0.1, 2);
  });
  expect("split coupling", "", [&](BodyScene& s) {
    s.fluid->Set(Grid_Incompressibility::kBodyCouplingId, BodyCouplingMode::Split);
    s.AddBody("A", "box", middle, 0.2, 2);
  });
}

}  // namespace
}  // namespace orlix::test
