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
  explicit ParticleScene(int workers = 1)
      : GasScene({18, 18, 18}, workers),
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

TEST(ParticleOperators, TellWhereNothingHappens) {
  test::TestScene scene;
  scene.Add("particle_advection", "Move");
  scene.Add("particle_forces", "Forces");
  BaseObject& down = scene.Add("pforce_acceleration", "Down");
  down.Set(ParticleForce_Acceleration::kStrengthId, 0.0), down.Set(ParticleForce_Acceleration::kDirectionId, Vec3D());
  for (const char* type : {"pforce_tension", "pforce_correct"})
    scene.Add(type, type).Set(ParticleForce_SurfaceTension::kStrengthId, 0.0);
  scene.Add("iop_repulsion", "Bounce").Set(InstantOperator_Repulsion::kBounceId, 0.0);
  scene.Add("iop_spawn", "Burst").Set(InstantOperator_Spawn::kCountId, std::int64_t(0));
  scene.Step(0);
  std::vector<std::string> told;
  for (const auto& [node, text] : scene.warnings) {
    EXPECT_NE(text.find("; "), std::string::npos) << "a remedy";
    told.push_back(node);
  }
  const auto count = [&](const char* name) {
    return std::count(told.begin(), told.end(), std::string("Scene/") + name);
  };
  EXPECT_EQ(count("Move"), 2);
  EXPECT_EQ(count("Forces"), 2);
  EXPECT_EQ(count("Down"), 3);
  EXPECT_EQ(count("pforce_tension") + count("pforce_correct"), 4);
  EXPECT_EQ(count("Bounce") + count("Burst"), 2);
}

// All operators at once; particles hit a ball, burst, draw together and are kept apart.
std::vector<std::uint64_t> RunAll(int workers) {
  ParticleScene scene(workers);
  scene.AddObstacle("Ball", "sphere", scene.Centre(), 0.2);
  scene.advection->Set(ParticleAdvection::kExtraIterationsId, std::int64_t(2));
  scene.advection->Set(ParticleAdvection::kKillInsideId, false);
  scene.Add("iop_repulsion", "Bounce").Set(InstantOperator_Repulsion::kBounceId, 1.5);
  scene.Add("iop_spawn", "Burst");
  BaseObject& down = scene.Add("pforce_acceleration", "Down");
  BaseObject& noise = scene.Add("constraint_noise", "Noise");
  noise.Set(NoiseConstraint::kFeatureSizeId, 0.3);
  BaseObject& forces = scene.Add("particle_forces", "Forces");
  forces.Set(ParticleForces::kForcesId, scene.ListOf({&down}));
  forces.Set(kConstraintsId, scene.ListOf({&noise}));
  for (const char* type : {"pforce_tension", "pforce_correct"}) {
    BaseObject& object = scene.Add(type, type);
    object.Set(ParticleForce_SurfaceTension::kGroupId, scene.LinkTo(*scene.group));
    object.Set(std::string(type) == "pforce_tension" ? ParticleForce_SurfaceTension::kKindId
                                                     : ParticleForce_Corrector::kKindId,
               std::int64_t(PK_Diffuse));
    object.Set(kConstraintsId, scene.ListOf({&noise}));
    object.Set(ParticleForce_SurfaceTension::kStrengthId, 20.0);
  }
  scene.Start();
  BaseParticleData data;
  for (int n = 0; n < 800; ++n) {
    const double a = 0.1 + 0.8 * (n % 29) / 29, b = 0.1 + 0.8 * (n / 29) / 29;
    data.position = {a, 0.75 + 0.003 * (n % 7), b};
    data.velocity = {0, -3, 0};
    data.flags = static_cast<std::uint16_t>(ParticleFlag::Alive | (n % 3 == 0   ? 0
                                                                   : n % 3 == 1 ? ParticleFlag::Ballistic
                                                                                : ParticleFlag::Drag));
    scene.List().Append(1, data);
  }
  scene.Next(4);
  EXPECT_GT(scene.List().count(), 1000) << "there were children";
  std::vector<std::uint64_t> hashes;
  for (const SubstepReport& report : scene.reports) hashes.push_back(report.hash);
  return hashes;
}

TEST(ParticleOperatorsThreads, SameBitsForAnyNumberOfWorkers) {
  const std::vector<std::uint64_t> one = RunAll(1);
  EXPECT_GT(one.size(), 5u);
  for (const int workers : {2, 3, 8}) EXPECT_EQ(RunAll(workers), one) << workers;
}

}  // namespace
}  // namespace orlix
