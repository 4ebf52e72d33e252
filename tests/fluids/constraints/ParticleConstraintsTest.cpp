// The constraints that read particles.

#include <gtest/gtest.h>

#include "fluids/constraints/Constraint.h"
#include "fluids/particles/ParticleGroup.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

class ParticleConstraints : public testing::Test {
 protected:
  // A row of liquid particles one cell apart, from the origin along x.
  BaseObject& Make(const std::string& type, int particles = 10) {
    group_ = &scene_.Add("particlegroup", "Drops");
    BaseObject& object = scene_.Add(type, "constraint");
    if (type != "constraint_particle_collision") object.Set(1000, test::TestScene::LinkTo(*group_));
    scene_.Step(0);
    h_ = scene_.scene().space.cellSize;
    auto& group = *scene_.NodeOf<ParticleGroup>(*group_);
    for (int i = 0; i < particles; ++i) group.NewParticle(PK_Liquid).SetPosition({i * h_, 0, 0});
    return object;
  }
  Constraint& Ready(const BaseObject& object) {
    auto& constraint = *scene_.NodeOf<Constraint>(object);
    constraint.ReadParameters();
    constraint.ResolveLinks();
    constraint.Prepare(nullptr);
    return constraint;
  }
  double At(const BaseObject& object, const Vec3D& position, bool goesOn = true) {
    double amount = 1;
    EXPECT_EQ(Ready(object).Evaluate(position, amount, nullptr, 0), goesOn);
    return amount;
  }
  OrlixParticle Particle(int i) { return scene_.NodeOf<ParticleGroup>(*group_)->At(PK_Liquid, i); }
  double Of(const BaseObject& object, const OrlixParticle& particle, bool goesOn = true) {
    double amount = 1;
    EXPECT_EQ(Ready(object).EvaluateParticle(particle.GetPosition(), amount, nullptr, 0, &particle), goesOn);
    return amount;
  }

  test::TestScene scene_;
  BaseObject* group_ = nullptr;
  double h_ = 0;
};

TEST_F(ParticleConstraints, DistanceFallsOffFromTheNearestParticle) {
  BaseObject& object = Make("constraint_particledistance");
  object.Set(1001, 4.0);
  object.Set(1103, 0.5);
  EXPECT_EQ(At(object, {3 * h_, 0, 0}), 0.5);
  EXPECT_NEAR(At(object, {3 * h_, h_, 0}), 0.5 * 0.75, 1e-12);
  EXPECT_EQ(At(object, {3 * h_, 4 * h_, 0}, false), 0);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(At(object, {3 * h_, 0, 0}, false), 0);
  EXPECT_EQ(At(object, {3 * h_, 40 * h_, 0}), 0.5);
  object.Set(1000, LinkValue());
  EXPECT_EQ(At(object, {}), 1);
}

TEST_F(ParticleConstraints, CountRampsBetweenItsLimits) {
  BaseObject& object = Make("constraint_particlecount", 200);
  object.Set(1001, 2.5);  // five particles of the row, and itself
  object.Set(1005, std::int64_t(1));
  object.Set(1004, std::int64_t(9));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 0.5);
  EXPECT_EQ(At(object, {-2 * h_, 0, 0}, false), 0);  // one
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(At(object, {-2 * h_, 0, 0}), 1);
  object.Set(1100, std::int64_t(0));
  object.Set(1004, std::int64_t(3));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
  object.Set(1007, std::int64_t(0));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}, false), 0);  // crowded
  object.Set(1006, std::int64_t(0));
  object.Set(1004, std::int64_t(6));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
  object.Set(1001, 1000.0);
  object.Set(1004, std::int64_t(199));  // more than a query gives by itself
  EXPECT_EQ(At(object, {50 * h_, 0, 0}, false), 0);
  object.Set(1004, std::int64_t(200));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
}

TEST_F(ParticleConstraints, AttributePassesParticlesInTheState) {
  BaseObject& object = Make("constraint_particle_collision");
  EXPECT_EQ(At(object, {}), 1);
  EXPECT_EQ(Of(object, Particle(1), false), 0);
  Particle(1).SetFlag(ParticleFlag::Collided, true);
  EXPECT_EQ(Of(object, Particle(1)), 1);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(Of(object, Particle(1), false), 0);
  EXPECT_EQ(Of(object, Particle(2)), 1);
  object.Set(1000, std::int64_t(0));
  EXPECT_EQ(Of(object, Particle(2), false), 0);
  double amount = 1;
  EXPECT_TRUE(Ready(object).EvaluateParticle({}, amount, nullptr, 0, nullptr));
  EXPECT_TRUE(Ready(object).WorksOnParticles());
}

TEST_F(ParticleConstraints, PropertyRampsOverTheParticlesOwnValue) {
  const BaseObject& heat = scene_.Add("property_temperature", "heat");
  const BaseObject& own = scene_.Add("property_vector", "own");
  const BaseObject& wet = scene_.Add("property_state", "wet");
  BaseObject& object = Make("constraint_particle_property");
  object.Set(1000, test::TestScene::LinkTo(heat));
  object.Set(1002, 0.5);
  object.Set(1003, 2.5);
  EXPECT_EQ(Of(object, Particle(0)), 0.25);  // 1 without it
  Particle(0).SetOrAddReal(PP::Temperature, 2);
  EXPECT_EQ(Of(object, Particle(0)), 0.75);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(Of(object, Particle(0)), 0.25);
  object.Set(1100, std::int64_t(0));
  object.Set(1000, test::TestScene::LinkTo(own));
  EXPECT_NEAR(Of(object, Particle(0)), (std::sqrt(3.0) - 0.5) / 2, 1e-12);
  Particle(0).SetOrAddVector({76, own.creationNumber()}, {0, 3, 4});
  Particle(1).SetOrAddVector({76, 12345}, {0, 3, 4});
  EXPECT_EQ(Of(object, Particle(0)), 1);
  EXPECT_LT(Of(object, Particle(1)), 0.7);  // another node's value
  object.Set(1000, test::TestScene::LinkTo(wet));
  EXPECT_EQ(Of(object, Particle(0)), 0);
  Particle(0).SetOrAddState({75, wet.creationNumber()}, true);
  object.Set(1103, 0.5);
  EXPECT_EQ(Of(object, Particle(0)), 1);  // and no further factor
  EXPECT_EQ(At(object, {}), 1);
}

TEST_F(ParticleConstraints, AChainAsksForTheParticle) {
  BaseObject& object = Make("constraint_particle_collision");
  BaseObject& near = scene_.Add("constraint_particledistance", "near");
  near.Set(1000, test::TestScene::LinkTo(*group_));
  near.Set(1001, 4.0);
  scene_.Step(1);
  OrlixParticle p = scene_.NodeOf<ParticleGroup>(*group_)->NewParticle(PK_Liquid);
  p.SetPosition({0, 2 * h_, 0});
  p.SetFlag(ParticleFlag::Collided, true);
  scene_.NodeOf<ParticleGroup>(*group_)->SetKindDirty(PK_Liquid);
  Constraint* chain[] = {&Ready(object), &Ready(near)};
  double amount = 2;
  EvaluateChain(chain, p.GetPosition(), amount, nullptr, 0, p);
  EXPECT_EQ(amount, 2);  // it is its own nearest
  p.SetFlag(ParticleFlag::Collided, false);
  EvaluateChain(chain, p.GetPosition(), amount, nullptr, 0, p);
  EXPECT_EQ(amount, 0);
}

}  // namespace
}  // namespace orlix
