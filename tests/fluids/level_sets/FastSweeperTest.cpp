#include "fluids/level_sets/FastSweeper.h"

#include <gtest/gtest.h>

#include <random>

namespace orlix {
namespace {

std::unique_ptr<ScalarGrid> MakeGrid(const VecInt3D& n, double fill) {
  auto grid = std::make_unique<ScalarGrid>(n, Vec3D(n), 0.3f, kGridLevelset, Vec3D());
  grid->Fill(fill);
  return grid;
}

TEST(SweepDistances, EqualsTheChessboardDistanceBitForBit) {
  std::mt19937 random(11);
  const VecInt3D n(17, 13, 11);
  auto grid = MakeGrid(n, 1e6);
  const double h = grid->space.cellSize;
  std::vector<VecInt3D> seeds;
  for (int s = 0; s < 6; ++s) {
    seeds.push_back({int(random() % n.x), int(random() % n.y), int(random() % n.z)});
    (*grid)(seeds.back().x, seeds.back().y, seeds.back().z) = -h / 2;
  }
  SweepDistances(*grid);
  for (int k = 0; k < n.z; ++k) {
    for (int j = 0; j < n.y; ++j) {
      for (int i = 0; i < n.x; ++i) {
        int steps = 1000;
        for (const VecInt3D& s : seeds) {
          steps = std::min(steps, std::max({std::abs(s.x - i), std::abs(s.y - j), std::abs(s.z - k)}));
        }
        double expected = -h / 2;
        for (int d = 0; d < steps; ++d) expected = expected + h;
        ASSERT_EQ((*grid)(i, j, k), expected) << i << " " << j << " " << k;
      }
    }
  }
}

TEST(SweepDistances, WithoutASeedAllStaysFar) {
  auto grid = MakeGrid({5, 5, 5}, 1e6);
  SweepDistances(*grid);
  for (std::int64_t c = 0; c < grid->count; ++c) ASSERT_EQ((*grid)[c], 1e6);
}

TEST(DensityToLevelset, ABoxHasSignsAndHalfCellsAtItsSurface) {
  for (const int workers : {1, 3}) {
    WorkerPool pool(workers);
    auto density = MakeGrid({16, 16, 16}, 0), phi = MakeGrid({16, 16, 16}, 1e6);
    for (int k = 4; k < 12; ++k) {
      for (int j = 4; j < 12; ++j) {
        for (int i = 4; i < 12; ++i) (*density)(i, j, k) = 0.5;
      }
    }
    ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, true));
    const double h = phi->space.cellSize;
    EXPECT_EQ((*phi)(4, 8, 8), -h / 2) << "a value at the threshold counts";
    EXPECT_EQ((*phi)(3, 8, 8), -h / 2 + h);
    EXPECT_DOUBLE_EQ((*phi)(7, 8, 8), -2.5 * h);
    EXPECT_DOUBLE_EQ((*phi)(0, 0, 0), 3.5 * h);
    ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, false));
    EXPECT_DOUBLE_EQ((*phi)(7, 8, 8), 2.5 * h);
  }
}

TEST(DensityToLevelset, AThinRegionIsAllSeeds) {
  WorkerPool pool(2);
  auto density = MakeGrid({9, 9, 9}, 0), phi = MakeGrid({9, 9, 9}, 1e6);
  for (int j = 2; j < 7; ++j) (*density)(4, j, 4) = 1;
  ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, true));
  for (int j = 2; j < 7; ++j) EXPECT_EQ((*phi)(4, j, 4), -0.5 * phi->space.cellSize);
  auto other = MakeGrid({8, 9, 9}, 0);
  EXPECT_FALSE(DensityToLevelset(pool, *other, *phi, 0.5, 1e6, true));
}

}  // namespace
}  // namespace orlix
