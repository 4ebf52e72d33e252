#include <gtest/gtest.h>

#include <random>

#include "fluids/grids/ActiveBox.h"
#include "fluids/grids/GridProcessorRunner.h"
#include "fluids/grids/GridResampler.h"
#include "fluids/grids/Interpolation.h"
#include "fluids/grids/ScratchPool.h"
#include "fluids/grids/TrilinearGradient.h"
#include "fluids/grids/WorkSplit.h"
#include "tests/support/Cells.h"
#include "tests/support/Sanitized.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

void FillIndex(ScalarGrid& grid, double scale = 1) {
  for (std::int64_t n = 0; n < grid.count; ++n) grid[n] = scale * static_cast<double>(n);
}

// --- lattice ---------------------------------------------------------------------------------------------------------

TEST(GridSpace, RatiosAndCorners) {
  GridSpace space;
  space.Build({4, 5, 6}, {40, 50, 60}, 0.2f, {-10, 20, 0});
  EXPECT_EQ(space.count, 120);
  EXPECT_EQ(space.slab, 20);
  EXPECT_DOUBLE_EQ(space.hostPerVoxel.x, 10);
  EXPECT_NEAR(space.simPerVoxel.z, 0.2, 1e-8);
  EXPECT_EQ(space.hostMax, Vec3D(30, 70, 60));
  EXPECT_EQ(space.voxelMin, VecInt3D(-1, 2, 0));
  EXPECT_EQ(space.voxelMax, VecInt3D(3, 7, 6));
  GridSpace other = space;
  EXPECT_TRUE(space.Equals(other));
  other.cellSize = std::nextafter(other.cellSize, 1.0f);
  EXPECT_FALSE(space.Equals(other)) << "one unit in the last place is a change";
}

TEST(GridSpace, SnappingToleratesARoundingError) {
  EXPECT_EQ(SnappedCell({2.9999995, -2.9999995, 0.5}), VecInt3D(3, -3, 0));
  EXPECT_EQ(SnappedCell({NAN, 1e300, -1e300}), VecInt3D(0, 2147483647, -2147483647 - 1));
  Vec3D down(0.31, -0.31, 0.4), up = down;
  GridSpace::SnapDown(down, 0.125f);
  GridSpace::SnapUp(up, 0.125f);
  EXPECT_EQ(down, Vec3D(0.25, -0.375, 0.375));
  EXPECT_EQ(up, Vec3D(0.375, -0.25, 0.5));
}

// --- active box ------------------------------------------------------------------------------------------------------

TEST(ActiveBox, LimitsTidiesAndFinds) {
  ScalarGrid grid({9, 8, 7}, {9, 8, 7}, 1, kGridSmoke, {});
  grid.Fill(0.5e-6);
  grid(3, 4, 5) = 9;
  grid(4, 2, 1) = 0.25;
  grid.FindActiveBox(0, 1, false);
  EXPECT_EQ(grid.activeMin, VecInt3D(3, 2, 1));
  EXPECT_EQ(grid.activeMax, VecInt3D(4, 4, 5));
  EXPECT_EQ(grid(3, 4, 5), 1);
  EXPECT_EQ(grid(0, 0, 0), 0);
}

TEST(ActiveBox, EmptyAndSingleCellsAndAClearBorder) {
  ScalarGrid grid({5, 5, 5}, {5, 5, 5}, 1, kGridSmoke, {});
  grid.Fill(0);
  grid.FindActiveBox(0, 1, false);
  EXPECT_EQ(grid.activeMin, grid.dims);
  EXPECT_EQ(grid.activeMax, VecInt3D());
  grid(2, 3, 1) = 0.5;
  grid.FindActiveBox(0, 1, false);
  EXPECT_EQ(grid.activeMin, VecInt3D(2, 3, 1));
  EXPECT_EQ(grid.activeMax, VecInt3D(3, 4, 2));
  grid.Fill(0.75);
  grid.FindActiveBox(0.125, 1, true);
  EXPECT_EQ(grid.activeMin, VecInt3D(1, 1, 1));
  EXPECT_EQ(grid.activeMax, VecInt3D(3, 3, 3));
  EXPECT_DOUBLE_EQ(test::SumOf(grid), 27 * 0.75 + 98 * 0.125);
}

TEST(ActiveBox, VelocityKeepsBothSignsAndHasNoLimit) {
  ScalarGrid grid({6, 5, 5}, {5, 5, 5}, 1, kGridVelocityU, {});
  grid.Fill(-0.5e-6);
  grid(1, 1, 1) = -400;
  grid(4, 1, 3) = 2e-6;
  grid.FindActiveBox(0, 1, true);
  EXPECT_EQ(grid(1, 1, 1), -400);
  EXPECT_EQ(grid(0, 0, 0), 0);
  EXPECT_EQ(grid.activeMin, VecInt3D(1, 1, 1));
  EXPECT_EQ(grid.activeMax, VecInt3D(4, 1, 3));
}

TEST(ActiveBoxThreads, TheSameForAnyNumberOfWorkers) {
  test::SameForAnyWorkers([](int workers) {
    ScalarGrid grid({33, 21, 19}, {33, 21, 19}, 1, kGridSmoke, {});
    std::mt19937 random(5);
    for (std::int64_t n = 0; n < grid.count; ++n) grid[n] = random() % 200 == 0 ? 1.5 : 1e-9;
    WorkerPool pool(workers);
    grid.FindActiveBox(0, 1, true, &pool);
    return std::tuple(test::ValuesOf(grid), grid.activeMin == VecInt3D(1, 1, 1),
                      grid.activeMax == VecInt3D(31, 19, 17));
  });
}

// --- moving content --------------------------------------------------------------------------------------------------

TEST(ResizeKeepingContent, GrowsShrinksAndShiftsByWholeCells) {
  auto grid = std::make_unique<ScalarGrid>(VecInt3D(4, 4, 4), Vec3D(4, 4, 4), 1.0f, kGridSmoke, Vec3D(0, 0, 0));
  grid->valueScale = 7;
  FillIndex(*grid);
  const ScalarGrid before = *grid;
  GridSpace target;
  target.Build({8, 6, 5}, {8, 6, 5}, 1, {-2, -1, 1});
  ASSERT_TRUE(ResizeKeepingContent(grid, -1, {8, 6, 5}, target));
  EXPECT_EQ(grid->valueScale, 7);
  int kept = 0;
  test::ForAll({8, 6, 5}, [&](int i, int j, int k) {
    const VecInt3D old(i - 2, j - 1, k + 1);
    const bool inside = old.x >= 0 && old.x < 4 && old.y >= 0 && old.y < 4 && old.z < 4;
    ASSERT_EQ((*grid)(i, j, k), inside ? before(old.x, old.y, old.z) : -1);
    kept += inside;
  });
  EXPECT_EQ(kept, 4 * 4 * 3);
  // In one pass with what tidies the grid.
  grid->FindActiveBox(3, 40, false);
  auto tidied = std::make_unique<ScalarGrid>(before);
  WorkerPool pool(2);
  ASSERT_TRUE(ResizeAndFindActiveBox(tidied, -1, {8, 6, 5}, target, 3, 40, pool));
  EXPECT_EQ(test::ValuesOf(*tidied), test::ValuesOf(*grid));
  EXPECT_TRUE(tidied->activeMin == grid->activeMin && tidied->activeMax == grid->activeMax);
  EXPECT_EQ(tidied->valueScale, 7);
}

TEST(GridMemory, TheBudgetRefusesAndKeepsTheOldGrid) {
  auto grid = std::make_unique<ScalarGrid>(VecInt3D(4, 4, 4), Vec3D(4, 4, 4), 1.0f, kGridSmoke, Vec3D());
  FillIndex(*grid);
  SetGridMemoryBudget(CurrentGridMemory().current + 1000);
  GridSpace target;
  target.Build({40, 40, 40}, {40, 40, 40}, 1, {});
  EXPECT_FALSE(ResizeKeepingContent(grid, 0, {40, 40, 40}, target));
  SetGridMemoryBudget(0);
  EXPECT_THROW(AllocateGridMemory(static_cast<std::size_t>(MachineMemory())), std::bad_alloc) << "lent, but not there";
  EXPECT_EQ(grid->dims, VecInt3D(4, 4, 4));
  EXPECT_EQ((*grid)(3, 3, 3), 63);
  EXPECT_THROW(Grid<double>({2000000, 2000000, 2}, 0), std::bad_alloc);
}

TEST(GridMemory, WhatWasGivenBackServesTheNextGridOfNearlyItsSizeAndCountsAsFree) {
  if (test::kSanitized) GTEST_SKIP() << "there each stands by itself";
  constexpr std::size_t kBytes = std::size_t(3) << 20;
  const std::int64_t before = CurrentGridMemory().current;
  void* first = AllocateGridMemory(kBytes);
  FreeGridMemory(first, kBytes);
  EXPECT_EQ(CurrentGridMemory().current, before);
  void* second = AllocateGridMemory(kBytes - 4096);
  EXPECT_EQ(second, first);
  EXPECT_EQ(CurrentGridMemory().current, before + std::int64_t(kBytes) - 4096);
  FreeGridMemory(second, kBytes - 4096);
}

TEST(GridResampler, DirectOperationsEachDoTheirs) {
  ScalarGrid source({3, 3, 3}, {3, 3, 3}, 1, kGridSmoke, {}), target = source;
  FillIndex(source);
  source.valueOffset = 2, source.valueScale = 4;
  target.valueOffset = 10, target.valueScale = 3;
  WorkerPool pool(2);
  const auto run = [&](ResampleOperation operation) {
    target.Fill(5);
    EGridResampler resampler;
    EXPECT_TRUE(resampler.Init(&source, &target, true, Interpolation::Trilinear, operation, {}, true, 2));
    EXPECT_TRUE(resampler.Run(pool));
    return target(1, 1, 1);
  };
  const double v = source(1, 1, 1);
  EXPECT_EQ(run(ResampleOperation::Copy), v);
  EXPECT_EQ(run(ResampleOperation::Normalise), (v - 2) / 4);
  EXPECT_EQ(run(ResampleOperation::Scale), v * 3 + 10);
  EXPECT_EQ(run(ResampleOperation::Min), 5);
  EXPECT_EQ(run(ResampleOperation::Max), v);
  EGridResampler resampler;
  EXPECT_FALSE(resampler.Init(nullptr, &target, true, Interpolation::Trilinear, ResampleOperation::Copy, {}, true, 2));
  ScalarGrid thin({3, 3, 2}, {3, 3, 2}, 1, kGridSmoke, {});
  EXPECT_FALSE(resampler.Init(&source, &thin, true, Interpolation::Trilinear, ResampleOperation::Copy, {}, false, 2));
}

TEST(GridResampler, SampledModeReproducesALinearFieldOnAShiftedFinerLattice) {
  ScalarGrid source({12, 12, 12}, {12, 12, 12}, 1, kGridSmoke, {0, 0, 0});
  const auto f = [](const Vec3D& p) { return 2 * p.x - p.y + 0.5 * p.z; };
  test::FillCells(source, [&](int i, int j, int k) { return f({i + 0.5, j + 0.5, k + 0.5}); });
  ScalarGrid target({12, 12, 12}, {6, 6, 6}, 0.5f, kGridNodalLevelset, {2.25, 3, 2.75});
  WorkerPool pool(3);
  for (const Interpolation mode : {Interpolation::Trilinear, Interpolation::Cubic, Interpolation::QuadraticBSpline,
                                   Interpolation::MonotoneCubic}) {
    EGridResampler resampler;
    ASSERT_TRUE(resampler.Init(&source, &target, false, mode, ResampleOperation::Copy, {}, true, 3));
    ASSERT_TRUE(resampler.Run(pool));
    for (int k = 0; k < 12; ++k) {
      const Vec3D p = target.space.HostOfVoxel({3, 4, double(k)});
      EXPECT_NEAR(target(3, 4, k), f(p), 1e-9);
    }
  }
  // An offset in source cells moves the samples.
  EGridResampler resampler;
  ASSERT_TRUE(
      resampler.Init(&source, &target, false, Interpolation::Trilinear, ResampleOperation::Copy, {1, 0, 0}, true, 3));
  ASSERT_TRUE(resampler.Run(pool));
  EXPECT_NEAR(target(3, 4, 5), f(target.space.HostOfVoxel({3, 4, 5}) - Vec3D(1, 0, 0)), 1e-9);
  BaseThread broken;
  broken.Break();
  EXPECT_FALSE(resampler.Run(pool, &broken));
}

// --- division of work ------------------------------------------------------------------------------------------------

class CountingProcessor final : public ParallelGridProcessor {
 public:
  explicit CountingProcessor(const VecInt3D& dims) : counts(dims, kGridScratch) { counts.Fill(0); }
  void Process(const VecInt3D& a, const VecInt3D& b) override { Add(a, b, 1); }
  void ProcessBorder(const VecInt3D& a, const VecInt3D& b) override { Add(a, b, 100), ++boxes; }
  Grid<std::int32_t> counts;
  int boxes = 0;

 private:
  void Add(const VecInt3D& a, const VecInt3D& b, int value) {
    test::ForBox(a, b, [&](int i, int j, int k) { counts(i, j, k) += value; });
  }
};

TEST(GridProcessorThreads, InteriorAndBordersTileTheArrayOnce) {
  for (const int workers : {1, 2, 3, 8, 64}) {
    WorkerPool pool(workers);
    for (const VecInt3D dims : {VecInt3D(9, 7, 11), VecInt3D(2, 5, 5), VecInt3D(3, 3, 3), VecInt3D(1, 1, 1)}) {
      for (int axis = 0; axis < 3; ++axis) {
        CountingProcessor processor(dims);
        GridProcessorRunner runner(pool, dims, axis);
        runner.RunPass(axis, processor);
        test::ForAll(dims, [&](int i, int j, int k) {
          const bool inner = i > 0 && j > 0 && k > 0 && i < dims.x - 1 && j < dims.y - 1 && k < dims.z - 1;
          ASSERT_EQ(processor.counts(i, j, k), inner ? 1 : 100);
        });
      }
    }
  }
}

TEST(WorkerPoolThreads, EveryWorkerRunsOnceAndNestingIsSafe) {
  for (const int threads : {1, 2, 5}) {
    WorkerPool pool(threads);
    for (int round = 0; round < 200; ++round) {
      std::atomic<int> runs[64] = {};
      std::atomic<int> nested{0};
      pool.Run(64, [&](int worker) {
        ++runs[worker];
        pool.Run(3, [&](int) { ++nested; });
      });
      for (const auto& count : runs) ASSERT_EQ(count.load(), 1);
      ASSERT_EQ(nested.load(), 192);
    }
  }
}

TEST(ScratchPool, LendsOnePieceOnceAndJoinsWhatComesBack) {
  const std::int64_t before = CurrentGridMemory().current;
  {
    ScratchPool pool;
    auto whole = pool.Take<double>({64, 64, 64});
    const auto* const first = reinterpret_cast<const char*>(whole->data);
    const std::int64_t held = CurrentGridMemory().current;
    whole.GiveBack();
    // Two of floats lie in what the doubles had, apart from one another; a layer of faces more, too.
    auto low = pool.Take<float>({64, 64, 64}), high = pool.Take<float>({64, 64, 64});
    EXPECT_EQ(reinterpret_cast<const char*>(low->data), first);
    EXPECT_GE(reinterpret_cast<const char*>(high->data), first + 4 * 64 * 64 * 64);
    EXPECT_EQ(CurrentGridMemory().current, held);
    low.GiveBack();
    EXPECT_EQ(pool.Take<std::uint8_t>({2, 4, 8})->slab, 8);
    high.GiveBack();
    auto faces = pool.Take<double>({64, 65, 64});
    EXPECT_EQ(reinterpret_cast<const char*>(faces->data), first);
    EXPECT_EQ(faces->dims, VecInt3D(64, 65, 64));
    auto second = pool.Take<double>({64, 64, 64});
    pool.Trim();
    EXPECT_GT(CurrentGridMemory().current, held);
    second.GiveBack();
    pool.Trim();
    EXPECT_EQ(CurrentGridMemory().current, held);
  }
  EXPECT_EQ(CurrentGridMemory().current, before);
}

template <class F>
Grid<double> Filled(const VecInt3D& dims, F&& f) {
  Grid<double> grid(dims, kGridCustom);
  test::FillCells(grid, f);
  return grid;
}

constexpr Interpolation kModes[] = {Interpolation::Trilinear, Interpolation::Cosine, Interpolation::Cubic,
                                    Interpolation::MonotoneCubic, Interpolation::QuadraticBSpline};

std::vector<Vec3D> RandomPoints(double low, double high, int count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(low, high);
  std::vector<Vec3D> points(count);
  for (Vec3D& p : points) p = {uniform(random), uniform(random), uniform(random)};
  return points;
}

TEST(Interpolation, AConstantIsExactEverywhereAlsoInTinyGrids) {
  for (const VecInt3D dims : {VecInt3D(7, 6, 5), VecInt3D(1, 1, 1), VecInt3D(2, 2, 2), VecInt3D(1, 5, 2)}) {
    const Grid<double> grid = Filled(dims, [](double, double, double) { return 3.25; });
    for (const Interpolation mode : kModes) {
      for (const Vec3D& p : RandomPoints(-9, 16, 400)) ASSERT_NEAR(SampleGrid(grid, p.x, p.y, p.z, mode), 3.25, 1e-14);
    }
  }
}

TEST(Interpolation, WhatTheBorderHoldsGoesByTheKernel) {
  const Grid<double> grid = Filled({7, 7, 7}, [](double x, double y, double z) { return x + 10 * y + 100 * z; });
  for (const Interpolation mode : kModes) {
    // In nodes from the end.
    const double inset = mode == Interpolation::Cubic ? 1 : mode == Interpolation::QuadraticBSpline ? 0.5 : 0;
    EXPECT_NEAR(SampleGrid(grid, 40, 1e30, 400, mode), 111 * (6 - inset), 1e-11) << static_cast<int>(mode);
    EXPECT_NEAR(SampleGrid(grid, -2, -1e30, -400, mode), 111 * inset, 1e-11) << static_cast<int>(mode);
    EXPECT_TRUE(std::isfinite(SampleGrid(grid, NAN, 0, 0, mode))) << "a lost coordinate stays in the array";
  }
}

// What each kernel reproduces in the interior: linear fields all but the eased one, quadratic and cubic ones the
// Lagrange kernel, and the B-spline a quadratic up to its constant blur.
TEST(Interpolation, KernelsReproduceTheirPolynomials) {
  const auto linear = [](double x, double y, double z) { return 2 * x - 3 * y + 0.5 * z + 1; };
  const auto cubic = [](double x, double y, double z) { return x * x * x - 2 * y * y * x + 3 * z * z * z * y - z; };
  const auto square = [](double x, double, double) { return x * x; };
  const VecInt3D dims(12, 12, 12);
  const Grid<double> lines = Filled(dims, linear), cubes = Filled(dims, cubic), squares = Filled(dims, square);
  for (const Vec3D& p : RandomPoints(3, 7, 300)) {
    for (const Interpolation mode : kModes) {
      if (mode == Interpolation::Cosine) continue;
      ASSERT_NEAR(SampleGrid(lines, p.x, p.y, p.z, mode), linear(p.x, p.y, p.z), 1e-11) << static_cast<int>(mode);
    }
    ASSERT_NEAR(SampleCubic<double>(cubes, p.x, p.y, p.z), cubic(p.x, p.y, p.z), 1e-7);
    ASSERT_NEAR(SampleGrid(squares, p.x, p.y, p.z, Interpolation::QuadraticBSpline), p.x * p.x + 0.25, 1e-11);
  }
  const Grid<double> ramp = Filled({4, 4, 4}, [](double x, double, double) { return x; });
  for (double f = 0; f < 1; f += 0.125) {
    EXPECT_NEAR(SampleCosine<double>(ramp, 1 + f, 2, 2), 1 + (1 - std::cos(std::numbers::pi * f)) / 2, 1e-14);
  }
}

TEST(Interpolation, TheTrilinearGradientIsThatOfTheInterpolant) {
  const Grid<double> grid = Filled({7, 7, 7}, [](double x, double y, double z) { return std::sin(x + 3 * y * z); });
  constexpr double kStep = 1e-5;
  for (Vec3D p : RandomPoints(1, 5, 300)) {
    for (int axis = 0; axis < 3; ++axis) p[axis] = std::floor(p[axis]) + 0.01 + 0.98 * (p[axis] - std::floor(p[axis]));
    const Vec3D gradient = TrilinearGradient(GridView<const double>(grid), p);
    for (int axis = 0; axis < 3; ++axis) {
      Vec3D low = p, high = p;
      low[axis] -= kStep, high[axis] += kStep;
      const double difference =
          SampleTrilinear<double>(grid, high.x, high.y, high.z) - SampleTrilinear<double>(grid, low.x, low.y, low.z);
      ASSERT_NEAR(gradient[axis], difference / (2 * kStep), 1e-9) << axis;
    }
  }
}

TEST(SplitLayers, EachLayerBelongsToOneWorker) {
  for (const bool whole : {false, true}) {
    for (int threads = 1; threads < 9; ++threads) {
      LayerSlabs slabs;
      ASSERT_TRUE(SplitLayers(slabs, {4, 5, 13}, whole, threads));
      int next = whole ? 0 : 1;
      for (int s = 0; s < slabs.slices; ++s) {
        EXPECT_EQ(slabs.rangeMin[s].z, next);
        next = slabs.rangeMax[s].z;
      }
      EXPECT_EQ(next, whole ? 13 : 12) << threads;
    }
  }
}

TEST(Interpolation, MonotoneCubicStaysBetweenItsMiddleSamples) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> uniform(-5, 5);
  for (int n = 0; n < 2000; ++n) {
    const double f[4] = {uniform(random), uniform(random), uniform(random), uniform(random)};
    const double v = MonotoneCubic(f[0], f[1], f[2], f[3], n % 100 / 100.0);
    EXPECT_GE(v, std::min(f[1], f[2]));
    EXPECT_LE(v, std::max(f[1], f[2]));
  }
  EXPECT_EQ(MonotoneCubic(0, 2, 2, 9, 0.3), 2);
}

TEST(Interpolation, NoStencilMakesTheMonotoneCubicTrilinear) {
  const Grid<double> grid = Filled({5, 5, 5}, [](double x, double y, double z) { return x * y * y - z * x * x; });
  EXPECT_EQ(SampleGrid(grid, 1.3, 2.2, 1.7, Interpolation::MonotoneCubic, false),
            SampleTrilinear<double>(grid, 1.3, 2.2, 1.7));
}

}  // namespace
}  // namespace orlix
