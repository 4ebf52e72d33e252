// Particles that turn into others.

#include <gtest/gtest.h>

#include "fluids/particle_exchange/ParticleConverter.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::NodeBench;

class ConverterThreads : public testing::Test {
 protected:
  ConverterThreads() {
    object_.Set(1000, To(spray_)), object_.Set(1001, std::int64_t(PK_Liquid));
    object_.Set(1002, To(mist_)), object_.Set(1003, std::int64_t(PK_Diffuse));
    bench_.Link();
  }
  ParticleList& Spray() { return *bench_.Get<ParticleGroup>(spray_).list(PK_Liquid); }
  ParticleList& Mist() { return *bench_.Get<ParticleGroup>(mist_).list(PK_Diffuse); }
  void AddSpray(int count) {
    for (int n = 0; n < count; ++n) {
      BaseParticleData data;
      data.flags = ParticleFlag::Alive | ParticleFlag::Liquid | ParticleFlag::Ballistic;
      data.position = Vec3D(0.01 * n, 1, 2), data.velocity = Vec3D(n, 0, 0);
      if (n % 2) data.SetReal(PP::Temperature, 10 + n);
      data.SetReal({75, 9}, n);
      Spray().Append(1, data);
    }
  }
  int Living(const ParticleList& list) {
    int living = 0;
    for (int n = 0; n < list.count(); ++n) living += list.Flags(n) & ParticleFlag::Alive;
    return living;
  }
  void Run() {
    bench_.Link();
    auto& node = bench_.Get<ParticleConverter>(object_);
    node.Prepare();
    ProcessData data;
    node.Process(data);
    node.Finish();
  }
  static LinkValue To(const BaseObject& object) { return NodeBench::LinkTo(object); }

  NodeBench bench_{3};
  BaseObject &object_ = bench_.Add("particle_converter", "node"), &spray_ = bench_.Add("particlegroup", "spray"),
             &mist_ = bench_.Add("particlegroup", "mist");
};

TEST_F(ConverterThreads, OneToOneTakesTheDataAndMovesIt) {
  BaseObject& heat = bench_.Add("property_density", "density");
  heat.Set(1000, 0.5);
  object_.Set(1005, true), object_.Set(1014, bench_.ListOf({&heat}));
  AddSpray(5000);
  Run();
  ASSERT_EQ(Mist().count(), 5000);
  EXPECT_EQ(Living(Spray()), 0);
  for (int n = 0; n < 5000; ++n) {
    const OrlixParticle p(&Mist(), n);
    ASSERT_EQ(p.GetPosition(), Vec3D(0.01 * n, 1, 2));
    ASSERT_EQ(p.GetVectorOr(PP::OldPosition, {}), p.GetPosition());
    ASSERT_EQ(p.GetVelocity(), Vec3D(n, 0, 0));
    ASSERT_EQ(p.GetFlags(), ParticleFlag::Alive | ParticleFlag::Diffuse | ParticleFlag::Ballistic);
    ASSERT_EQ(p.GetRealOr(PP::Temperature, -1), n % 2 ? 10 + n : -1);
    ASSERT_EQ(p.GetRealOr({75, 9}, -1), n);
    ASSERT_EQ(p.GetRealOr(PP::Density, -1), 0.5);
    ASSERT_TRUE(p.Has(PP::Age));
  }
}

TEST_F(ConverterThreads, ARateGivesCopiesWithinACell) {
  BaseObject& rate = bench_.Add("particlemesh_emission_setting", "rate");
  rate.Set(1004, std::int64_t(30));  // 30/s in 0.125 s: 4
  object_.Set(1007, To(rate)), object_.Set(1006, false);
  AddSpray(100);
  Run();
  ASSERT_EQ(Mist().count(), 400);
  EXPECT_EQ(Living(Spray()), 100);
  for (int n = 0; n < 400; ++n) ASSERT_LE(Length(Mist().Position(n) - Spray().Position(n / 4)), NodeBench::kCell);
  object_.Set(1008, 0.5);
  Run();
  EXPECT_GE(Mist().count(), 400 + 200);
  EXPECT_LT(Mist().count(), 400 + 400);
}

TEST_F(ConverterThreads, RemovesWhatAConstraintChooses) {
  BaseObject &ball = bench_.Add("constraint_voxeldistance", "ball"), &centre = bench_.Add("null", "centre");
  centre.Set(kPositionId, Vec3D(0, 100, 200));
  ball.Set(1000, To(centre)), ball.Set(1001, 50.0);
  object_.Set(1003, std::int64_t(100)), object_.Set(1002, LinkValue());
  object_.Set(kConstraintsId, bench_.ListOf({&ball}));
  AddSpray(200);
  Run();
  for (int n = 0; n < 200; ++n) EXPECT_EQ((Spray().Flags(n) & ParticleFlag::Alive) == 0, n < 50) << n;
  // The bench's scene has no children, which it says.
  for (const auto& [node, text] : bench_.warnings) EXPECT_EQ(node, "Scene") << text;
}

}  // namespace
}  // namespace orlix
