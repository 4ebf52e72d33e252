// Thin sheets whose gaps are filled.

#include "fluids/particle_operators/ParticleSheet.h"

#include <gtest/gtest.h>

#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

constexpr double kCell = 0.1;
constexpr int kSide = 20;

// A flat sheet of particles a cell apart, which stretches along x.
class SheetScene : public test::TestScene {
 public:
  explicit SheetScene(double stretch, int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, kCell);
    node.Set(ParticleSheet::kGroupId, LinkTo(group));
    Step(0);
    for (int n = 0; n < kSide * kSide; ++n) {
      BaseParticleData data;
      data.position = Vec3D(n % kSide, n / kSide, 0) * kCell;
      data.velocity = Vec3D(data.position.x * stretch, 0, 0);
      data.SetReal(PP::Density, 0.15);
      data.SetReal(PP::Age, n % 2 ? 10 : 20);
      List().Append(1, data);
    }
  }
  ParticleList& List() { return *NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }
  double Mass() {
    double sum = 0;
    for (int n = 0; n < List().count(); ++n) sum += At(n).GetRealOr(PP::Mass, -1000);
    return sum;
  }
  BaseObject &group = Add("particlegroup", "Drops"), &node = Add("psheet", "node");
};

TEST(ParticleSheet, FillsGapsWhereASheetStretches) {
  const double gap = 0.8 * kCell / 2;
  test::SameForAnyWorkers([&](int workers) {
    SheetScene s(1, workers);
    s.Step(1);
    const int before = kSide * kSide, after = s.List().count();
    EXPECT_GT(after, before + 200);
    EXPECT_LT(after, 4 * before);
    EXPECT_NEAR(s.Mass(), before, 1e-3);
    std::vector<double> places;
    for (int n = before; n < after; ++n) {
      const Vec3D& x = s.At(n).GetPosition();
      EXPECT_TRUE(s.At(n).HasFlag(ParticleFlag::Inserted));
      EXPECT_EQ(x.z, 0);
      EXPECT_NEAR(s.At(n).GetVelocity().x, x.x, 1e-12);
      EXPECT_GT(s.At(n).GetRealOr(PP::Mass, 0), 0);
      EXPECT_GE(s.At(n).GetRealOr(PP::Age, 0), 10);
      EXPECT_LT(s.At(n).GetRealOr(PP::Anisotropy, 1), 0.01);
      for (int m = 0; m < n; ++m) EXPECT_GE(Length(s.At(m).GetPosition() - x), gap - 1e-9);
      places.push_back(x.x), places.push_back(x.y);
    }
    return places;
  });
}

TEST(ParticleSheet, LeavesAloneWhatMovesTogetherOrIsRound) {
  SheetScene closing(-1);
  closing.Step(1);
  EXPECT_EQ(closing.List().count(), kSide * kSide);
  closing.node.Set(ParticleSheet::kSeparatingOnlyId, std::int64_t(0));
  closing.Step(2);
  EXPECT_GT(closing.List().count(), kSide * kSide);
  SheetScene deep(1);
  for (int n = 0; n < deep.List().count(); ++n) deep.At(n).SetReal(PP::Density, 0.9);
  deep.Step(1);
  EXPECT_EQ(deep.List().count(), kSide * kSide);
}

// New particles that crowd, or that stand on others, go by and by; the first ones stay.
TEST(ParticleSheet, NewParticlesGoWhenTheyCrowd) {
  SheetScene s(1);
  s.Step(1);
  const int filled = s.List().count();
  MersenneTwister random(1);
  for (int n = 0; n < filled; ++n) {
    s.At(n).SetVelocity({});
    s.At(n).SetPosition(Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * (5 * kCell));
    s.At(n).SetReal(PP::Density, 0.5);
  }
  s.StepThrough(2, 12);
  EXPECT_LT(s.List().count(), filled);
  EXPECT_GE(s.List().count(), kSide * kSide);
  int first = 0;
  for (int n = 0; n < s.List().count(); ++n) first += !s.At(n).HasFlag(ParticleFlag::Inserted);
  EXPECT_EQ(first, kSide * kSide);
  EXPECT_LT(s.List().count() - first, (filled - first) / 20);
}

}  // namespace
}  // namespace orlix
