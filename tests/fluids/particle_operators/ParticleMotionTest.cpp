#include <gtest/gtest.h>

#include "tests/fluids/particle_operators/MotionRig.h"

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

}  // namespace
}  // namespace orlix
