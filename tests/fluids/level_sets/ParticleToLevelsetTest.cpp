#include "fluids/level_sets/ParticleToLevelset.h"

#include <gtest/gtest.h>

#include "tests/support/TestScene.h"

namespace orlix {
namespace {

// Liquid in a box of cells of a quarter metre.
struct Liquid {
  explicit Liquid(int workers = 2)
      : scene(workers),
        target(kCells, Vec3D(kCells) * 0.25, 0.25f, kGridLevelset, Vec3D()),
        nodes(kCells + VecInt3D(1, 1, 1), Vec3D(kCells) * 0.25, 0.25f, kGridNodalLevelset, Vec3D()) {
    const BaseObject& object = scene.Add("particlegroup", "Liquid");
    scene.Step(0);
    group = scene.NodeOf<ParticleGroup>(object);
    nodes.Fill(1);
    target.Fill(123);
  }
  void Add(const VecInt3D& cell, int count, std::uint16_t flags = 0, double density = 0) {
    BaseParticleData data;
    data.position = (Vec3D(cell) + Vec3D(0.5)) * 0.25;
    data.flags = static_cast<std::uint16_t>(data.flags | flags);
    if (density != 0) data.SetReal(PP::Density, density);
    group->list(PK_Liquid)->Append(count, data);
  }
  void Build() {
    ParticleSort sort;
    sort.Configure(PK_Liquid, target.space, 16);
    sort.Sort(std::vector<ParticleGroup*>{group}, false, scene.pool);
    levelSet.Build(scene.pool, scratch, sort, nodes, target);
  }

  static constexpr VecInt3D kCells{12, 10, 9};
  test::TestScene scene;
  ParticleGroup* group = nullptr;
  ScratchPool scratch;
  ScalarGrid target, nodes;
  ParticleToLevelset levelSet;
};

constexpr double kHalf = 0.125;

TEST(ParticleToLevelset, ACellNeedsMoreThanTheMinimumWithoutWhatASheetInserted) {
  Liquid liquid;
  liquid.Add({3, 3, 3}, 5), liquid.Add({8, 3, 3}, 4), liquid.Add({3, 8, 3}, 4);
  liquid.Add({3, 8, 3}, 3, ParticleFlag::Inserted);
  liquid.Build();
  EXPECT_EQ(liquid.target(3, 3, 3), -kHalf);
  EXPECT_EQ(liquid.target(4, 4, 3), kHalf) << "the surface lies between";
  EXPECT_EQ(liquid.target(8, 3, 3), -kHalf + 5 * 0.25);
  EXPECT_EQ(liquid.target(3, 8, 3), -kHalf + 5 * 0.25);
  EXPECT_EQ(liquid.target(0, 0, 0), -kHalf + 3 * 0.25) << "distances reach the border";
  liquid.levelSet.minimumCount = 0;
  liquid.Build();
  EXPECT_EQ(liquid.target(8, 3, 3), -kHalf);
}

TEST(ParticleToLevelset, TheInsideIsNegativeAndWithoutParticlesAllIsFar) {
  Liquid liquid;
  liquid.Build();
  for (std::int64_t c = 0; c < liquid.target.count; ++c) ASSERT_EQ(liquid.target[c], ParticleToLevelset::kFar);
  liquid.levelSet.minimumCount = 0;
  for (int k = 2; k < 7; ++k) {
    for (int j = 2; j < 7; ++j) {
      for (int i = 2; i < 7; ++i) liquid.Add({i, j, k}, 1);
    }
  }
  liquid.Build();
  EXPECT_EQ(liquid.target(2, 4, 4), -kHalf);
  EXPECT_EQ(liquid.target(3, 4, 4), -kHalf) << "one step from a seed, signed";
  EXPECT_EQ(liquid.target(4, 4, 4), -3 * kHalf);
}

TEST(ParticleToLevelset, ByMassACellIsWhatItsParticlesLackOfFull) {
  Liquid liquid;
  liquid.levelSet.mode = ParticleToLevelset::Mass;
  liquid.Add({3, 3, 3}, 4), liquid.Add({5, 3, 3}, 2, 0, 0.75);
  liquid.Build();
  EXPECT_DOUBLE_EQ(liquid.target(0, 0, 0), 1.6);
  EXPECT_DOUBLE_EQ(liquid.target(3, 3, 3), 1.6 - 4);
  EXPECT_DOUBLE_EQ(liquid.target(5, 3, 3), 1.6 - 1.5);
}

TEST(ParticleToLevelset, LiquidReachesIntoSolidsBesideIt) {
  Liquid liquid;
  for (int k = 0; k <= 9; ++k) {
    for (int j = 0; j <= 10; ++j) {
      for (int i = 0; i <= 12; ++i) liquid.nodes(i, j, k) = (i - 4.0) * 0.25;  // solid below x = 4
    }
  }
  liquid.Add({4, 5, 5}, 5);
  liquid.Build();
  EXPECT_EQ(liquid.target(4, 5, 5), -kHalf);
  EXPECT_EQ(liquid.target(3, 5, 5), -kHalf) << "in the solid, half a cell away";
  EXPECT_EQ(liquid.target(2, 5, 5), -kHalf + 2 * 0.25) << "too far";
  EXPECT_EQ(liquid.target(5, 5, 5), kHalf) << "in the open";
}

}  // namespace
}  // namespace orlix
