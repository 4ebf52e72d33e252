#include <gtest/gtest.h>

#include <numbers>

#include "fluids/helpers/Duration.h"
#include "fluids/particle_operators/InstantOperator_Repulsion.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "tests/fluids/particle_operators/MotionRig.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::MotionRig;
using test::NodeBench;

constexpr std::uint16_t kBallistic = ParticleFlag::Ballistic;

// Particles that fly onto the floor of a box with one instant operator.
struct ContactBench : NodeBench {
  explicit ContactBench(const std::string& type) : object(Add(type, "operator")), group(Add("particlegroup", "group")) {
    rig.settings.collisions = CollisionMode::Boundary;
    rig.settings.gravity = {};
  }
  // After the settings.
  void Ready() {
    Link();
    node = &Get<iInstantOperator>(object);
    rig.context.group = &Get<ParticleGroup>(group);
    rig.context.list = rig.context.group->list(PK_Passive);
    rig.operators = {node};
  }
  void Step(int count = 1) {
    for (int step = 0; step < count; ++step) {
      node->Begin(*node);
      rig.Step();
      node->End();
    }
  }
  MotionRig rig;
  BaseObject& object;
  BaseObject& group;
  iInstantOperator* node = nullptr;
};

constexpr double kFloor = MotionRig::kCell;

TEST(Repulsion, ABounceOfTwoIsElasticAndOfOnePlusEKeepsE) {
  for (const double e : {1.0, 0.25, 0.0}) {
    ContactBench bench("iop_repulsion");
    bench.object.Set(InstantOperator_Repulsion::kBounceId, 1 + e);
    bench.Ready();
    const OrlixParticle p = bench.rig.Add({2.5, kFloor + 0.125, 2.5}, {1, -4, 0.5}, kBallistic);
    bench.Step();
    EXPECT_TRUE(p.HasFlag(ParticleFlag::Collided));
    EXPECT_NEAR(Length(p.GetVelocity() - Vec3D(1, 4 * e, 0.5)), 0, 1e-12) << e;
    EXPECT_NEAR(p.GetPosition().y, kFloor, 1e-12);
    bench.Step();
    EXPECT_NEAR(p.GetPosition().y, kFloor + 4 * e * bench.rig.settings.dt, 1e-12);
  }
}

TEST(Repulsion, FrictionOnASlopeComesToItsTerminalSpeed) {
  ContactBench bench("iop_repulsion");
  constexpr double kFriction = 0.25;
  bench.object.Set(InstantOperator_Repulsion::kBounceId, 1.0);
  bench.object.Set(InstantOperator_Repulsion::kFrictionId, kFriction);
  bench.Ready();
  // A plane through the box's middle that rises by three in four.
  const Vec3D normal(-0.6, 0.8, 0);
  ScalarGrid slope({21, 21, 21}, Vec3D(20) * 0.25, 0.25f, kGridNodalLevelset, Vec3D());
  test::FillSamples(slope, [&](const Vec3D& p) { return Dot(p - Vec3D(10), normal) * 0.25; });
  const std::vector<ObstacleView> obstacles{{slope, 0.0}};
  bench.rig.field.obstacles = obstacles;
  bench.rig.settings.collisions = CollisionMode::ObstaclesFirst;
  bench.rig.settings.gravity = {0, -8, 0};
  bench.rig.settings.dt = 1.0 / 256;
  const OrlixParticle p = bench.rig.Add({4, 3.625, 2.5}, {}, kBallistic);
  bench.Step(60);
  // v' = (v + g sin(slope) dt) (1 - friction)
  const double terminal = 8 * 0.6 * bench.rig.settings.dt * (1 - kFriction) / kFriction;
  EXPECT_NEAR(Length(p.GetVelocity() - Vec3D(-0.8, -0.6, 0) * terminal), 0, 1e-6 * terminal);
  EXPECT_NEAR(Dot(p.GetPosition() / 0.25 - Vec3D(10), normal), 0, 1e-9);
}

TEST(Repulsion, PositionalMovesThePlaceAndTellsTheForce) {
  ContactBench bench("iop_repulsion");
  bench.object.Set(InstantOperator_Repulsion::kBounceId, 2.0);
  bench.object.Set(InstantOperator_Repulsion::kPositionalId, true);
  bench.Ready();
  bench.rig.settings.ballistic = BallisticIntegrator::Verlet;
  const double dt = bench.rig.settings.dt;
  const OrlixParticle p = bench.rig.Add({2.5, kFloor + 0.125, 2.5}, {}, kBallistic);
  p.SetOrAddVector(PP::OldPosition, {2.5, kFloor + 0.375, 2.5});
  p.SetOrAddVector(PP::ExternalForce, {});
  bench.Step();
  // It was on its way by -0.25; the step that led into the floor is turned round from there.
  EXPECT_NEAR(p.GetPosition().y, kFloor + 0.5, 1e-12);
  EXPECT_NEAR(p.GetVectorOr(PP::ExternalForce, {}).y, 0.5 / dt, 1e-9);
}

TEST(Repulsion, IsWeighedByDurationAndConstraints) {
  ContactBench bench("iop_repulsion");
  BaseObject& duration = bench.Add("duration", "later");
  duration.Set(Duration::kStartId, 2.0);  // the bench stands at one second
  bench.object.Set(InstantOperator_Repulsion::kActInId, NodeBench::LinkTo(duration));
  bench.object.Set(InstantOperator_Repulsion::kBounceId, 2.0);
  bench.Ready();
  const OrlixParticle p = bench.rig.Add({2.5, kFloor + 0.125, 2.5}, {0, -4, 0}, kBallistic);
  bench.Step();
  EXPECT_EQ(p.GetVelocity().y, -4);
}

// --- spawn

struct SpawnBench : ContactBench {
  SpawnBench() : ContactBench("iop_spawn") {
    for (const int variation : {1003, 1005, 1007, 1009}) object.Set(variation, 0.0);
    rig.settings.gravity = {0, -8, 0};
  }
  void ReadyWithGravity() {
    Ready();
    scene().gravity = rig.settings.gravity;
  }
  OrlixParticle AddFalling(double x, std::uint16_t flags = kBallistic) {
    return rig.Add({x, kFloor + 0.125, 2.5}, {0, -4, 0}, flags);
  }
};

TEST(Spawn, ChildrenLeaveInAConeAboutTheNormal) {
  SpawnBench bench;
  bench.object.Set(InstantOperator_Spawn::kCountId, std::int64_t(5));
  bench.object.Set(InstantOperator_Spawn::kLifeId, std::int64_t(30));
  bench.object.Set(InstantOperator_Spawn::kAngleId, std::numbers::pi / 6);
  bench.object.Set(InstantOperator_Spawn::kSpeedId, 3.0);
  bench.ReadyWithGravity();
  const OrlixParticle parent = bench.AddFalling(2.5);
  parent.SetOrAddReal(PP::Age, 7);
  parent.SetOrAddReal(PP::Temperature, 700);
  bench.Step();
  ASSERT_EQ(bench.rig.list().count(), 6);
  EXPECT_TRUE(parent.HasFlag(ParticleFlag::Spawned));
  const double dt = bench.rig.settings.dt, arrival = -4 - 8 * dt;
  Vec3D sum;
  for (int i = 1; i < 6; ++i) {
    const OrlixParticle child(&bench.rig.list(), i);
    const Vec3D thrown = child.GetVelocity() - Vec3D(0, arrival - 8 * dt, 0);
    EXPECT_NEAR(Length(thrown), 3, 1e-12) << "the speed, for a mass of 1";
    EXPECT_NEAR(thrown.y, 3 * std::cos(std::numbers::pi / 6), 1e-12);
    EXPECT_NEAR(Length(child.GetPosition() - Vec3D(2.5, kFloor, 2.5) - child.GetVelocity() * dt), 0, 1e-12);
    EXPECT_EQ(child.GetRealOr(PP::Age, 0), 30);
    EXPECT_EQ(child.GetRealOr(PP::Temperature, 0), 700);
    EXPECT_TRUE(child.HasFlag(ParticleFlag::Spawned) && child.HasFlag(kBallistic));
    EXPECT_FALSE(child.Has(PP::ExternalForce));
    sum += thrown;
  }
  EXPECT_NEAR(Length(Vec3D(sum.x, 0, sum.z)), 0, 1e-12) << "they stand evenly about the normal";
  bench.Step(3);
  EXPECT_EQ(bench.rig.list().count(), 6) << "nobody bursts twice";
}

TEST(Spawn, ALiquidsChildrenHaveOnlyWhatThrowsThem) {
  SpawnBench bench;
  bench.object.Set(InstantOperator_Spawn::kCountId, std::int64_t(1));
  bench.object.Set(InstantOperator_Spawn::kAngleId, 0.0);
  bench.object.Set(InstantOperator_Spawn::kSpeedId, 2.0);
  bench.ReadyWithGravity();
  bench.AddFalling(2.5, kBallistic | ParticleFlag::Liquid);
  bench.Step();
  ASSERT_EQ(bench.rig.list().count(), 2);
  const OrlixParticle child(&bench.rig.list(), 1);
  EXPECT_NEAR(Length(child.GetVelocity() - Vec3D(0, 2, 0)), 0, 1e-12);
  EXPECT_FALSE(child.Has(PP::Age)) << "its parent had none";
}

TEST(Spawn, ParentsOfSeveralGroupsInOnePassKeepTheirChildren) {
  SpawnBench bench;
  bench.object.Set(InstantOperator_Spawn::kCountId, std::int64_t(2));
  BaseObject& added = bench.Add("particlegroup", "other");
  bench.ReadyWithGravity();
  for (int i = 0; i < 5; ++i) bench.AddFalling(2.5).SetOrAddReal(PP::Temperature, 10);
  bench.node->Begin(*bench.node);
  bench.rig.Step();
  bench.rig.context.group = &bench.Get<ParticleGroup>(added);
  ParticleList& mine = bench.rig.list();
  bench.rig.context.list = bench.rig.context.group->list(PK_Passive);
  bench.AddFalling(2.5).SetOrAddReal(PP::Temperature, 20);
  bench.rig.Step();
  bench.node->End();
  ASSERT_EQ(mine.count(), 5 + 10);
  ASSERT_EQ(bench.rig.list().count(), 1 + 2);
  EXPECT_EQ(OrlixParticle(&mine, 14).GetRealOr(PP::Temperature, 0), 10);
  EXPECT_EQ(OrlixParticle(&bench.rig.list(), 2).GetRealOr(PP::Temperature, 0), 20);
}

TEST(Spawn, CountsVaryWithinTheirShareAndInTheOrderOfParents) {
  SpawnBench bench;
  bench.object.Set(InstantOperator_Spawn::kCountId, std::int64_t(20));
  bench.object.Set(InstantOperator_Spawn::kCountVariationId, 0.5);
  bench.ReadyWithGravity();
  constexpr int kParents = 200;
  for (int i = 0; i < kParents; ++i) bench.AddFalling(1 + 0.01 * i);
  bench.Step();
  std::vector<int> counts(kParents);
  double last = 0;
  for (int i = kParents; i < bench.rig.list().count(); ++i) {
    // Children inherit nothing that tells their parent but the place.
    const OrlixParticle child(&bench.rig.list(), i);
    const double from = child.GetPosition().x - child.GetVelocity().x * bench.rig.settings.dt;
    EXPECT_GE(from, last - 1e-9);
    last = from;
    ++counts[static_cast<std::size_t>(std::lround((from - 1) * 100))];
  }
  const auto [least, most] = std::minmax_element(counts.begin(), counts.end());
  EXPECT_GE(*least, 10);
  EXPECT_LE(*most, 20);
  EXPECT_GT(*most - *least, 5) << "the parents differ";
  const double mean = double(bench.rig.list().count() - kParents) / kParents;
  EXPECT_NEAR(mean, 14.5, 1);
}

}  // namespace
}  // namespace orlix
