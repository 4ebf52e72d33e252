// The multigrid cycle: symmetry, rates, regions; and all solvers at different numbers of workers.

#include <gtest/gtest.h>

#include <string_view>

#include "tests/fluids/pressure/SolveProblem.h"
#include "tests/support/Sanitized.h"
#include "tests/support/Workers.h"

namespace orlix::test {
namespace {

std::vector<double> RandomVector(const PressureProblem& problem, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> any(-1, 1);
  std::vector<double> v(problem.system.count(), 0.0);
  problem.ForCells([&](int i, int j, int k) {
    if (problem.HasEquation(i, j, k)) v[problem.Cell(i, j, k)] = any(random);
  });
  return v;
}

std::vector<double> Cycle(MultigridCycle& cycle, const PressureProblem& problem, const std::vector<double>& v) {
  const PreconditionedVector z = cycle.Apply(v.data(), 1);
  std::vector<double> out(v.size(), 0.0);
  problem.ForCells([&](int i, int j, int k) {
    out[problem.Cell(i, j, k)] = z.floats[(i + j + k) & 1][k * z.slab + j * z.row + (i + 1) / 2] * z.scale;
  });
  return out;
}

TEST(Multigrid, CycleIsSymmetricAndPositive) {
  WorkerPool pool(1);
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, {26, 19, 22});
    ScratchPool scratch;
    MultigridCycle cycle(problem.system, pool, scratch);
    ASSERT_GT(cycle.levels(), 2);
    for (unsigned seed = 1; seed < 6; ++seed) {
      const std::vector<double> a = RandomVector(problem, seed), b = RandomVector(problem, seed + 100);
      const std::vector<double> za = Cycle(cycle, problem, a), zb = Cycle(cycle, problem, b);
      const double scale = std::sqrt(Dot(a, za) * Dot(b, zb));
      EXPECT_GT(Dot(a, za), 0) << c.name;
      EXPECT_NEAR(Dot(a, zb), Dot(b, za), 1e-5 * scale) << c.name;
    }
  }
}

TEST(Multigrid, TheScaleOfTheRightSideDoesNotMatter) {
  const PressureProblem problem = Make(kCases[4], {20, 20, 20});
  const Solution plain = SolveByMultigrid(problem, problem.RightSide(), 1e-8);
  for (const int exponent : {-300, -60, 60, 300}) {
    std::vector<double> rhs = problem.RightSide();
    for (double& v : rhs) v = std::ldexp(v, exponent);
    const Solution scaled = SolveByMultigrid(problem, rhs, 1e-8);
    ASSERT_EQ(scaled.outcome.iterations, plain.outcome.iterations) << exponent;
    for (std::size_t i = 0; i < rhs.size(); ++i) {
      ASSERT_EQ(scaled.pressure[i], std::ldexp(plain.pressure[i], exponent)) << exponent;
    }
  }
}

void ExpectFewIterations(int size) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, {size, size, size});
    const PressureOutcome outcome = SolveByMultigrid(problem, problem.RightSide(), 1e-6, HostWorkerCount()).outcome;
    EXPECT_TRUE(outcome.converged) << c.name;
    EXPECT_GT(outcome.iterations, 1) << c.name;
    const bool broken = std::string_view(c.name) == "breaking_dam";
    EXPECT_LE(outcome.iterations, broken ? 16 : 9) << c.name << " at " << size;
    const PressureOutcome rough = SolveByMultigrid(problem, problem.RightSide(), 1e-3, HostWorkerCount()).outcome;
    EXPECT_LE(rough.iterations, broken ? 8 : 5) << c.name << " at " << size;
  }
}

TEST(Multigrid, NeedsFewIterations) { ExpectFewIterations(test::kSanitized ? 32 : 64); }
TEST(MultigridSlow, NeedsFewIterationsOnFineGrids) {
  ExpectFewIterations(128);
  ExpectFewIterations(192);
}

TEST(Multigrid, ReachesEveryToleranceOfTheTable) {
  const int size = test::kSanitized ? 24 : 48;
  const PressureProblem problem = Make(kCases[6], {size, size, size});
  for (double tolerance = 1e-2; tolerance > 0.5e-13; tolerance /= 10) {
    const Solution s = SolveByMultigrid(problem, problem.RightSide(), tolerance);
    EXPECT_TRUE(s.outcome.converged) << tolerance;
    EXPECT_LE(s.outcome.iterations, 18) << tolerance;
    const std::vector<double> rhs = problem.RightSide();
    EXPECT_LE(LargestLeft(problem, rhs, s.pressure), (1.001 * tolerance + 1e-13) * Largest(rhs)) << tolerance;
  }
}

TEST(Multigrid, ConvergesBehindThinSheetsAndInOblongContainers) {
  PressureProblem sheet({64, 64, 64}, kOpenTop, Sheet);
  sheet.FillVelocity();
  EXPECT_LE(SolveByMultigrid(sheet, sheet.RightSide(), 1e-6).outcome.iterations, 25);
  for (const VecInt3D& cells : {VecInt3D(100, 12, 9), VecInt3D(4, 90, 31), VecInt3D(3, 3, 80), VecInt3D(33, 47, 65)}) {
    PressureProblem oblong(cells, kOpenTop);
    oblong.FillVelocity();
    const PressureOutcome outcome = SolveByMultigrid(oblong, oblong.RightSide(), 1e-6).outcome;
    EXPECT_TRUE(outcome.converged);
    EXPECT_LE(outcome.iterations, 12) << cells.x << " " << cells.y << " " << cells.z;
  }
}

TEST(Multigrid, HeavyAndLightFluidConverge) {
  PressureProblem problem({48, 48, 48}, kOpenTop, Sphere);
  problem.FillVelocity();
  for (int axis = 0; axis < 3; ++axis) {
    const Grid<float>& share = *problem.share[axis];
    problem.weight[axis] = std::make_unique<Grid<double>>(share.dims, kGridScratch);
    FillCells(*problem.weight[axis], [&](int i, int j, int k) { return share(i, j, k) / (i + j < 48 ? 1000.0 : 1.2); });
    problem.system.weight[axis] = GridView<const double>(*problem.weight[axis]);
  }
  const PressureOutcome outcome = SolveByMultigrid(problem, problem.RightSide(), 1e-6).outcome;
  EXPECT_TRUE(outcome.converged);
  EXPECT_LE(outcome.iterations, 20);
}

// A hollow ball in an open container, and a wall across it.
double HollowBall(double x, double y, double z) {
  const double r = std::sqrt((x - 0.5) * (x - 0.5) + (y - 0.5) * (y - 0.5) + (z - 0.5) * (z - 0.5));
  return std::abs(r - 0.27) - 0.08;
}

TEST(ClosedRegions, AreFoundAndSolved) {
  WorkerPool pool(3);
  const auto count = [&](const PressureProblem& problem) { return ClosedRegions(problem.system, pool).count(); };
  EXPECT_EQ(count(PressureProblem({12, 12, 12}, kClosed)), 1);
  EXPECT_EQ(count(PressureProblem({12, 12, 12}, kOpenTop)), 0);
  EXPECT_EQ(count(Make(kCases[7], {16, 16, 16})), 0);

  PressureProblem problem({32, 32, 32}, kOpen, HollowBall);
  ASSERT_EQ(count(problem), 1);
  EXPECT_EQ(count(PressureProblem({32, 32, 32}, kClosed, HollowBall)), 2);
  // A source in the pocket asks for what no pressure can give; all else is solved, and the pocket up to its mean.
  problem.FillVelocity();
  std::vector<double> rhs = problem.RightSide();
  rhs[problem.Cell(16, 16, 16)] += 5;
  const Solution s = SolveByMultigrid(problem, rhs, 1e-8);
  EXPECT_TRUE(s.outcome.converged);
  EXPECT_LE(s.outcome.iterations, 20);
  const std::vector<double> product = Times(problem, s.pressure);
  double outside = 0, least = 1, most = -1;
  int inside = 0;
  problem.ForCells([&](int i, int j, int k) {
    if (!problem.HasEquation(i, j, k)) return;
    const std::int64_t c = problem.Cell(i, j, k);
    const Vec3D r = Vec3D(i, j, k) - Vec3D(15.5);
    if (Length(r) > 0.27 * 32) {
      outside = std::max(outside, std::abs(rhs[c] - product[c]));
    } else {
      ++inside;
      least = std::min(least, rhs[c] - product[c]), most = std::max(most, rhs[c] - product[c]);
    }
  });
  EXPECT_LT(outside, 1e-7);
  EXPECT_GT(inside, 300);
  EXPECT_GT(least, 0);
  EXPECT_NEAR(least, most, 1e-6);
}

TEST(SolversThreads, BitsDoNotDependOnTheWorkers) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, {24, 17, 57});
    const std::vector<double> rhs = problem.RightSide();
    const auto solve = [&](int workers) {
      return std::pair(SolveByCholesky(problem, rhs, 1e-4, workers).pressure,
                       SolveByMultigrid(problem, rhs, 1e-6, workers).pressure);
    };
    EXPECT_GT(Largest(SameForAnyWorkers(solve).second), 0) << c.name;
  }
}

TEST(GaussThreads, SweepsAreThoseOfASerialRun) {
  for (const ProblemCase& c : kCases) {
    for (const VecInt3D& cells : {VecInt3D(13, 19, 11), VecInt3D(9, 5, 21), VecInt3D(4, 34, 4), VecInt3D(3, 3, 3)}) {
      const PressureProblem problem = Make(c, cells);
      const std::vector<double> rhs = problem.RightSide();
      for (const int sweeps : {1, 8, 21}) {
        std::vector<double> p(rhs.size(), 0.0);
        const std::int64_t y = problem.system.row(), z = problem.system.slab();
        for (int s = 0; s < sweeps; ++s) {
          problem.ForCells([&](int i, int j, int k) {
            if (!problem.HasEquation(i, j, k)) return;
            const std::int64_t at = problem.Cell(i, j, k);
            const double w[] = {problem.Coefficient(0, i, j, k), problem.Coefficient(0, i + 1, j, k),
                                problem.Coefficient(1, i, j, k), problem.Coefficient(1, i, j + 1, k),
                                problem.Coefficient(2, i, j, k), problem.Coefficient(2, i, j, k + 1)};
            const double total = w[0] + w[1] + w[2] + w[3] + w[4] + w[5];
            if (total == 0) return;
            p[at] = (w[0] * p[at - 1] + w[1] * p[at + 1] + w[2] * p[at - y] + w[3] * p[at + y] + w[4] * p[at - z] +
                     w[5] * p[at + z] + rhs[at]) /
                    total;
          });
        }
        for (const int workers : {1, 2, 3, 8}) {
          ASSERT_EQ(SolveByGauss(problem, rhs, sweeps, workers), p) << c.name << sweeps << " " << workers;
        }
      }
    }
  }
}

TEST(Gauss, StopsBetweenGroupsWhenAsked) {
  const PressureProblem problem = Make(kCases[1], {12, 12, 12});
  WorkerPool pool(2);
  ScratchPool scratch;
  GaussSweeps gauss(problem.system, problem.RightSide().data(), pool, scratch);
  std::atomic<int> asked{0};
  EXPECT_LT(gauss.Run(800, [&] { return asked.fetch_add(1) >= 3; }), 800);
  EXPECT_GE(asked.load(), 4);
}

}  // namespace
}  // namespace orlix::test
