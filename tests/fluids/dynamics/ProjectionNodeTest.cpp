// The projection as a solver runs it in a scene.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"

namespace orlix::test {
namespace {

constexpr int kSolver = 1020, kLimit = 1021, kAccuracy = 1022, kTop = 1014;
constexpr std::int64_t kTypes[] = {kPressureCG, kPressureGauss, kPressureMultigrid};

void Stir(FluidSolver& solver, double amount = 1) {
  for (int axis = 0; axis < 3; ++axis) {
    ScalarGrid& grid = *solver.velocity.grids[std::size_t(axis)];
    FillCells(grid, [&](int i, int j, int k) { return amount * std::sin(0.7 * i + axis) * std::cos(0.4 * j - k); });
  }
}

// A container with an open top and a ball, stirred, then stepped. A cell is an eighth of a metre, so that its square is
// exact in single precision.
struct StirredScene : GasScene {
  StirredScene(std::int64_t type, int workers = 1, bool open = true) : GasScene({14, 17, 10}, workers) {
    fluid->Set(kSolver, type);
    if (open) fluid->Set(kTop, std::int64_t(0));
    AddObstacle("Ball", "sphere", Centre(), 2.7 * cellSize);
    StepThrough(0, 1);
    Stir(Solver());
  }
  const SolverReport& Last() { return reports.back().solvers.at(0); }
};

std::vector<double> Velocity(FluidSolver& solver) {
  std::vector<double> all;
  for (auto& grid : solver.velocity.grids) std::ranges::copy(ValuesOf(*grid), std::back_inserter(all));
  return all;
}

double LargestDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double largest = a.size() == b.size() ? 0 : HUGE_VAL;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

// Gauss tests nothing, and says so.
bool Converged(const SolverReport& report, std::int64_t type) {
  return type == kPressureGauss ? !report.converged : report.converged.value_or(false);
}

std::vector<Warning> Unconverged(const test::TestScene& scene) {
  std::vector<Warning> told;
  for (const Warning& warning : scene.observer.warnings.all()) {
    if (warning.key == "not-converged") told.push_back(warning);
  }
  return told;
}

TEST(ProjectionNode, EverySolverReportsWhatItLeft) {
  for (const std::int64_t type : kTypes) {
    StirredScene scene(type);
    scene.fluid->Set(kAccuracy, 0.35);
    scene.fluid->Set(kLimit, std::int64_t(type == kPressureGauss ? 1500 : 200));
    scene.Step(2);
    const SolverReport& report = scene.Last();
    EXPECT_EQ(report.node, "Scene/Air");
    EXPECT_TRUE(Converged(report, type));
    EXPECT_GT(report.divergenceBefore, 10) << type;
    EXPECT_LT(report.divergenceAfter, 1.01e-6 * report.divergenceBefore) << type;
    EXPECT_NEAR(report.residual, report.divergenceAfter / report.divergenceBefore, 1e-9) << type;
    if (type == kPressureGauss) {
      EXPECT_EQ(report.iterations, 1500);
    } else {
      EXPECT_GT(report.iterations, 1);
      EXPECT_LT(report.iterations, type == kPressureCG ? 60 : 10);
    }
    EXPECT_TRUE(Unconverged(scene).empty());
  }
}

TEST(ProjectionNode, LimitIsCountedAndSaidOnce) {
  for (const std::int64_t type : {kTypes[0], kTypes[2]}) {
    StirredScene scene(type);
    scene.fluid->Set(kLimit, std::int64_t(1));
    scene.root->Set(RootSettings::kSubstepModeId, std::int64_t(3));
    for (int frame = 2; frame < 4; ++frame) {
      Stir(scene.Solver());
      scene.reports.clear();
      scene.Step(frame);
      ASSERT_FALSE(scene.reports.empty());
      for (const SubstepReport& report : scene.reports) {
        EXPECT_EQ(report.solvers.at(0).converged, false);
        EXPECT_EQ(report.solvers.at(0).iterations, 1);
      }
      ASSERT_EQ(Unconverged(scene).size(), 1u);
      EXPECT_EQ(Unconverged(scene)[0].node, "Scene/Air");
      EXPECT_NE(Unconverged(scene)[0].text.find("ended after 1 iterations"), std::string::npos);
    }
  }
}

TEST(ProjectionNode, AClosedContainerTakesOnlyWhatSumsToZero) {
  for (const std::int64_t type : kTypes) {
    StirredScene scene(type, 1, false);
    scene.AddDivergenceWriter();
    scene.Step(2);
    Stir(scene.Solver());
    (*scene.Solver().divergenceSource.grid)(3, 3, 3) = 50;
    scene.Step(3);
    const SolverReport& report = scene.Last();
    EXPECT_TRUE(Converged(report, type));
    // What is left is the source's mean.
    EXPECT_GT(report.divergenceAfter, 50.0 / (14 * 17 * 10)) << type;
    EXPECT_LT(report.divergenceAfter, 50.0 / 800) << type;
    EXPECT_EQ((*scene.Solver().divergenceSource.grid)(3, 3, 3), 0) << type;
  }
}

TEST(ProjectionNode, DensityByCellIsTaken) {
  for (const std::int64_t type : kTypes) {
    StirredScene plain(type), scene(type);
    BaseObject& channel = scene.Add("channel_scalar", "Mass");
    scene.fluid->Set(Grid_Incompressibility::kDensityChannelId, TestScene::LinkTo(channel));
    for (StirredScene* s : {&plain, &scene}) s->fluid->Set(kLimit, std::int64_t(2000));
    scene.Step(2);
    plain.Step(2);
    Stir(scene.Solver());
    Stir(plain.Solver());
    ScalarGrid& mass = *scene.NodeOf<ChannelBase_Scalar>(channel)->grid;
    ASSERT_EQ(mass.dims, scene.cells);
    for (std::int64_t c = 0; c < mass.count; ++c) mass[c] = c % 14 < 7 ? 1.0 : 0.25;
    scene.NodeOf<ChannelBase_Scalar>(channel)->valueMax = 10;
    scene.Step(3);
    plain.Step(3);
    EXPECT_TRUE(Converged(scene.Last(), type));
    EXPECT_LT(scene.Last().divergenceAfter, 1e-6 * scene.Last().divergenceBefore) << type;
    EXPECT_GT(LargestDifference(Velocity(scene.Solver()), Velocity(plain.Solver())), 0.01) << type;
  }
}

// What the body displaces has nowhere to go: every solver leaves its mean in all cells and nothing else.
TEST(ProjectionNode, ABodyDrivenIntoAClosedContainerLeavesTheMean) {
  double left = 0;
  for (const std::int64_t type : kTypes) {
    GasScene scene({16, 16, 16}, 2);
    scene.fluid->Set(Grid_Incompressibility::kPressureSolverId, type);
    scene.fluid->Set(Grid_Incompressibility::kPressureIterationsId, std::int64_t(2000));
    scene.AddObstacle("Piston", "box", Vec3D(0.0, 0.5, 0.5), 3.1 * scene.cellSize);
    scene.StepThrough(0, 2);
    const double cellsPerFrame = 0.5;
    scene.Geometry("Piston").Set(kPositionId, Vec3D(cellsPerFrame * scene.cellSize, 0.5, 0.5));
    scene.Step(3);
    const SolverReport& report = scene.reports.back().solvers.at(0);
    EXPECT_GT(report.divergenceBefore, 0.9 * cellsPerFrame * 24) << type;
    if (left == 0) left = report.divergenceAfter;
    EXPECT_NEAR(report.divergenceAfter, left, 1e-6) << type;
    EXPECT_LT(left, 0.03 * report.divergenceBefore) << type;
    EXPECT_LT(report.residual, 1e-7) << type;
    EXPECT_TRUE(Converged(report, type));
  }
}

// --- viscosity node -------------------------------------------------------------------------------------------------

// Between walls at y = 0 and 1 a flow along x decays as the first mode does, by implicit Euler; far from the ends in x.
TEST(ViscosityNode, AFlowBetweenWallsDecays) {
  constexpr double kSetting = 0.4, kViscosity = 0.1 * kSetting;
  for (const bool byChannel : {false, true}) {
    GasScene s({34, 18, 18});
    s.fluid->Set(Grid_Viscosity::kViscosityIterationsId, std::int64_t(500));
    s.fluid->Set(Grid_Viscosity::kViscosityAccuracyId, 1e-7);
    if (byChannel) {
      BaseObject& channel = s.Add("channel_scalar", "Viscosity");
      s.fluid->Set(Grid_Viscosity::kViscosityChannelId, s.LinkTo(channel));
    } else {
      s.fluid->Set(Grid_Viscosity::kViscosityId, kSetting);
    }
    s.StepThrough(0, 1);
    FluidSolver& solver = s.Solver();
    ASSERT_TRUE(solver.ResolveLinks());
    if (byChannel) {
      ASSERT_NE(solver.viscosity->channel, nullptr);
      const_cast<ScalarGrid*>(solver.viscosity->channel->GetGrid(0))->Fill(kViscosity);
    }
    ScalarGrid& u = *solver.velocity.grids[0];
    const double h = s.cellSize;
    const auto profile = [&](int j) { return std::sin(std::numbers::pi * (j - 0.5) * h); };
    for (int k = 0; k < u.dims.z; ++k) {
      for (int j = 0; j < u.dims.y; ++j) {
        for (int i = 0; i < u.dims.x; ++i) u(i, j, k) = profile(j);
      }
    }
    solver.SolveViscosity();
    const double dt = solver.GetSimulationInfo().substepDuration, wave = std::numbers::pi;
    const double factor = 1 / (1 + kViscosity * dt * wave * wave);
    int checked = 0;
    for (int j = 3; j < u.dims.y - 3; ++j, ++checked) {
      EXPECT_NEAR(u(17, j, 9), factor * profile(j), 0.004) << j << " " << byChannel;
    }
    EXPECT_EQ(checked, 12);
    EXPECT_EQ(s.reports.back().solvers.size(), 2u);  // the viscous solve reports like the projection
  }
}

}  // namespace
}  // namespace orlix::test
