// Values from grids to particles and back.

#include <gtest/gtest.h>

#include "fluids/channels/VectorChannels.h"
#include "fluids/particle_exchange/GridToParticles.h"
#include "fluids/particle_exchange/ParticleConverter.h"
#include "fluids/particle_exchange/ParticleToGridEmitter.h"
#include "globals/Random.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::FillCells;
using test::NodeBench;
using test::SamplePlace;

constexpr VecInt3D kCells{14, 12, 10};
constexpr double h = NodeBench::kCell;

// A node of one type, run by hand.
class OneNode : public testing::Test {
 protected:
  explicit OneNode(const char* type) : object_(bench_.Add(type, "node")) {}
  void Run() {
    bench_.Link();
    auto& node = bench_.Get<iObject>(object_);
    node.Prepare();
    ProcessData data;
    node.Process(data);
    node.Finish();
  }
  static LinkValue To(const BaseObject& object) { return NodeBench::LinkTo(object); }

  NodeBench bench_{3};
  BaseObject& object_;
};

// With a group of particles.
class Exchange : public OneNode {
 protected:
  explicit Exchange(const char* type) : OneNode(type) {}
  ParticleList& List(int kind = PK_Passive) { return *bench_.Get<ParticleGroup>(group_).list(kind); }
  OrlixParticle AddParticle(const Vec3D& x, BaseParticleData data = {}) {
    data.position = x;
    return {&List(), List().Append(1, data)};
  }
  void AddScattered(int count) {
    MersenneTwister random(3);
    for (int n = 0; n < count; ++n) {
      BaseParticleData data;
      if (n % 2) data.SetReal(PP::Mass, random.Uniform() + 0.5);
      if (n % 3 == 0) data.SetReal(PP::Radius, random.Uniform());
      data.SetReal(PP::Temperature, 100 * random.Uniform());
      AddParticle(Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * Vec3D(kCells) * h, data);
    }
  }
  BaseObject& group_ = bench_.Add("particlegroup", "group");
};

class ToParticles : public Exchange {
 protected:
  ToParticles() : Exchange("particle_gridtoparticles") {
    object_.Set(1000, bench_.ListOf({&group_}));
    object_.Set(1001, To(smoke_));
    object_.Set(1004, To(heat_));
    heat_.Set(2001, std::int64_t(PP::Temperature));
  }
  void Ready() {
    bench_.Fit(kCells);
    FillCells(bench_.GridOf(smoke_), [&](int i, int j, int k) { return Linear(Centre(i, j, k)); });
    auto& flow = bench_.Get<VectorGridChannel>(flow_);
    for (int c = 0; c < 3; ++c) {
      FillCells(*flow.grids[static_cast<std::size_t>(c)],
                [&](int i, int j, int k) { return Centre(i, j, k)[c] * (c + 1) - 1; });
    }
  }
  static Vec3D Centre(int i, int j, int k) { return Vec3D(i + 0.5, j + 0.5, k + 0.5) * h; }
  static double Linear(const Vec3D& p) { return 3 + 2 * p.x - p.y + 4 * p.z; }
  OrlixParticle Warm(const Vec3D& x) {
    BaseParticleData data;
    data.SetReal(PP::Temperature, -1);
    return AddParticle(x, data);
  }

  BaseObject &smoke_ = bench_.Add("channel_scalar", "smoke"), &flow_ = bench_.Add("channel_vector", "flow"),
             &heat_ = bench_.Add("property_scalar", "heat");
};

TEST_F(ToParticles, EveryInterpolationButTheBlurGivesALinearFieldExactly) {
  Ready();
  for (const int mode : {0, 2, 3}) {
    object_.Set(1006, std::int64_t(mode));
    List().Clear();
    for (int n = 0; n < 200; ++n) Warm(Vec3D(0.8 + 0.005 * n, 0.7 + 0.004 * n, 0.6 + 0.003 * n));
    Run();
    for (int n = 0; n < 200; ++n) {
      const OrlixParticle p(&List(), n);
      ASSERT_NEAR(p.GetRealOr(PP::Temperature, 0), Linear(p.GetPosition()), 1e-12) << mode;
    }
  }
  // A B-spline gives linear fields, too; the cosine doesn't but stays between the samples.
  object_.Set(1006, std::int64_t(1));
  Run();
  for (int n = 0; n < 200; ++n) {
    const OrlixParticle p(&List(), n);
    ASSERT_NEAR(p.GetRealOr(PP::Temperature, 0), Linear(p.GetPosition()), 0.5);
  }
}

TEST_F(ToParticles, OnlyWhoIsInsideAndHasThePropertyGetsAValue) {
  const OrlixParticle outside = (Ready(), Warm(Vec3D(-0.1, 1, 1)));
  const OrlixParticle bare = AddParticle({1, 1, 1});
  Run();
  EXPECT_EQ(outside.GetRealOr(PP::Temperature, 0), -1);
  EXPECT_FALSE(bare.Has(PP::Temperature));
}

TEST_F(ToParticles, TargetsTakeWhatTheSourceHas) {
  BaseObject &own = bench_.Add("property_state", "own"), &colour = bench_.Add("property_vector", "colour");
  BaseObject& velocity = bench_.Add("property_vector", "velocity");
  colour.Set(2001, std::int64_t(PP::Color)), velocity.Set(2001, std::int64_t(PP::Velocity));
  Ready();
  const PropertyKey key{75, OwnerOf(bench_.Get<iBase>(own))};
  BaseParticleData data;
  data.SetReal(PP::Temperature, 0), data.SetVector(PP::Color, {}), data.SetState(key, false);
  const Vec3D place(1, 1.5, 2);
  const OrlixParticle p = AddParticle(place, data);
  const Vec3D flow(0, 2, 5);
  const auto give = [&](const BaseObject& source, const BaseObject& target) {
    object_.Set(1001, To(source)), object_.Set(1004, To(target));
    Run();
  };
  give(flow_, heat_);
  EXPECT_NEAR(p.GetRealOr(PP::Temperature, 0), Length(flow), 1e-12);
  give(flow_, velocity);
  EXPECT_LT(Length(p.GetVelocity() - flow), 1e-12);
  give(smoke_, colour);
  EXPECT_LT(Length(p.GetVectorOr(PP::Color, {}) - Vec3D(Linear(place))), 1e-12);
  give(flow_, own);
  EXPECT_TRUE(p.GetStateOr(key, false));
  for (auto& grid : bench_.Get<VectorGridChannel>(flow_).grids) grid->Fill(0);
  give(flow_, own);
  EXPECT_FALSE(p.GetStateOr(key, true)) << "a vector of exactly zero";
}

class ToGridThreads : public Exchange {
 protected:
  ToGridThreads() : Exchange("properties_particles") {
    smoke_.Set(1051, 1e9);
    object_.Set(1000, To(group_));
    object_.Set(1002, bench_.ListOf({&pair_}));
    pair_.Set(1000, To(smoke_)), pair_.Set(1001, 3.0);
  }
  void Ready() {
    bench_.Fit(kCells);
    bench_.GridOf(smoke_).Fill(0);
  }
  // The mean at a cell over all particles nearer than radius, one by one.
  double MeanAt(const Vec3D& place, double radius, bool useHeat, const SplineData* falloff = nullptr) {
    double sum = 0;
    int count = 0;
    for (int n = 0; n < List().count(); ++n) {
      const OrlixParticle p(&List(), n);
      const double d = Length(p.GetPosition() - place);
      if (!(d < radius)) continue;
      const double weight = p.GetRealOr(PP::Mass, 1) * p.GetRealOr(PP::Radius, radius) / radius;
      sum += (useHeat ? p.GetRealOr(PP::Temperature, 0) : 3) * weight * (falloff ? falloff->ValueAt(d / radius) : 1);
      ++count;
    }
    return count > 0 ? sum / count : 0;
  }
  template <class F>
  int ForCells(F&& f) {
    const ScalarGrid& grid = bench_.GridOf(smoke_);
    int filled = 0;
    for (int k = 0; k < kCells.z; ++k) {
      for (int j = 0; j < kCells.y; ++j) {
        for (int i = 0; i < kCells.x; ++i) filled += grid(i, j, k) != 0, f(SamplePlace(grid, i, j, k), grid(i, j, k));
      }
    }
    return filled;
  }

  BaseObject &smoke_ = bench_.Add("channel_scalar", "smoke"), &pair_ = bench_.Add("channelvalue", "pair");
};

TEST_F(ToGridThreads, EachCellGetsTheMeanOfTheParticlesNearIt) {
  BaseObject& heat = bench_.Add("property_scalar", "heat");
  heat.Set(2001, std::int64_t(PP::Temperature));
  const SplineKnot knots[] = {{0, 1}, {1, 0.25}};
  const SplineData falloff(knots);
  for (const bool useHeat : {false, true}) {
    for (const bool curved : {false, true}) {
      pair_.Set(1004, useHeat ? To(heat) : LinkValue());
      object_.Set(1003, std::int64_t(curved ? 2 : 0));
      object_.Set(1004, SplineValue(std::make_shared<SplineData>(falloff)));
      Ready();
      List().Clear();
      AddScattered(150);
      Run();
      const int filled = ForCells([&](const Vec3D& place, double value) {
        const double mean = MeanAt(place, 1.4 * h, useHeat, curved ? &falloff : nullptr);
        ASSERT_NEAR(value, mean, 1e-10);
      });
      EXPECT_GT(filled, 300);
      EXPECT_LT(filled, 1600) << "cells without particles keep what they have";
    }
  }
}

TEST_F(ToGridThreads, ValuesForASecondTakeTheSubStep) {
  object_.Set(1007, true);
  Ready();
  AddParticle({1.1, 1.1, 1.1});
  Run();
  ForCells([&](const Vec3D&, double value) { EXPECT_TRUE(value == 0 || value == 3 * 0.125); });
}

TEST_F(ToGridThreads, ConstraintsWeighCellsOrParticles) {
  BaseObject &ball = bench_.Add("constraint_voxeldistance", "ball"), &centre = bench_.Add("null", "centre");
  centre.Set(kPositionId, Vec3D(150, 150, 100));
  ball.Set(1000, To(centre)), ball.Set(1001, 100.0);
  object_.Set(kConstraintsId, bench_.ListOf({&ball}));
  const auto share = [](const Vec3D& p) { return std::max(0.0, 1 - Length(p - Vec3D(1.5, 1.5, 1))); };
  Ready();
  const Vec3D at(1.6, 1.4, 0.9);
  AddParticle(at);
  Run();
  EXPECT_GT(ForCells([&](const Vec3D& place, double value) {
              EXPECT_NEAR(value, Length(place - at) < 1.4 * h ? 3 * share(place) : 0, 1e-12);
            }),
            8);
  object_.Set(1013, std::int64_t(1));
  Ready();
  Run();
  ForCells([&](const Vec3D& place, double value) {
    EXPECT_NEAR(value, Length(place - at) < 1.4 * h ? 3 * share(at) : 0, 1e-12);
  });
}

TEST_F(ToGridThreads, VectorsGoIntoVectorChannels) {
  BaseObject &flow = bench_.Add("channel_vector", "flow"), &velocity = bench_.Add("property_vector", "velocity");
  flow.Set(1050, Vec3D(-9)), flow.Set(1051, Vec3D(9));
  velocity.Set(2001, std::int64_t(PP::Velocity));
  pair_.Set(1000, To(flow)), pair_.Set(1004, To(velocity));
  Ready();
  BaseParticleData data;
  data.velocity = {1, -2, 3};
  AddParticle({1.125, 1.125, 1.125}, data);
  Run();
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid& grid = *bench_.Get<VectorGridChannel>(flow).grids[static_cast<std::size_t>(c)];
    EXPECT_EQ(grid(4, 4, 4), data.velocity[c]);
    EXPECT_EQ(grid(5, 4, 4), data.velocity[c]);
    EXPECT_EQ(grid(6, 4, 4), 0);
  }
}

// Particles that turn into others.

using test::NodeBench;

class ConverterThreads : public OneNode {
 protected:
  ConverterThreads() : OneNode("particle_converter") {
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
  BaseObject &spray_ = bench_.Add("particlegroup", "spray"), &mist_ = bench_.Add("particlegroup", "mist");
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
