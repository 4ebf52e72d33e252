#include "fluids/level_sets/FastSweeper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/support/Cells.h"

namespace orlix {
namespace {

std::unique_ptr<ScalarGrid> MakeGrid(const VecInt3D& n, double fill) {
  auto grid = std::make_unique<ScalarGrid>(n, Vec3D(n), 0.3f, kGridLevelset, Vec3D());
  grid->Fill(fill);
  return grid;
}

TEST(SpreadDistances, EqualsTheChessboardDistanceBitForBitAtAnyWorkerCount) {
  std::mt19937 random(11);
  for (const VecInt3D n : {VecInt3D(9, 97, 35), VecInt3D(1, 9, 2), VecInt3D(6, 1, 1)}) {
    auto start = MakeGrid(n, 1e6);
    const double h = start->space.cellSize;
    std::vector<VecInt3D> seeds;
    for (int s = 0; s < 6; ++s) {
      seeds.push_back({int(random() % n.x), int(random() % n.y), int(random() % n.z)});
      (*start)(seeds.back().x, seeds.back().y, seeds.back().z) = s % 2 == 0 ? -h / 2 : -0.9 * h;
    }
    for (const int workers : {1, 3}) {
      WorkerPool pool(workers);
      ScalarGrid grid(*start);
      SpreadDistances(pool, grid, h);
      test::ForAll(n, [&](int i, int j, int k) {
        double expected = 1e6;
        for (const VecInt3D& s : seeds) {
          double value = (*start)(s.x, s.y, s.z);  // h is added step by step
          for (int d = std::max({std::abs(s.x - i), std::abs(s.y - j), std::abs(s.z - k)}); d > 0; --d) value += h;
          expected = std::min(expected, value);
        }
        ASSERT_EQ(grid(i, j, k), expected) << i << " " << j << " " << k;
      });
    }
  }
}

TEST(ReinitialiseLevelSet, TheZeroStaysAndBothSidesGrowByACellAStep) {
  WorkerPool pool(2);
  ScratchPool scratch;
  // A plane x = 7.3 cells whose values are three times too steep on one side and flat on the other.
  auto phi = MakeGrid({16, 5, 6}, 0);
  const double h = phi->space.cellSize;
  for (std::int64_t c = 0; c < phi->count; ++c) {
    const double d = (double(c % 16) - 7.3) * h;
    (*phi)[c] = d < 0 ? d / 5 : 3 * d;
  }
  const double a = -0.3 * h / 5, b = 3 * 0.7 * h;  // on both sides of the plane
  ReinitialiseLevelSet(pool, scratch, *phi, phi->space.cellSize);
  for (std::int64_t c = 0; c < phi->count; ++c) {
    const int x = int(c % 16);
    const double expected = x <= 7 ? a * h / (b - a) - (7 - x) * h : b * h / (b - a) + (x - 8) * h;
    ASSERT_NEAR((*phi)[c], expected, 1e-12) << x;
  }
  // Nearer than 0.9 h in sum, values stay as they are; without a zero nothing is reached.
  auto near = MakeGrid({4, 1, 1}, 0);
  const double small[4] = {-5, -0.2 * h, 0.3 * h, 7};
  std::copy_n(small, 4, near->data);
  ReinitialiseLevelSet(pool, scratch, *near, near->space.cellSize);
  EXPECT_EQ((*near)[1], -0.2 * h);
  EXPECT_EQ((*near)[2], 0.3 * h);
  EXPECT_DOUBLE_EQ((*near)[0], -1.2 * h);
  EXPECT_DOUBLE_EQ((*near)[3], 1.3 * h);
  auto none = MakeGrid({4, 4, 4}, -2);
  ReinitialiseLevelSet(pool, scratch, *none, none->space.cellSize);
  EXPECT_EQ((*none)[5], -std::numeric_limits<double>::max());
}

TEST(ReinitialiseLevelSet, SignsOfANoisySphereStayAndEachSideGrowsFromItsNodesAtTheZero) {
  WorkerPool pool(3);
  ScratchPool scratch;
  auto phi = MakeGrid({23, 22, 20}, 0);
  const double h = phi->space.cellSize;
  const auto distance = [&](int i, int j, int k) { return (Length(Vec3D(i - 11.2, j - 10.7, k - 9.9)) - 6) * h; };
  test::FillCells(*phi,
                  [&](int i, int j, int k) { return distance(i, j, k) * (1 + 0.5 * std::sin(i + 2.0 * j + 3.0 * k)); });
  ReinitialiseLevelSet(pool, scratch, *phi, phi->space.cellSize);
  std::vector<VecInt3D> atZero;
  const auto isOutside = [&](const VecInt3D& v) { return distance(v.x, v.y, v.z) >= 0; };
  test::ForAll(phi->dims, [&](int i, int j, int k) {
    const VecInt3D at(i, j, k);
    for (const VecInt3D& step : {VecInt3D(1, 0, 0), VecInt3D(0, 1, 0), VecInt3D(0, 0, 1)}) {
      if (isOutside(at) == isOutside(at + step) && isOutside(at) == isOutside(at - step)) continue;
      atZero.push_back(at);
      ASSERT_LE(std::abs((*phi)(i, j, k)), h);
    }
  });
  test::ForAll(phi->dims, [&](int i, int j, int k) {
    ASSERT_EQ((*phi)(i, j, k) >= 0, isOutside({i, j, k}));
    double expected = std::numeric_limits<double>::max();
    for (const VecInt3D& v : atZero) {
      if (isOutside(v) != isOutside({i, j, k})) continue;
      const int steps = std::max({std::abs(v.x - i), std::abs(v.y - j), std::abs(v.z - k)});
      expected = std::min(expected, std::abs((*phi)(v.x, v.y, v.z)) + steps * h);
    }
    ASSERT_NEAR(std::abs((*phi)(i, j, k)), expected, 1e-12);
  });
}

TEST(DensityToLevelset, ABoxHasSignsAndHalfCellsAtItsSurface) {
  for (const int workers : {1, 3}) {
    WorkerPool pool(workers);
    auto density = MakeGrid({16, 16, 16}, 0), phi = MakeGrid({16, 16, 16}, 1e6);
    test::ForBox({4, 4, 4}, {12, 12, 12}, [&](int i, int j, int k) { (*density)(i, j, k) = 0.5; });
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
