// The matrix-free system, its factor and the solvers on it, against the matrix written out.

#include <gtest/gtest.h>

#include <cstring>

#include "fluids/pressure/PressureSolver.h"
#include "tests/fluids/pressure/ExplicitMatrix.h"
#include "tests/fluids/pressure/SolveProblem.h"

namespace orlix::test {
namespace {

const VecInt3D kUneven(9, 7, 8);

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

TEST(PressureSystem, IsTheMatrixAndSymmetricPositiveDefinite) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    const ExplicitMatrix matrix(problem);
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(-1, 1);
    int equations = 0;
    problem.ForCells([&](int i, int j, int k) {
      if (!problem.HasEquation(i, j, k)) return;
      ++equations;
      std::vector<double> unit(problem.system.count(), 0.0);
      const std::int64_t cell = problem.Cell(i, j, k);
      unit[cell] = 1;
      const std::vector<double> column = Times(problem, unit);
      for (std::size_t r = 0; r < column.size(); ++r) {
        ASSERT_EQ(column[r], matrix.At(r, cell)) << c.name;
        if (!matrix.rows[r].empty()) {
          ASSERT_EQ(matrix.At(r, cell), matrix.At(cell, r)) << c.name;
        }
      }
      ASSERT_GT(column[cell], 0) << c.name;
    });
    ASSERT_GT(equations, 50) << c.name;
    for (int n = 0; n < 20; ++n) {
      std::vector<double> v(problem.system.count(), 0.0);
      problem.ForCells([&](int i, int j, int k) {
        if (problem.HasEquation(i, j, k)) v[problem.Cell(i, j, k)] = any(random);
      });
      EXPECT_GT(LayeredDot(problem.dims, v, Times(problem, v)), 0) << c.name;
    }
  }
}

TEST(ModifiedCholesky, IsTheFactorOfTheExplicitMatrix) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    const ExplicitFactor factor(ExplicitMatrix(problem), 0.25, 0.97);
    WorkerPool pool(1);
    std::vector<double> inverse(problem.system.count(), -1.0), z(inverse.size(), 0.0);
    FactorModifiedCholesky(problem.system, {}, pool, inverse.data());
    EXPECT_TRUE(SameBits(inverse, factor.inverse)) << c.name;
    const std::vector<double> rhs = problem.RightSide();
    ApplyModifiedCholesky(problem.system, inverse.data(), rhs.data(), pool, z.data());
    EXPECT_GT(Largest(z), 0) << c.name;
    EXPECT_TRUE(SameBits(z, factor.Solve(rhs))) << c.name;
  }
}

TEST(ConjugateGradients, EqualTheSolverOnTheExplicitMatrix) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    const Solution solution = SolveByCholesky(problem, problem.RightSide(), 1e-8);
    const ExplicitSolution expected = SolveExplicitly(ExplicitMatrix(problem), problem.RightSide(), 500, 1e-8);
    EXPECT_TRUE(solution.outcome.converged) << c.name;
    EXPECT_EQ(solution.outcome.iterations, expected.iterations) << c.name;
    EXPECT_GT(Largest(solution.pressure), 0) << c.name;
    EXPECT_TRUE(SameBits(solution.pressure, expected.pressure)) << c.name;
  }
}

TEST(ConjugateGradients, StopAtTheLimitWithTheLastIterate) {
  const PressureProblem problem = Make(kCases[1], {20, 20, 20});
  const ExplicitSolution expected = SolveExplicitly(ExplicitMatrix(problem), problem.RightSide(), 3, 1e-8);
  std::vector<double> inverse(std::size_t(problem.system.count()));
  const auto make = [&](WorkerPool& pool, ScratchPool&, std::vector<double>& residual, std::vector<double>& product) {
    FactorModifiedCholesky(problem.system, {}, pool, inverse.data());
    return [&](double) {
      ApplyModifiedCholesky(problem.system, inverse.data(), residual.data(), pool, product.data());
      return PreconditionedVector{product.data(), {}, 0, 0, 1};
    };
  };
  const Solution three = SolveWith(problem, problem.RightSide(), 1e-8, 2, make, 3);
  EXPECT_FALSE(three.outcome.converged);
  EXPECT_EQ(three.outcome.iterations, 3);
  EXPECT_GT(three.outcome.residual, 1e-8);
  EXPECT_TRUE(SameBits(three.pressure, expected.pressure));
  const Solution none = SolveWith(problem, problem.RightSide(), 1e-8, 2, make, 0);
  EXPECT_FALSE(none.outcome.converged);
  EXPECT_EQ(Largest(none.pressure), 0);
}

TEST(ConjugateGradients, ZeroRightSideGivesZeroPressure) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    for (const Solution& s : {SolveByCholesky(problem, std::vector<double>(problem.system.count(), 0.0), 1e-8),
                              SolveByMultigrid(problem, std::vector<double>(problem.system.count(), 0.0), 1e-8)}) {
      EXPECT_TRUE(s.outcome.converged);
      EXPECT_EQ(s.outcome.iterations, 0);
      EXPECT_EQ(Largest(s.pressure), 0);
    }
  }
}

TEST(ConjugateGradients, EndOnWhatIsNoNumber) {
  const PressureProblem problem = Make(kCases[1], kUneven);
  for (const double bad : {std::nan(""), HUGE_VAL}) {
    std::vector<double> rhs = problem.RightSide();
    rhs[problem.Cell(4, 3, 4)] = bad;
    EXPECT_FALSE(SolveByCholesky(problem, rhs, 1e-8).outcome.converged);
    EXPECT_FALSE(SolveByMultigrid(problem, rhs, 1e-8).outcome.converged);
  }
}

TEST(ConjugateGradients, GridsWithoutInnerCellsAreSolved) {
  for (const VecInt3D& cells : {VecInt3D(2, 9, 9), VecInt3D(9, 1, 9), VecInt3D(2, 2, 2)}) {
    PressureProblem problem(cells, kOpen);
    EXPECT_TRUE(SolveByCholesky(problem, std::vector<double>(problem.system.count(), 0.0), 1e-8).outcome.converged);
    EXPECT_EQ(SolveByGauss(problem, std::vector<double>(problem.system.count(), 0.0), 0).size(),
              std::size_t(problem.system.count()));
  }
}

TEST(Solvers, AgreeWithinTheirTolerance) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, {16, 14, 15});
    const bool free = c.closed == kClosed && !c.liquid;  // up to a constant
    std::vector<double> reference = SolveByCholesky(problem, problem.RightSide(), 1e-12).pressure;
    std::vector<double> others[] = {SolveByMultigrid(problem, problem.RightSide(), 1e-12).pressure,
                                    SolveByGauss(problem, problem.RightSide(), 6000)};
    const auto center = [&](std::vector<double>& p) {
      double sum = 0, cells = 0;
      problem.ForCells([&](int i, int j, int k) {
        if (problem.HasEquation(i, j, k)) sum += p[problem.Cell(i, j, k)], ++cells;
      });
      problem.ForCells([&](int i, int j, int k) {
        if (problem.HasEquation(i, j, k)) p[problem.Cell(i, j, k)] -= sum / cells;
      });
    };
    if (free) center(reference);
    ASSERT_GT(Largest(reference), 0.01) << c.name;
    for (std::vector<double>& other : others) {
      if (free) center(other);
      double difference = 0;
      for (std::size_t i = 0; i < other.size(); ++i)
        difference = std::max(difference, std::abs(other[i] - reference[i]));
      EXPECT_LT(difference, 1e-8 * Largest(reference)) << c.name;
    }
  }
}

TEST(Tolerance, FollowsTheTable) {
  const std::pair<double, double> table[] = {{0.0, 0.01},  {0.01, 1e-3}, {0.0999, 1e-3}, {0.1, 1e-4},     {0.2, 1e-5},
                                             {0.3, 1e-6},  {0.4, 1e-7},  {0.4999, 1e-7}, {0.5, 1e-8},     {0.6, 1e-9},
                                             {0.7, 1e-10}, {0.8, 1e-11}, {0.9, 1e-12},   {0.9999, 1e-12}, {1.0, 1e-13},
                                             {7.0, 1e-13}, {-1.0, 1e-3}};
  for (const auto& [setting, factor] : table) EXPECT_EQ(ToleranceFactor(setting), factor) << setting;
}

}  // namespace
}  // namespace orlix::test
