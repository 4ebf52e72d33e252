// The matrix-free system, its factor and the solvers on it.

#include <gtest/gtest.h>

#include "fluids/pressure/Grid_CGSolver.h"
#include "tests/fluids/pressure/SolveProblem.h"

namespace orlix::test {
namespace {

const VecInt3D kUneven(9, 7, 8);

TEST(PressureSystem, ARowIsThePressureLessItsNeighboursByTheFacesWeights) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(-1, 1);
    std::vector<double> v(problem.system.count(), 0.0);
    int equations = 0;
    problem.ForCells([&](int i, int j, int k) {
      if (!problem.HasEquation(i, j, k)) return;
      ++equations;
      v[problem.Cell(i, j, k)] = any(random);
      // The column of a cell, which is its row.
      std::vector<double> unit(v.size(), 0.0), expected(v.size(), 0.0);
      const std::int64_t cell = problem.Cell(i, j, k);
      unit[cell] = 1;
      for (int face = 0; face < 6; ++face) {
        VecInt3D side, other;
        side[face / 2] = face % 2, other[face / 2] = face % 2 ? 1 : -1;
        const double weight = problem.Coefficient(face / 2, i + side.x, j + side.y, k + side.z);
        expected[cell] += weight;
        if (!problem.HasEquation(i + other.x, j + other.y, k + other.z)) continue;
        expected[problem.Cell(i + other.x, j + other.y, k + other.z)] = -weight;
      }
      const std::vector<double> column = Times(problem, unit);
      for (std::size_t r = 0; r < column.size(); ++r) ASSERT_NEAR(column[r], expected[r], 1e-14) << c.name;
    });
    EXPECT_GT(equations, 50) << c.name;
    EXPECT_GT(Dot(v, Times(problem, v)), 0) << c.name;
  }
}

TEST(ModifiedCholesky, FullyModifiedItKeepsTheSumsOfRows) {
  WorkerPool pool(1);
  int checked = 0;
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, kUneven);
    // Below a solid's overhang, as in closed containers, the last pivot is 0.
    if (c.solid || ClosedRegions(problem.system, pool).count() > 0) continue;
    ++checked;
    std::vector<double> ones(problem.system.count(), 0.0), inverse(ones.size()), z(ones.size(), 0.0);
    problem.ForCells([&](int i, int j, int k) { ones[problem.Cell(i, j, k)] = problem.HasEquation(i, j, k); });
    FactorModifiedCholesky(problem.system, {0, 1}, pool, inverse.data());
    const std::vector<double> sums = Times(problem, ones);
    ApplyModifiedCholesky(problem.system, inverse.data(), sums.data(), pool, z.data());
    for (std::size_t i = 0; i < z.size(); ++i) ASSERT_NEAR(z[i], ones[i], 1e-9) << c.name;
  }
  EXPECT_EQ(checked, 4);
}

TEST(ModifiedCholesky, OnALineOfCellsItIsTheInverse) {
  for (int axis = 0; axis < 3; ++axis) {
    VecInt3D cells(3, 3, 3);
    cells[axis] = 12;
    PressureProblem problem(cells, kOpen, Sphere);
    problem.FillVelocity();
    EXPECT_LE(SolveByCholesky(problem, problem.RightSide(), 1e-12).outcome.iterations, 1) << axis;
  }
}

TEST(ConjugateGradients, ReportWhatTheyLeave) {
  for (const ProblemCase& c : kCases) {
    const PressureProblem problem = Make(c, {16, 15, 14});
    const std::vector<double> rhs = problem.RightSide();
    for (const int limit : {0, 3, 500}) {
      const Solution s = SolveByCholesky(problem, rhs, 1e-8, 2, limit);
      const double left = LargestLeft(problem, rhs, s.pressure);
      EXPECT_EQ(s.outcome.converged, limit == 500) << c.name;
      EXPECT_LE(s.outcome.iterations, limit) << c.name;
      EXPECT_NEAR(s.outcome.absoluteResidual, left, 1e-12 * Largest(rhs)) << c.name;
      EXPECT_NEAR(s.outcome.residual, left / Largest(rhs), 1e-12) << c.name;
      EXPECT_EQ(s.outcome.residual <= 1e-8, limit == 500) << c.name;
    }
  }
}

TEST(ConjugateGradients, ZeroRightSideGivesZeroPressureAlsoWithoutInnerCells) {
  for (const VecInt3D& cells : {kUneven, VecInt3D(2, 9, 9), VecInt3D(9, 1, 9), VecInt3D(2, 2, 2)}) {
    const PressureProblem problem = Make(kCases[4], cells);
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

}  // namespace
}  // namespace orlix::test
