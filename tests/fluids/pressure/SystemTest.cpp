// The right side, the pressure's gradient and moving solids: laws of a projection, without a scene.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "fluids/pressure/BodyCoupling.h"
#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/BodyPressure.h"
#include "fluids/pressure/Grid_CGSolver.h"
#include "fluids/pressure/PressureAssembly.h"
#include "fluids/pressure/PressureSolver.h"
#include "tests/fluids/pressure/SolveProblem.h"
#include "tests/support/PressureProblem.h"

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

// Bodies in the pressure system: what a pressure does to them, and what they do to its matrix.

using test::PressureProblem;

constexpr int kCells = 24;
constexpr double kStep = 1.0 / kCells, kRadius = 0.23;
const Vec3D kMiddle(0.52, 0.47, 0.5);

double Ball(double x, double y, double z) { return Length(Vec3D(x, y, z) - kMiddle) - kRadius; }

// A box, whose top stands at the low end of a layer of cells and whose bottom in the middle of one.
const Vec3D kHalfBox(0.23, 0.2, 0.21);
double Box(double x, double y, double z) {
  const Vec3D p = Vec3D(x, y, z) - kMiddle, out = Vec3D(std::abs(p.x), std::abs(p.y), std::abs(p.z)) - kHalfBox;
  return std::min(std::max({out.x, out.y, out.z}), 0.0) + Length(Max(out, Vec3D()));
}

// A body in a closed box with edges of a metre.
struct BallProblem : PressureProblem {
  explicit BallProblem(double (*distance)(double, double, double) = Ball)
      : PressureProblem({kCells, kCells, kCells}, test::kClosed, distance),
        pool(3),
        levelSet({kCells + 1, kCells + 1, kCells + 1}, Vec3D(1), float(kStep), kGridNodalLevelset, Vec3D()) {
    space.Build(dims, Vec3D(1), float(kStep), Vec3D());
    for (int k = 0; k <= kCells; ++k) {
      for (int j = 0; j <= kCells; ++j) {
        for (int i = 0; i <= kCells; ++i) levelSet(i, j, k) = distance(i * kStep, j * kStep, k * kStep);
      }
    }
    input.cellSize = float(kStep);
    for (int axis = 0; axis < 3; ++axis) {
      input.share[axis] = GridView<const float>(*share[axis]);
      input.velocity[std::size_t(axis)] = GridView<const double>(*velocity[axis]);
    }
  }
  CoupledBody Body(const Vec3D& centre) const {
    CoupledBody body{LevelSetView(levelSet), {0.2, 0.2, 0.2}, {0.8, 0.8, 0.8}, centre, {}, {}};
    body.inverseMass = {0.2, 0.3, 0.1};
    body.inverseInertia = {{}, {4, 1, 0}, {1, 3, 0}, {0, 0, 5}};
    return body;
  }
  void Build(const CoupledBody& body) { coupling.Build({body}, input, space, {}, {}, pool); }

  WorkerPool pool;
  ScalarGrid levelSet;
  GridSpace space;
  DivergenceInput input;
  BodyCoupling coupling;
};

std::vector<double> Linear(const BallProblem& p, const Vec3D& gradient) {
  std::vector<double> values(std::size_t(p.system.count()), 0.0);
  p.ForCells([&](int i, int j, int k) {
    values[std::size_t(p.Cell(i, j, k))] = Dot(gradient, (Vec3D(i, j, k) + Vec3D(0.5)) * kStep);
  });
  return values;
}

TEST(BodyCoupling, EvenPressureLiftsByTheVolume) {
  BallProblem p;
  const Vec3D centre = kMiddle + Vec3D(0.05, -0.03, 0.1), gradient(300, -9810, 1200);
  p.Build(p.Body(centre));
  const ForceAndTorque sum = p.coupling.Forces(Linear(p, gradient).data(), p.pool)[0];
  const ForceAndTorque rest = p.coupling.SurfaceOffset(0, gradient);
  const double volume = 4 / 3.0 * std::numbers::pi * kRadius * kRadius * kRadius;
  const Vec3D expected = gradient * -volume, turn = Cross(kMiddle - centre, expected);
  EXPECT_LT(Length(sum.force + rest.force - expected), 0.03 * Length(expected));
  // The right hand's rule: what is lifted on the right of the centre turns to the left.
  EXPECT_LT(Length(sum.torque + rest.torque - turn), 0.05 * Length(turn));
  // A pressure that is the same everywhere does nothing.
  const std::vector<double> even(std::size_t(p.system.count()), 1e5);
  EXPECT_LT(Length(p.coupling.Forces(even.data(), p.pool)[0].force), 1e-6 * 1e5);
}

// Between a cell's middle and a flat side the pressure changes: the box would be lifted by 4% more.
TEST(BodyCoupling, AFlatSideIsLiftedByThePressureWhereItStands) {
  BallProblem p(Box);
  const Vec3D gradient(0, -9810, 0);
  p.Build(p.Body(kMiddle));
  const double weight = 9810 * 8 * kHalfBox.x * kHalfBox.y * kHalfBox.z;
  const double lift = p.coupling.Forces(Linear(p, gradient).data(), p.pool)[0].force.y;
  EXPECT_GT(lift, 1.02 * weight);
  EXPECT_NEAR(lift + p.coupling.SurfaceOffset(0, gradient).force.y, weight,
              0.025 * weight);  // of its edges the faces lack a little
}

TEST(BodyCoupling, TheSumsOfTheSplitSchemeAgree) {
  BallProblem p;
  const Vec3D centre = kMiddle + Vec3D(0.05, -0.03, 0.1), gradient(300, -9810, 1200);
  p.Build(p.Body(centre));
  const std::vector<double> pressure = Linear(p, gradient);
  const MovingBody body{LevelSetView(p.levelSet), {0.2, 0.2, 0.2}, {0.8, 0.8, 0.8}, centre, {}, {}};
  const ForceAndTorque split = SumBodyPressure(p.input, p.space, body, pressure.data(), {}, p.pool);
  const ForceAndTorque joint = p.coupling.Forces(pressure.data(), p.pool)[0];
  // By parts: minus the differences over the faces' solid shares; the cells within have no part in either.
  EXPECT_LT(Length(split.force * (-kStep * kStep) - joint.force), 0.25 * Length(joint.force));
  EXPECT_GT(Dot(split.torque, joint.torque), 0);
}

TEST(BodyCoupling, TermIsSymmetricAndTellsItsProduct) {
  BallProblem p;
  p.Build(p.Body(kMiddle));
  std::mt19937 random(3);
  std::uniform_real_distribution<double> unit(-1, 1);
  std::vector<double> a(std::size_t(p.system.count())), b = a, aTo(a.size(), 0.0), bTo = aTo;
  for (double& v : a) v = unit(random);
  for (double& v : b) v = unit(random);
  const auto dot = [](const auto& x, const auto& y) { return std::inner_product(x.begin(), x.end(), y.begin(), 0.0); };
  const double own = p.coupling.AddProduct(a.data(), aTo.data(), 0.04, p.pool);
  p.coupling.AddProduct(b.data(), bTo.data(), 0.04, p.pool);
  EXPECT_NEAR(own, dot(a, aTo), 1e-12 * std::abs(own));
  EXPECT_GT(own, 0);
  EXPECT_NEAR(dot(b, aTo), dot(a, bTo), 1e-9 * std::abs(own));
}

// After the solve the open faces and the moved body together fill no cell.
TEST(BodyCoupling, FluidAndBodyGoTogetherWithBothSolvers) {
  constexpr double kSeconds = 0.02;
  for (const PressureSolverType type : {kPressureCG, kPressureMultigrid}) {
    BallProblem p;
    p.system.scale = kSeconds / (kStep * kStep * 1000);
    CoupledBody ball = p.Body(kMiddle);
    ball.inverseMass = Vec3D(1 / 5.0);  // much lighter than its water
    ball.velocity = {{1, 2, -1}, {0.5, 0, 3}};
    p.Build(ball);
    p.FillVelocity();
    std::vector<double> rhs = p.RightSide(), right, pressure(rhs.size(), 0.0);
    for (double& v : rhs) v /= kStep;
    p.coupling.AddMotion(rhs.data());
    double mean = 0, count = 0;
    p.ForCells([&](int i, int j, int k) { p.HasEquation(i, j, k) ? (mean += rhs[p.Cell(i, j, k)], ++count) : 0; });
    p.ForCells([&](int i, int j, int k) { p.HasEquation(i, j, k) ? rhs[p.Cell(i, j, k)] -= mean / count : 0; });
    right = rhs;
    p.system.bodies = &p.coupling, p.system.dt = kSeconds;
    ScratchPool scratch;
    const PressureTools tools{p.pool, scratch, nullptr};
    PressureSettings settings;
    settings.toleranceFactor = 1e-10;
    const PressureOutcome outcome =
        MakePressureSolver(type)->Solve(p.system, settings, tools, rhs.data(), pressure.data());
    EXPECT_TRUE(outcome.converged) << type;
    std::vector<double> product(rhs.size(), 0.0);
    p.coupling.AddProduct(pressure.data(), product.data(), kSeconds, p.pool);
    double largest = 0, worst = 0;
    p.ForCells([&](int i, int j, int k) {
      if (!p.HasEquation(i, j, k)) return;
      double sum = product[p.Cell(i, j, k)];
      for (int axis = 0; axis < 3; ++axis) {
        for (const int side : {0, 1}) {
          int n[3] = {i, j, k}, f[3] = {i, j, k};
          n[axis] += side ? 1 : -1, f[axis] += side;
          sum +=
              p.Coefficient(axis, f[0], f[1], f[2]) * (pressure[p.Cell(i, j, k)] - pressure[p.Cell(n[0], n[1], n[2])]);
        }
      }
      largest = std::max(largest, std::abs(right[p.Cell(i, j, k)]));
      worst = std::max(worst, std::abs(sum - right[p.Cell(i, j, k)]));
    });
    EXPECT_LT(worst, 1e-7 * largest) << type;
  }
}

// The matrix-free system, its factor and the solvers on it.

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
