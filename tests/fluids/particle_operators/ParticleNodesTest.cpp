// The operators as nodes of a scene.

#include <gtest/gtest.h>

#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/particle_operators/InstantOperator_Repulsion.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/particle_operators/ParticleForce_Acceleration.h"
#include "fluids/particle_operators/ParticleForce_Corrector.h"
#include "fluids/particle_operators/ParticleForce_SurfaceTension.h"
#include "fluids/particle_operators/ParticleForces.h"
#include "tests/support/GasScene.h"

namespace orlix {
namespace {

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

}  // namespace
}  // namespace orlix
