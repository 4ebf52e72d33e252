#include "fluids/grids/Interpolation.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/Cells.h"

namespace orlix {
namespace {

template <class F>
Grid<double> Filled(const VecInt3D& dims, F&& f) {
  Grid<double> grid(dims, kGridCustom);
  test::FillCells(grid, f);
  return grid;
}

constexpr Interpolation kModes[] = {Interpolation::Trilinear, Interpolation::Cosine, Interpolation::Cubic,
                                    Interpolation::MonotoneCubic, Interpolation::QuadraticBSpline};

class EachMode : public testing::TestWithParam<Interpolation> {};
INSTANTIATE_TEST_SUITE_P(Modes, EachMode, testing::ValuesIn(kModes));

std::vector<Vec3D> RandomPoints(double low, double high, int count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(low, high);
  std::vector<Vec3D> points(count);
  for (Vec3D& p : points) p = {uniform(random), uniform(random), uniform(random)};
  return points;
}

TEST_P(EachMode, ConstantFieldIsExactEverywhere) {
  const Grid<double> grid = Filled({7, 6, 5}, [](double, double, double) { return 3.25; });
  for (const Vec3D& p : RandomPoints(-9, 16, 400))
    EXPECT_NEAR(SampleGrid(grid, p.x, p.y, p.z, GetParam()), 3.25, 1e-14);
}

TEST_P(EachMode, BeyondTheArrayTheBorderHolds) {
  const Grid<double> grid = Filled({7, 6, 5}, [](double x, double y, double z) { return x + 10 * y + 100 * z; });
  const double high = SampleGrid(grid, 40, 40, 40, GetParam());
  EXPECT_EQ(SampleGrid(grid, 400, 1e30, 41, GetParam()), high);
  const double low = SampleGrid(grid, -2, -2, -2, GetParam());
  EXPECT_EQ(SampleGrid(grid, -400, -1e30, -3, GetParam()), low);
  EXPECT_TRUE(std::isfinite(SampleGrid(grid, NAN, 0, 0, GetParam()))) << "a lost coordinate stays in the array";
}

TEST(Interpolation, WhatTheBorderHoldsGoesByTheKernel) {
  const Grid<double> grid = Filled({7, 7, 7}, [](double x, double y, double z) { return x + 10 * y + 100 * z; });
  for (const Interpolation mode : kModes) {
    // In nodes from the end.
    const double inset = mode == Interpolation::Cubic ? 1 : mode == Interpolation::QuadraticBSpline ? 0.5 : 0;
    EXPECT_NEAR(SampleGrid(grid, 40, 40, 40, mode), 111 * (6 - inset), 1e-11) << static_cast<int>(mode);
    EXPECT_NEAR(SampleGrid(grid, -2, -2, -2, mode), 111 * inset, 1e-11) << static_cast<int>(mode);
  }
}

// What each kernel reproduces in the interior: linear fields all but the eased one, quadratic and cubic ones the
// Lagrange kernel, and the B-spline a quadratic up to its constant blur.
TEST(Interpolation, LinearFieldIsExact) {
  const auto f = [](double x, double y, double z) { return 2 * x - 3 * y + 0.5 * z + 1; };
  const Grid<double> grid = Filled({12, 12, 12}, f);
  for (const Vec3D& p : RandomPoints(2, 8, 300)) {
    for (const Interpolation mode : kModes) {
      if (mode == Interpolation::Cosine) continue;
      EXPECT_NEAR(SampleGrid(grid, p.x, p.y, p.z, mode), f(p.x, p.y, p.z), 1e-11) << static_cast<int>(mode);
    }
  }
}

TEST(Interpolation, CosineEasesBetweenNodes) {
  const Grid<double> grid = Filled({4, 4, 4}, [](double x, double, double) { return x; });
  for (double f = 0; f < 1; f += 0.125) {
    EXPECT_NEAR(SampleCosine<double>(grid, 1 + f, 2, 2), 1 + (1 - std::cos(std::numbers::pi * f)) / 2, 1e-14);
  }
}

TEST(Interpolation, CubicFieldIsExactInTheInterior) {
  const auto f = [](double x, double y, double z) { return x * x * x - 2 * y * y * x + 3 * z * z * z * y - z; };
  const Grid<double> grid = Filled({12, 12, 12}, f);
  for (const Vec3D& p : RandomPoints(2, 7.9, 300)) {
    EXPECT_NEAR(SampleCubic<double>(grid, p.x, p.y, p.z), f(p.x, p.y, p.z), 1e-9 * (1 + std::fabs(f(p.x, p.y, p.z))));
  }
}

TEST(Interpolation, BSplineBlursAQuadraticByAConstant) {
  const Grid<double> grid = Filled({12, 12, 12}, [](double x, double, double) { return x * x; });
  for (const Vec3D& p : RandomPoints(3, 7, 100)) {
    EXPECT_NEAR(SampleGrid(grid, p.x, p.y, p.z, Interpolation::QuadraticBSpline), p.x * p.x + 0.25, 1e-11);
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

TEST(Interpolation, TinyGridsAreSafe) {
  for (const VecInt3D dims : {VecInt3D(1, 1, 1), VecInt3D(2, 2, 2), VecInt3D(1, 5, 2)}) {
    const Grid<double> grid = Filled(dims, [](double x, double y, double z) { return x + y + z; });
    for (const Interpolation mode : kModes) {
      for (const Vec3D& p : RandomPoints(-3, 8, 50)) EXPECT_TRUE(std::isfinite(SampleGrid(grid, p.x, p.y, p.z, mode)));
    }
  }
}

}  // namespace
}  // namespace orlix
