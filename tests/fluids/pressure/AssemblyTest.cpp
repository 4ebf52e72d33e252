// The right side, the pressure's gradient and moving solids: laws of a projection, without a scene.

#include <gtest/gtest.h>

#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/PressureAssembly.h"
#include "tests/fluids/pressure/SolveProblem.h"

namespace orlix::test {
namespace {

constexpr float kH = 0.25f;  // a power of two: divisions by it are exact
constexpr double kDt = 0.125;

// A problem with all that the assembly reads.
struct Projection {
  Projection(const VecInt3D& cells, unsigned closed, const PressureProblem::Field& solid = nullptr)
      : problem(cells, closed, solid), cellShare(cells, kGridCustom), source(cells, kGridCustom) {
    cellShare.Fill(1.0f);
    source.Fill(0);
    problem.FillVelocity();
  }
  DivergenceInput Input() const {
    DivergenceInput input;
    for (int axis = 0; axis < 3; ++axis) {
      input.share[axis] = GridView<const float>(*problem.share[axis]);
      input.velocity[std::size_t(axis)] = GridView<const double>(*problem.velocity[axis]);
    }
    input.cellShare = GridView<const float>(cellShare);
    input.source = GridView<const double>(source);
    input.cellSize = kH;
    return input;
  }
  // Assembles, solves to a tolerance and takes the gradient off. densities: by cell, or null.
  void Run(double tolerance, const Grid<double>* densities = nullptr, double density = 1) {
    WorkerPool pool(2);
    rhs.assign(std::size_t(problem.system.count()), 0.0);
    before = AssembleDivergence(Input(), false, rhs.data(), pool);
    ClosedRegions(problem.system, pool).RemoveMeans(rhs.data(), pool);
    problem.system.scale = kDt / (kH * kH) / density;
    if (densities) {
      GridView<double> weights[3];
      for (int axis = 0; axis < 3; ++axis) {
        problem.weight[axis] = std::make_unique<Grid<double>>(problem.share[axis]->dims, kGridScratch);
        weights[axis] = GridView<double>(*problem.weight[axis]);
        problem.system.weight[axis] = weights[axis];
      }
      FillDensityWeights(problem.system.share, GridView<const double>(*densities), kDt / (kH * kH), weights, pool);
      problem.system.scale = 1;
    }
    solution = SolveByMultigrid(problem, rhs, tolerance);
    GridView<double> velocity[3] = {*problem.velocity[0], *problem.velocity[1], *problem.velocity[2]};
    const GridView<const double> view = densities ? GridView<const double>(*densities) : GridView<const double>();
    ApplyPressureGradient(problem.system.share, solution.pressure.data(), kDt / kH / density, view, velocity, pool);
    after = AssembleDivergence(Input(), false, nullptr, pool);
  }

  PressureProblem problem;
  Grid<float> cellShare;
  Grid<double> source;
  std::vector<double> rhs;
  Solution solution;
  double before = 0, after = 0;
};

TEST(Projection, ConvergedFlowCarriesTheSourceInEachCell) {
  for (const unsigned closed : {kOpenTop, kOpen}) {
    for (const PressureProblem::Field& solid : {PressureProblem::Field(), PressureProblem::Field(Sphere)}) {
      Projection p({24, 20, 22}, closed, solid);
      for (int i = 8; i < 12; ++i) p.source(i, 15, 11) = 3.5;
      p.cellShare(9, 15, 11) = 0.5f;
      p.Run(1e-13);
      ASSERT_TRUE(p.solution.outcome.converged);
      int cells = 0;
      p.problem.ForCells([&](int i, int j, int k) {
        if (!p.problem.HasEquation(i, j, k)) return;
        double flux = 0;
        for (int axis = 0; axis < 3; ++axis) {
          const VecInt3D f(i + (axis == 0), j + (axis == 1), k + (axis == 2));
          flux += (*p.problem.share[axis])(f.x, f.y, f.z) * (*p.problem.velocity[axis])(f.x, f.y, f.z);
          flux -= (*p.problem.share[axis])(i, j, k) * (*p.problem.velocity[axis])(i, j, k);
        }
        ASSERT_NEAR(flux / kH, p.cellShare(i, j, k) * p.source(i, j, k), 1e-11) << i << " " << j << " " << k;
        ++cells;
      });
      EXPECT_GT(cells, 5000);
      EXPECT_GT(p.before, 1);
      EXPECT_LT(p.after, 1e-11);
    }
  }
}

TEST(Projection, VariableDensityLeavesNoDivergence) {
  Projection p({20, 20, 20}, kOpenTop, Sphere);
  Grid<double> densities({20, 20, 20}, kGridCustom);
  for (std::int64_t c = 0; c < densities.count; ++c) densities[c] = c % 20 < 10 ? 100 : 1;
  p.Run(1e-12, &densities);
  ASSERT_TRUE(p.solution.outcome.converged);
  EXPECT_GT(p.before, 1);
  EXPECT_LT(p.after, 1e-9);
  Projection uniform({20, 20, 20}, kOpenTop, Sphere), constant({20, 20, 20}, kOpenTop, Sphere);
  densities.Fill(1.23);
  uniform.Run(1e-12, nullptr, 1.23);
  constant.Run(1e-12, &densities);
  for (std::size_t c = 0; c < uniform.rhs.size(); ++c) {
    ASSERT_NEAR(uniform.solution.pressure[c], constant.solution.pressure[c], 1e-9 * Largest(uniform.solution.pressure));
  }
  densities.Fill(0);  // no mass at all is taken for very little
  Projection none({12, 12, 12}, kOpenTop);
  Grid<double> empty({12, 12, 12}, kGridCustom);
  empty.Fill(0);
  none.Run(1e-6, &empty);
  EXPECT_TRUE(none.solution.outcome.converged);
  EXPECT_LT(none.after, 1e-4);
}

TEST(Projection, MeanIsTakenFromEquationsOnly) {
  Projection p({14, 14, 14}, kClosed, Sphere);
  for (std::int64_t c = 0; c < p.source.count; ++c) p.source[c] = 2;
  WorkerPool pool(2);
  std::vector<double> rhs(p.problem.system.count(), -7.0);
  EXPECT_GT(AssembleDivergence(p.Input(), false, rhs.data(), pool), 2);
  ClosedRegions(p.problem.system, pool).RemoveMeans(rhs.data(), pool);
  double total = 0;
  std::int64_t equations = 0, others = 0;
  ForAll(p.problem.dims, [&](int i, int j, int k) {
    const double value = rhs[p.problem.Cell(i, j, k)];
    total += value;
    if (p.problem.HasEquation(i, j, k)) {
      ++equations;
    } else {
      ASSERT_EQ(value, 0);
      ++others;
    }
  });
  EXPECT_GT(equations, 1000);
  EXPECT_GT(others, 14 * 14 * 6 - 200);
  EXPECT_NEAR(total, 0, 1e-9);
}

TEST(BodyMotion, IsTheFluxOfTheSolidThroughTheCell) {
  Projection p({20, 20, 20}, kOpen, Sphere);
  const GridSpace space = [] {
    GridSpace s;
    s.Build({20, 20, 20}, Vec3D(20 * kH), kH, Vec3D());
    return s;
  }();
  ScalarGrid levelSet({21, 21, 21}, Vec3D(20 * kH), kH, kGridNodalLevelset, Vec3D());
  FillCells(levelSet, [](int i, int j, int k) { return Sphere(i / 20.0, j / 20.0, k / 20.0) * 20 * kH; });
  const Vec3D centre = Vec3D(0.5, 0.35, 0.5) * (20 * kH), linear(0.5, -0.25, 1), angular(0, 2, -1);
  const MovingBody body{LevelSetView(levelSet), levelSet.space.simMin, levelSet.space.simMax, centre, linear, angular};
  std::vector<double> rhs(p.problem.system.count(), 0.0);
  WorkerPool pool(2);
  AddBodyMotion(p.Input(), space, body, rhs.data(), pool);
  double sum = 0;
  int touched = 0;
  p.problem.ForCells([&](int i, int j, int k) {
    const auto solid = [&](int axis, int step) {
      return 1.0 - (*p.problem.share[axis])(i + step * (axis == 0), j + step * (axis == 1), k + step * (axis == 2));
    };
    Vec3D d;
    for (int axis = 0; axis < 3; ++axis) d[axis] = (solid(axis, 1) - solid(axis, 0)) / kH;
    const Vec3D r = Vec3D(i + 0.5, j + 0.5, k + 0.5) * kH - centre;
    const double value = rhs[p.problem.Cell(i, j, k)];
    ASSERT_NEAR(value, -Dot(linear, d) - Dot(angular, Cross(r, d)), 1e-12);
    touched += value != 0;
    sum += value;
  });
  EXPECT_GT(touched, 100);
  EXPECT_NEAR(sum, 0, 1e-3);  // what enters on one side leaves on the other
}

}  // namespace
}  // namespace orlix::test
