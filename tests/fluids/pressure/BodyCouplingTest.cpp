// Bodies in the pressure system: what a pressure does to them, and what they do to its matrix.

#include "fluids/pressure/BodyCoupling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "fluids/pressure/BodyPressure.h"
#include "fluids/pressure/PressureSolver.h"
#include "tests/support/PressureProblem.h"

namespace orlix {
namespace {

using test::PressureProblem;

constexpr int kCells = 24;
constexpr double kH = 1.0 / kCells, kRadius = 0.23;
const Vec3D kMiddle(0.52, 0.47, 0.5);

// A ball in a closed box with edges of a metre.
struct BallProblem : PressureProblem {
  BallProblem()
      : PressureProblem({kCells, kCells, kCells}, test::kClosed,
                        [](double x, double y, double z) { return Length(Vec3D(x, y, z) - kMiddle) - kRadius; }),
        pool(3),
        levelSet({kCells + 1, kCells + 1, kCells + 1}, Vec3D(1), float(kH), kGridNodalLevelset, Vec3D()) {
    space.Build(dims, Vec3D(1), float(kH), Vec3D());
    for (int k = 0; k <= kCells; ++k) {
      for (int j = 0; j <= kCells; ++j) {
        for (int i = 0; i <= kCells; ++i) levelSet(i, j, k) = Length(Vec3D(i, j, k) * kH - kMiddle) - kRadius;
      }
    }
    input.cellSize = float(kH);
    for (int axis = 0; axis < 3; ++axis) {
      input.share[axis] = GridView<const float>(*share[axis]);
      input.velocity[std::size_t(axis)] = GridView<const double>(*velocity[axis]);
    }
  }
  CoupledBody Ball(const Vec3D& centre) const {
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
    values[std::size_t(p.Cell(i, j, k))] = Dot(gradient, (Vec3D(i, j, k) + Vec3D(0.5)) * kH);
  });
  return values;
}

TEST(BodyCoupling, EvenPressureLiftsByTheVolume) {
  BallProblem p;
  const Vec3D centre = kMiddle + Vec3D(0.05, -0.03, 0.1), gradient(300, -9810, 1200);
  p.Build(p.Ball(centre));
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

TEST(BodyCoupling, TheSumsOfTheSplitSchemeAgree) {
  BallProblem p;
  const Vec3D centre = kMiddle + Vec3D(0.05, -0.03, 0.1), gradient(300, -9810, 1200);
  p.Build(p.Ball(centre));
  const std::vector<double> pressure = Linear(p, gradient);
  const MovingBody body{LevelSetView(p.levelSet), {0.2, 0.2, 0.2}, {0.8, 0.8, 0.8}, centre, {}, {}};
  const ForceAndTorque split = SumBodyPressure(p.input, p.space, body, pressure.data(), {}, p.pool);
  const ForceAndTorque joint = p.coupling.Forces(pressure.data(), p.pool)[0];
  // By parts: minus the differences over the faces' solid shares; the cells within have no part in either.
  EXPECT_LT(Length(split.force * (-kH * kH) - joint.force), 0.25 * Length(joint.force));
  EXPECT_GT(Dot(split.torque, joint.torque), 0);
}

TEST(BodyCoupling, TermIsSymmetricAndTellsItsProduct) {
  BallProblem p;
  p.Build(p.Ball(kMiddle));
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
  constexpr double kDt = 0.02;
  for (const PressureSolverType type : {kPressureCG, kPressureMultigrid}) {
    BallProblem p;
    p.system.scale = kDt / (kH * kH * 1000);
    CoupledBody ball = p.Ball(kMiddle);
    ball.inverseMass = Vec3D(1 / 5.0);  // much lighter than its water
    ball.velocity = {{1, 2, -1}, {0.5, 0, 3}};
    p.Build(ball);
    p.FillVelocity();
    std::vector<double> rhs = p.RightSide(), right, pressure(rhs.size(), 0.0);
    for (double& v : rhs) v /= kH;
    p.coupling.AddMotion(rhs.data());
    double mean = 0, count = 0;
    p.ForCells([&](int i, int j, int k) { p.HasEquation(i, j, k) ? (mean += rhs[p.Cell(i, j, k)], ++count) : 0; });
    p.ForCells([&](int i, int j, int k) { p.HasEquation(i, j, k) ? rhs[p.Cell(i, j, k)] -= mean / count : 0; });
    right = rhs;
    p.system.bodies = &p.coupling, p.system.dt = kDt;
    ScratchPool scratch;
    const PressureTools tools{p.pool, scratch, nullptr};
    PressureSettings settings;
    settings.toleranceFactor = 1e-10;
    const PressureOutcome outcome =
        MakePressureSolver(type)->Solve(p.system, settings, tools, rhs.data(), pressure.data());
    EXPECT_TRUE(outcome.converged) << type;
    std::vector<double> product(rhs.size(), 0.0);
    p.coupling.AddProduct(pressure.data(), product.data(), kDt, p.pool);
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

}  // namespace
}  // namespace orlix
