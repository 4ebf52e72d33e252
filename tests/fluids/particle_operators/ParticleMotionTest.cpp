#include <gtest/gtest.h>

#include "fluids/particle_operators/InstantOperator_Repulsion.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/particle_operators/ParticleForce_Acceleration.h"
#include "fluids/particle_operators/ParticleForce_Corrector.h"
#include "fluids/particle_operators/ParticleForce_SurfaceTension.h"
#include "fluids/particle_operators/ParticleForces.h"
#include "fluids/particle_operators/ParticleVolumeProperties.h"
#include "fluids/particles/SeenVelocity.h"
#include "globals/Random.h"
#include "tests/fluids/particle_operators/MotionRig.h"
#include "tests/support/GasScene.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::MotionRig;

constexpr std::uint16_t kBallistic = ParticleFlag::Ballistic, kDrag = ParticleFlag::Drag;

TEST(ParticleMotion, AFallIsThatOfItsIntegrator) {
  constexpr int kSteps = 12;
  for (const auto method :
       {BallisticIntegrator::Euler, BallisticIntegrator::Verlet, BallisticIntegrator::VelocityVerlet}) {
    MotionRig rig;
    rig.settings.ballistic = method;
    const Vec3D start(2.5, 4, 2.5);
    const OrlixParticle p = rig.Add(start, {}, kBallistic);
    p.SetOrAddVector(PP::OldPosition, start);
    rig.Step(kSteps);
    // v = g n dt and x = g dt^2 n (n + 1) / 2, to the last bit: all numbers are short.
    const double dt = rig.settings.dt, g = rig.settings.gravity.y;
    EXPECT_EQ(p.GetPosition(), start + Vec3D(0, g * dt * dt * kSteps * (kSteps + 1) / 2, 0));
    const double v = g * dt * kSteps;
    EXPECT_EQ(p.GetVelocity().y, method == BallisticIntegrator::Verlet ? v * dt : v);
    Vec3D before;
    EXPECT_EQ(p.GetVector(PP::CorrectedPosition, before), method == BallisticIntegrator::VelocityVerlet);
    p.GetVector(PP::OldPosition, before);
    EXPECT_EQ(before == start, method == BallisticIntegrator::Euler) << "only the two others carry it on";
  }
}

TEST(ParticleMotion, AnExternalForceActsOnceDividedByTheMassWhereTheMethodSaysSo) {
  for (const int iterations : {1, 2}) {
    MotionRig rig;
    rig.settings.gravity = {};
    rig.settings.iterations = iterations;
    const OrlixParticle p = rig.Add({2, 2, 2}, {}, kBallistic);
    p.SetReal(PP::Mass, 4);
    p.SetOrAddVector(PP::ExternalForce, {16, 0, 0});
    rig.Step();
    EXPECT_EQ(p.GetVelocity().x, rig.settings.dt * 4);
    EXPECT_EQ(p.GetVectorOr(PP::ExternalForce, {1, 1, 1}), Vec3D());
    EXPECT_EQ(p.GetPosition().x, 2 + iterations * rig.settings.dt * p.GetVelocity().x);
    rig.settings.ballistic = BallisticIntegrator::VelocityVerlet;
    p.SetVector(PP::ExternalForce, {16, 0, 0});
    rig.Step();
    EXPECT_EQ(p.GetVelocity().x, rig.settings.dt * 20) << "a force is an acceleration there";
  }
}

TEST(ParticleMotion, DragComesToTheFieldsVelocityLessItsBuoyancy) {
  const Vec3D wind(0.5, 0, 0);
  MotionRig rig({20, 20, 20}, [=](const Vec3D&) { return wind; });
  rig.settings.iterations = 3;
  const OrlixParticle p = rig.Add({1, 2.5, 2.5}, {-1, 0, 0}, kDrag);
  rig.Step(20);
  const double terminal = -0.01 * rig.settings.gravity.y * rig.settings.dt / 0.3;
  const double left = std::pow(0.7, 60);
  EXPECT_NEAR(p.GetVelocity().x, wind.x + (-1 - wind.x) * left, 1e-12);
  EXPECT_NEAR(p.GetVelocity().y, terminal * (1 - left), 1e-12);
}

TEST(ParticleMotion, FlagsAndTheSolidChooseHowAParticleMoves) {
  MotionRig rig({20, 20, 20}, [](const Vec3D&) { return Vec3D(1, 0, 0); });
  rig.bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(10, 10, 10)) - 4; });
  rig.field.solid = rig.bench.field.solid;
  rig.settings.source = MotionSource::SolversBallisticInside;
  const OrlixParticle outside = rig.Add({1, 1, 1}), inside = rig.Add({2.5, 2.5, 2.5});
  const OrlixParticle dragged = rig.Add({1, 1, 1}, {}, kDrag), flying = rig.Add({1, 1, 1}, {}, kBallistic | kDrag);
  rig.Step();
  const double dt = rig.settings.dt;
  EXPECT_EQ(outside.GetPosition(), Vec3D(1 + dt, 1, 1));
  EXPECT_EQ(inside.GetPosition(), Vec3D(2.5, 2.5, 2.5) + rig.settings.gravity * dt * dt);
  EXPECT_DOUBLE_EQ(dragged.GetPosition().x, 1 + 0.3 * dt);
  EXPECT_EQ(flying.GetPosition(), Vec3D(1, 1, 1) + rig.settings.gravity * dt * dt);
  rig.settings.source = MotionSource::Solvers;
  const Vec3D before = inside.GetPosition();
  rig.Step();
  EXPECT_EQ(inside.GetPosition(), before + Vec3D(dt, 0, 0)) << "without the choice the field carries it";
}

TEST(ParticleMotion, AContactLeavesAParticleAtTheMarginWithItsVelocity) {
  MotionRig rig;
  rig.settings.collisions = CollisionMode::Boundary;
  rig.settings.collisionRadius = 0.125f;
  const OrlixParticle fast = rig.Add({2.5, 0.5, 2.5}, {0, -8, 0}, kBallistic), high = rig.Add({2.5, 4, 2.5});
  rig.settings.gravity = {};
  rig.Step();
  const double margin = 0.125 * MotionRig::kCell;
  EXPECT_DOUBLE_EQ(fast.GetPosition().y, MotionRig::kCell + margin);
  EXPECT_EQ(fast.GetVelocity().y, -8);
  EXPECT_TRUE(fast.HasFlag(ParticleFlag::Collided));
  EXPECT_FALSE(high.HasFlag(ParticleFlag::Collided));
  rig.settings.collisions = CollisionMode::None;
  rig.Step();
  EXPECT_LT(fast.GetPosition().y, MotionRig::kCell) << "nothing stops it";
  EXPECT_FALSE(fast.HasFlag(ParticleFlag::Collided)) << "the first sub-step of a frame clears it";
}

TEST(ParticleMotion, OneHitEndsTheIterations) {
  MotionRig rig;
  rig.settings.collisions = CollisionMode::Boundary;
  rig.settings.iterations = 4, rig.settings.collideFrom = 2;
  rig.settings.gravity = {};
  const OrlixParticle p = rig.Add({2.5, 2.5, 2.5}, {0, -24, 0}, kBallistic);
  const double dt = rig.settings.dt;
  // 1.5 m an iteration: beyond the floor in the second, which doesn't look, and found in the third.
  p.SetPosition({2.5, 2.5, 2.5});
  rig.Step();
  EXPECT_NEAR(p.GetPosition().y, MotionRig::kCell, 1e-9);
  const OrlixParticle slow = rig.Add({2.5, 4.5, 2.5}, {0, -2, 0}, kBallistic);
  rig.Step();
  EXPECT_DOUBLE_EQ(slow.GetPosition().y, 4.5 - 8 * dt);
}

TEST(ParticleMotion, ObstaclesStandInForTheBoundary) {
  MotionRig rig;
  ScalarGrid ball({12, 12, 12}, Vec3D(11) * 0.25, 0.25f, kGridNodalLevelset, Vec3D(1, 1, 1));
  test::FillSamples(ball, [](const Vec3D& p) { return (Length(p - Vec3D(5.5)) - 3) * 0.25; });
  const std::vector<ObstacleView> obstacles{{ball, 0.0}};
  EXPECT_FALSE(obstacles[0].reachesBeyond);
  rig.field.obstacles = obstacles;
  rig.settings.collisions = CollisionMode::ObstaclesFirst;
  rig.settings.gravity = {};
  const Vec3D centre = ball.space.simMin + Vec3D(5.5) * 0.25;
  const OrlixParticle in = rig.Add(centre + Vec3D(0.6, 0, 0)), out = rig.Add(centre + Vec3D(0.8, 0, 0));
  const OrlixParticle floor = rig.Add({0.5, 0.1, 0.5});
  rig.Step();
  EXPECT_NEAR(in.GetPosition().x, centre.x + 0.75, 0.03);
  EXPECT_TRUE(in.HasFlag(ParticleFlag::Collided));
  EXPECT_EQ(out.GetPosition(), centre + Vec3D(0.8, 0, 0));
  EXPECT_EQ(floor.GetPosition().y, 0.1) << "where there are obstacles the walls don't count";
  rig.field.obstacles = {};
  rig.Step();
  EXPECT_NEAR(floor.GetPosition().y, MotionRig::kCell, 1e-9);
  // A container turned inside out reaches beyond its box.
  for (std::int64_t c = 0; c < ball.count; ++c) ball[c] = -ball[c];
  EXPECT_TRUE(ObstacleView(ball, 0.0).reachesBeyond);
}

TEST(ParticleMotion, TheLastSubstepAgesAndKills) {
  MotionRig rig;
  rig.settings.gravity = {};
  const OrlixParticle ageless = rig.Add({2, 2, 2}), young = rig.Add({2, 2, 2}), old = rig.Add({2, 2, 2});
  const OrlixParticle inside = rig.Add({2, 0.1, 2}), start = rig.Add({2, 3, 2}, {1, 0, 0}, kBallistic);
  young.SetOrAddReal(PP::Age, 1.5), old.SetOrAddReal(PP::Age, 1);
  start.SetOrAddVector(PP::FramePosition, {});
  rig.settings.lastSubstep = false;
  rig.Step();
  EXPECT_EQ(old.GetRealOr(PP::Age, 0), 1);
  EXPECT_EQ(start.GetVectorOr(PP::FramePosition, {}), Vec3D(2, 3, 2));
  rig.settings.firstSubstep = false, rig.settings.lastSubstep = true, rig.settings.killInside = true;
  rig.Step();
  EXPECT_EQ(start.GetVectorOr(PP::FramePosition, {}), Vec3D(2, 3, 2)) << "of the frame, not of the sub-step";
  EXPECT_EQ(young.GetRealOr(PP::Age, 0), 0.5);
  const auto alive = [](const OrlixParticle& p) { return p.HasFlag(ParticleFlag::Alive); };
  EXPECT_TRUE(alive(ageless) && alive(young) && alive(start));
  EXPECT_FALSE(alive(old));
  EXPECT_FALSE(alive(inside));
  EXPECT_FALSE(ageless.Has(PP::Age));
  EXPECT_EQ(rig.list().TakeTally().lost, 1) << "walls alone swallow particles";
}

// The operators as nodes of a scene.

using test::GasScene;

// A box of a metre with still air and a group of particles, stepped a frame at a time.
struct ParticleScene : GasScene {
  ParticleScene()
      : GasScene({18, 18, 18}, 2),
        group(&Add("particlegroup", "Group")),
        advection(&Add("particle_advection", "Move")) {
    advection->Set(ParticleAdvection::kGroupId, LinkTo(*group));
    advection->Set(ParticleAdvection::kExtraIterationsId, std::int64_t(0));
    advection->Set(ParticleAdvection::kKindId, std::int64_t(PK_Diffuse));
  }
  // To the first frame that moves particles; what is added now moves in the next one.
  void Start() { StepThrough(0, frame); }
  void Next(int frames = 1) {
    StepThrough(frame + 1, frame + frames);
    frame += frames;
  }
  ParticleGroup& Group() { return *NodeOf<ParticleGroup>(*group); }
  ParticleList& List(int kind = PK_Diffuse) { return *Group().list(kind); }
  OrlixParticle AddParticle(const Vec3D& x, const Vec3D& v = {}, std::uint16_t flags = 0, int kind = PK_Diffuse) {
    BaseParticleData data;
    data.position = x, data.velocity = v;
    data.flags = static_cast<std::uint16_t>(data.flags | flags);
    return {&List(kind), List(kind).Append(1, data)};
  }
  double Dt() { return static_cast<double>(static_cast<float>(scene().info.substepDuration)); }

  BaseObject *group, *advection;
  int frame = 2;
};

TEST(ParticleAdvection, MovesItsKindThroughEachSolverUnlessACacheHoldsIt) {
  ParticleScene scene;
  scene.Start();
  const OrlixParticle own = scene.AddParticle({0.5, 0.5, 0.5}),
                      other = scene.AddParticle({0.5, 0.5, 0.5}, {}, 0, PK_Liquid);
  auto& grids = scene.Solver().velocity.grids;
  const auto blow = [&] {
    for (auto& grid : grids) grid->Fill(0);
    grids[0]->Fill(0.5);
  };
  blow();
  scene.Next();
  EXPECT_NEAR(own.GetPosition().x, 0.5 + 0.5 * scene.Dt(), 1e-12);
  EXPECT_EQ(other.GetPosition().x, 0.5);
  const double x = own.GetPosition().x;
  scene.Group().SetKindKept(PK_Diffuse, true);
  blow();
  scene.Next();
  EXPECT_EQ(own.GetPosition().x, x);
  scene.Group().SetKindKept(PK_Diffuse, false);
  scene.advection->Set(ParticleAdvection::kSolversId, scene.ListOf({scene.fluid}));
  scene.advection->Set(ParticleAdvection::kSolverModeId, ParticleAdvection::SolverMode::AllBut);
  blow();
  scene.Next();
  EXPECT_EQ(own.GetPosition().x, x) << "all solvers but the only one";
}

TEST(ParticleAdvection, ARiderIsSeenWithTheVelocityThatCarriesIt) {
  for (const int extraIterations : {0, 2}) {
    ParticleScene scene;
    scene.advection->Set(ParticleAdvection::kExtraIterationsId, extraIterations);
    scene.Start();
    const OrlixParticle rider = scene.AddParticle({0.3, 0.5, 0.5});
    rider.SetOrAddVector(PP::OldPosition, rider.GetPosition());
    for (const double speed : {0.5, 0.25, 1.0}) {
      auto& grids = scene.Solver().velocity.grids;
      for (auto& grid : grids) grid->Fill(0);
      grids[0]->Fill(speed);
      scene.Next();
      int seen = 0;
      scene.List().ForEachChunk(0, scene.List().count(), [&](const ParticleRows& rows) {
        EXPECT_NEAR(SeenVelocity(rows, scene.scene().info.substepDuration).Of(rows.begin).x, speed, 1e-6);
        ++seen;
      });
      EXPECT_EQ(seen, 1);
    }
  }
}

TEST(ParticleAdvection, ReportsWhoWallsSwallow) {
  ParticleScene scene;
  scene.advection->Set(ParticleAdvection::kCollisionsId, CollisionMode::None);
  scene.Start();
  scene.AddParticle({-1, 0.5, 0.5}), scene.AddParticle({0.5, 0.5, 0.5}),
      scene.AddParticle({0.5, 0.5, 0.5}).SetOrAddReal(PP::Age, 1);
  scene.Next();
  ASSERT_EQ(scene.reports.back().groups.size(), 1u);
  EXPECT_EQ(scene.reports.back().groups[0].lost, 1);
  EXPECT_EQ(scene.reports.back().groups[0].died, 2);
  EXPECT_EQ(scene.List().count(), 1);
}

TEST(ParticleAdvection, LeavesAloneWhomItsConstraintsShutOut) {
  ParticleScene scene;
  BaseObject& hot = scene.Add("constraint_particle_property", "Hot");
  hot.Set(1000, ParticleScene::LinkTo(scene.Add("property_temperature", "Temperature")));
  scene.advection->Set(kConstraintsId, ParticleScene::ListOf({&hot}));
  scene.advection->Set(ParticleAdvection::kMotionSourceId, MotionSource::Ballistic);
  scene.Start();
  constexpr int kParticles = 12;
  for (int n = 0; n < kParticles; ++n) {
    const OrlixParticle p = scene.AddParticle({0.5, 0.5, 0.5}, {0, 0, 1});
    p.SetOrAddReal(PP::Temperature, n % 3 != 1 ? 1 : 0);
    p.SetOrAddReal(PP::Age, 9);
  }
  scene.Next();
  ASSERT_EQ(scene.List().count(), kParticles);
  for (int n = 0; n < kParticles; ++n) {
    const OrlixParticle p(&scene.List(), n);
    EXPECT_NEAR(p.GetPosition().z, n % 3 != 1 ? 0.5 + scene.Dt() : 0.5, 1e-12) << n;
    EXPECT_EQ(p.GetRealOr(PP::Age, 0), n % 3 != 1 ? 8 : 9) << n;
  }
}

TEST(ParticleAdvection, NoParticleStaysInsideAMovingBody) {
  ParticleScene scene;
  scene.AddObstacle("Ball", "sphere", scene.Centre(), 0.2);
  scene.advection->Set(ParticleAdvection::kMotionSourceId, MotionSource::Ballistic);
  scene.advection->Set(ParticleAdvection::kCollisionsId, CollisionMode::ObstaclesFirst);
  scene.advection->Set(ParticleAdvection::kCollisionRadiusId, 0.0);
  scene.root->Set(RootSettings::kGravityId, Vec3D());
  scene.Start();
  std::vector<OrlixParticle> particles;
  for (double z = 0.2; z < 0.8; z += 0.05)
    particles.push_back(scene.AddParticle({0.85, 0.5, z}, {}, ParticleFlag::Ballistic));
  int pushed = 0;
  for (int step = 0; step < 12; ++step) {
    const Vec3D centre = scene.Centre() + Vec3D(0.02 * (step + 1), 0, 0);
    scene.Geometry("Ball").Set(kPositionId, centre);
    scene.Next();
    for (const OrlixParticle& p : particles) {
      pushed += p.HasFlag(ParticleFlag::Collided);
      ASSERT_GT(Length(p.GetPosition() - centre), 0.2 - 0.25 * scene.cellSize) << "within what the grid resolves";
    }
  }
  EXPECT_GT(pushed, 20);
  EXPECT_EQ(particles.front().GetPosition().x, 0.85) << "who wasn't in the way stays";
}

TEST(ParticleForces, SumsAccelerationsIntoAVelocityOrAProperty) {
  ParticleScene scene;
  scene.advection->Set(ParticleAdvection::kMotionSourceId, MotionSource::None);
  BaseObject& down = scene.Add("pforce_acceleration", "Down");
  BaseObject& across = scene.Add("pforce_acceleration", "Across");
  across.Set(ParticleForce_Acceleration::kStrengthId, 3.0),
      across.Set(ParticleForce_Acceleration::kDirectionId, Vec3D(5, 0, 0));
  BaseObject& forces = scene.Add("particle_forces", "Forces");
  forces.Set(ParticleForces::kForcesId, scene.ListOf({&down, &across}));
  BaseObject& property = scene.Add("property_vector", "Push");
  BaseObject& write = scene.Add("particle_forces", "Write");
  write.Set(ParticleForces::kForcesId, scene.ListOf({&across}));
  write.Set(ParticleForces::kTargetId, scene.LinkTo(property));
  write.Set(ParticleForces::kModeId, ParticleForces::Mode::Set);
  write.Set(ParticleForces::kPerStepId, false);
  scene.Start();
  const OrlixParticle p = scene.AddParticle({0.5, 0.5, 0.5}, {0, 1, 0}), other = scene.AddParticle({0.1, 0.5, 0.5});
  const PropertyKey key(76, OwnerOf(*scene.NodeOf<iProperty>(property)));
  p.SetOrAddVector(key, {9, 9, 9});
  const double dt = scene.scene().info.substepDuration;
  scene.Next(4);
  EXPECT_NEAR(Length(p.GetVelocity() - Vec3D(4 * 3 * dt, 1 - 4 * 9.81 * dt, 0)), 0, 1e-12);
  EXPECT_NEAR(Length(p.GetVectorOr(key, {}) - Vec3D(3, 0, 0)), 0, 1e-12) << "set, and per second";
  EXPECT_FALSE(other.Has(key));
}

// Densities of particles by their neighbours.

using test::TestScene;

class VolumeProperties : public testing::Test {
 protected:
  VolumeProperties() {
    s.root->Set(1002, 0.1);
    node.Set(1000, s.LinkTo(group));
    s.Step(0);
    MersenneTwister random(5);
    for (int n = 0; n < 400; ++n) {
      BaseParticleData data;
      data.position = Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * 0.5;
      if (n % 4 == 0) data.SetReal(PP::Mass, 2);
      List().Append(1, data);
    }
  }
  ParticleList& List() { return *s.NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }
  double SumAt(int n, Vec3D* centre = nullptr) {
    const double radius = 2.5 * s.scene().space.halfCell;
    double sum = 0;
    Vec3D places;
    for (int m = 0; m < List().count(); ++m) {
      const double d = Length(At(m).GetPosition() - At(n).GetPosition());
      const double weight = std::max(0.0, 1 - d * d / (radius * radius)) * At(m).GetRealOr(PP::Mass, 1);
      sum += weight, places += At(m).GetPosition() * weight;
    }
    if (centre) *centre = At(n).GetPosition() * 0.8 + places / sum * 0.2;
    return sum;
  }

  TestScene s;
  BaseObject &group = s.Add("particlegroup", "group"), &node = s.Add("pvaluetoproperty", "node");
};

TEST_F(VolumeProperties, DensityIsRelativeToTheDensestPlaceOfTheFirstStep) {
  node.Set(1003, true);
  s.Step(1);  // still at time 0
  double most = 0;
  for (int n = 0; n < 400; ++n) most = std::max(most, SumAt(n));
  for (int n = 0; n < 400; ++n) {
    Vec3D centre;
    const double sum = SumAt(n, &centre);
    EXPECT_NEAR(At(n).GetRealOr(PP::Density, -1), sum / most, 1e-12);
    EXPECT_NEAR(At(n).GetRealOr(PP::KernelSum, -1), sum, 1e-12);
    EXPECT_LT(Length(At(n).GetVectorOr(PP::SmoothedCentre, {}) - centre), 1e-12);
  }
  // Denser places later count as the densest; a lone particle has its own weight.
  for (int n = 0; n < 30; ++n) {
    BaseParticleData data;
    data.position = Vec3D(5, 5, 5);
    List().Append(1, data);
  }
  BaseParticleData lone;
  lone.position = Vec3D(9, 9, 9);
  List().Append(1, lone);
  s.StepThrough(2, 3);
  EXPECT_EQ(At(410).GetRealOr(PP::Density, -1), 1);
  EXPECT_NEAR(At(430).GetRealOr(PP::Density, -1), 1 / most, 1e-12);
}

TEST_F(VolumeProperties, WhatIsSwitchedOffIsTakenAndConstraintsLeaveParticlesOut) {
  s.Step(1);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  ball.Set(1000, s.LinkTo(centre)), ball.Set(1001, 30.0);
  node.Set(kConstraintsId, s.ListOf({&ball}));
  node.Set(1009, false);
  for (int n = 0; n < 400; ++n) At(n).SetReal(PP::Density, 7);
  s.Step(2);
  for (int n = 0; n < 400; ++n) {
    EXPECT_FALSE(At(n).Has(PP::KernelSum));
    EXPECT_EQ(At(n).GetRealOr(PP::Density, -1) == 7, Length(At(n).GetPosition()) >= 0.3) << n;
  }
}

}  // namespace
}  // namespace orlix
