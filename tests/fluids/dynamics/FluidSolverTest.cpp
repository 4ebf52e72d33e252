#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/boundary/GridBoundary.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "fluids/dynamics/Substances.h"
#include "fluids/dynamics/VelocityConstrain.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volumes/VolumeBase.h"
#include "tests/support/Cells.h"
#include "tests/support/DynamicsFields.h"
#include "tests/support/GasScene.h"

namespace orlix::test {
namespace {

const VecInt3D kCells(18, 20, 18);

TEST(FluidSolver, GridIsTheContainerAndALayerOfGhostCells) {
  GasScene s(kCells);
  s.StepThrough(0, 1);
  const FluidSolver& solver = s.Solver();
  ASSERT_NE(solver.velocity.grids[0], nullptr);
  const GridSpace& space = solver.velocity.grids[0]->space;
  EXPECT_EQ(space.dims, kCells);
  EXPECT_EQ(space.simMin, Vec3D(-s.cellSize));
  EXPECT_EQ(solver.boundary.solidDistance.grid->dims, kCells + VecInt3D(1, 1, 1));
  EXPECT_EQ(solver.fractions.GetFloatGrid(0, 0)->dims, kCells);
  EXPECT_EQ(solver.fractions.GetFloatGrid(1, 1)->dims, kCells + VecInt3D(0, 1, 0));
  EXPECT_FALSE(solver.IsInterior(space.simMin + space.simPerVoxel));
  EXPECT_TRUE(solver.IsInterior(space.simMin + space.simPerVoxel * 1.001));
  EXPECT_FALSE(solver.IsInterior(space.simMax - space.simPerVoxel * 0.5));
}

TEST(FluidSolver, ContainerIsScaledAnchoredAndSnapped) {
  GasScene s(kCells);
  s.root->Set(RootSettings::kScaleUnitsId, 100.0);  // 100 units a metre
  s.fluid->Set(FluidSolver::kContainerId, Vec3D(203, 100, 100));
  s.fluid->Set(FluidSolver::kAnchorModeId, FluidSolver::AnchorMode::Bottom);
  s.fluid->Set(kPositionId, Vec3D(50, 25, 0));
  s.StepThrough(0, 1);
  const FluidSolver& solver = s.Solver();
  const double h = s.cellSize;
  EXPECT_EQ(s.fluid->GetVector(FluidSolver::kAnchorId), Vec3D(0.5, 0, 0.5));
  // x from -0.515 to 1.515 m.
  EXPECT_NEAR(solver.lowCorner.x, std::ceil(-0.515 / h) * h, 1e-9);
  EXPECT_NEAR(solver.lowCorner.x + solver.scaledSize.x, std::floor(1.515 / h) * h, 1e-9);
  EXPECT_NEAR(solver.lowCorner.y, 0.25, 1e-9);
  EXPECT_NEAR(solver.scaledSize.y, 1.0, 1e-9);
}

TEST(FluidSolver, EachFaceHasItsBit) {
  constexpr struct { int id, bit; } kFaces[] = {{1011, 1}, {1012, 2}, {1014, 4}, {1013, 8}, {1015, 16}, {1016, 32}};
  for (const auto& face : kFaces) {
    GasScene s(kCells);
    s.StepThrough(0, 1);
    EXPECT_EQ(s.Solver().closedFaces, 63);
    s.fluid->Set(face.id, std::int64_t(0));
    s.Step(2);
    EXPECT_EQ(s.Solver().closedFaces, 63 - face.bit);
  }
}

TEST(FluidSolver, BoxGrowsByTheMarginWithinTheContainer) {
  GasScene s(kCells);
  s.fluid->Set(FluidSolver::kMarginId, std::int64_t(2));
  s.StepThrough(0, 1);
  FluidSolver& solver = s.Solver();
  const double h = s.cellSize;
  const auto box = [&](Vec3D min, Vec3D max) {
    solver.ExtendBounds(min, max);
    return std::pair(min * (1 / h), max * (1 / h));
  };
  auto [min, max] = box(Vec3D(4.3, 6, 0.5) * h, Vec3D(5.5, 7, 1.0) * h);
  EXPECT_TRUE(solver.IsActive());
  const auto expectNear = [](const Vec3D& got, const Vec3D& want) {
    for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(got[axis], want[axis], 1e-6);
  };
  expectNear(min, {2, 4, -1});  // limited to the ghost layer
  expectNear(max, {8, 9, 3});
  std::tie(min, max) = box(Vec3D(-100.0), Vec3D(100.0));
  expectNear(min, Vec3D(-1.0));
  expectNear(max, Vec3D(kCells - VecInt3D(1, 1, 1)));
  EXPECT_FALSE(solver.outOfBounds);
  box(Vec3D(30 * h), Vec3D(31 * h));
  EXPECT_FALSE(solver.IsActive());
  EXPECT_TRUE(solver.outOfBounds);
  box(Vec3D(1e300), Vec3D(-1e300));  // nobody asked
  EXPECT_FALSE(solver.IsActive());
  s.scene().info.substepDuration = 0;
  box(Vec3D(0.0), Vec3D(4 * h));
  EXPECT_FALSE(solver.IsActive());
}

TEST(FluidSolver, TopSpeedIsTheCornerOfTheComponents) {
  GasScene s(kCells);
  s.StepThrough(0, 1);
  FluidSolver& solver = s.Solver();
  EXPECT_EQ(solver.SquaredSpeed(), 1e-8);  // still
  (*solver.velocity.grids[0])(3, 4, 5) = -3;
  (*solver.velocity.grids[1])(8, 4, 5) = 2;
  (*solver.velocity.grids[2])(3, 9, 5) = 1;
  solver.AfterStep();
  EXPECT_EQ(solver.SquaredSpeed(), 14);
  solver.ResetSimulation();
  EXPECT_EQ(solver.SquaredSpeed(), 0.001);
}

TEST(FluidObject, PresetsSetValuesAndTurnToCustomAfterwards) {
  GasScene s(kCells);
  s.fluid->Set(FluidSolver::kViscosityPresetId, Substance::ThickOil);
  s.fluid->Set(FluidSolver::kDensityPresetId, std::int64_t(1031));
  s.Step(0);
  EXPECT_EQ(s.fluid->GetDouble(Grid_Viscosity::kViscosityId), 0.16376);
  EXPECT_EQ(s.fluid->GetDouble(Grid_Incompressibility::kDensityId), 868);
  s.Step(1);
  EXPECT_EQ(s.fluid->GetInt(FluidSolver::kViscosityPresetId), 5);
  s.fluid->Set(Grid_Incompressibility::kPressureIterationsId, std::int64_t(50));
  s.Step(2);
  EXPECT_EQ(s.fluid->GetInt(FluidSolver::kViscosityPresetId), 0);
  EXPECT_EQ(s.fluid->GetInt(FluidSolver::kDensityPresetId), 1027);
  EXPECT_EQ(s.fluid->GetDouble(Grid_Incompressibility::kDensityId), 868);
  s.fluid->Set(FluidSolver::kViscosityPresetId, Substance::Keep);
  s.Step(3);
  EXPECT_EQ(s.fluid->GetInt(FluidSolver::kViscosityPresetId), 8);
  EXPECT_EQ(s.fluid->GetDouble(Grid_Viscosity::kViscosityId), 0.16376);
}

// --- solids ----------------------------------------------------------------------------------------------------------

TEST(Solids, StillOnesAreComputedOnceAndMovingOnesEachTime) {
  GasScene s(kCells);
  s.AddObstacle("Ball", "sphere", s.Centre(), 0.2);
  s.StepThrough(0, 2);
  const FluidSolver& solver = s.Solver();
  const std::uint64_t boundary = solver.boundary.revision(), fractions = solver.fractions.revision();
  s.StepThrough(3, 5);
  EXPECT_EQ(solver.boundary.revision(), boundary);
  EXPECT_EQ(solver.fractions.revision(), fractions);
  s.Geometry("Ball").Set(kPositionId, s.Centre() + Vec3D(0, 0.1, 0));
  s.Step(6);
  EXPECT_NE(solver.boundary.revision(), boundary);
  EXPECT_NE(solver.fractions.revision(), fractions);
  const std::uint64_t moved = solver.boundary.revision();
  s.fluid->Set(GridBoundary::kFaceYMaxId, std::int64_t(0));
  s.Step(7);
  EXPECT_NE(solver.boundary.revision(), moved);
}

TEST(Solids, BallClosesTheFacesInsideIt) {
  GasScene s(kCells);
  s.AddObstacle("Ball", "sphere", s.Centre(), 0.25);
  s.StepThrough(0, 1);
  FluidSolver& solver = s.Solver();
  const FloatGrid& open = *solver.fractions.GetFloatGrid(1, 1);
  int inside = 0, outside = 0;
  ForAll(open.dims, [&](int i, int j, int k) {
    const Vec3D p = open.space.SimOfVoxel(Vec3D(i, j, k) + CellSampleOffset(1));
    const double distance = Length(p - s.Centre()) - 0.25;
    if (distance < -s.cellSize) {
      EXPECT_EQ(open(i, j, k), 0);
      ++inside;
    }
    const bool nearWall = i < 2 || j < 2 || k < 2 || i > kCells.x - 3 || j > kCells.y - 2 || k > kCells.z - 3;
    if (distance > s.cellSize && !nearWall) {
      EXPECT_EQ(open(i, j, k), 1);
      ++outside;
    }
    EXPECT_EQ(solver.fractions.ClosedFaces(1)(i, j, k), open(i, j, k) == 0);
  });
  EXPECT_GT(inside, 100);
  EXPECT_GT(outside, 1000);
  Vec3D normal;
  solver.boundary.ResolveLinks();
  EXPECT_TRUE(solver.boundary.ObstacleNormal(normal, s.Centre() + Vec3D(0, 0.24, 0)));
  EXPECT_GT(normal.y, 0.95);
  EXPECT_FALSE(solver.boundary.ObstacleNormal(normal, s.Centre() + Vec3D(0, 0.49, 0)));
}

// Runs the constraint alone on a velocity of (1, 2, 3).
void Constrain(FluidSolver& solver) {
  for (int c = 0; c < 3; ++c) solver.velocity.grids[c]->Fill(1.0 + c);
  solver.boundary.ResolveLinks();
  solver.constraint.solver = &solver;
  solver.constraint.ResolveLinks();
  solver.constraint.Apply();
}

TEST(VelocityAtSolids, SlipKeepsTheTangentialPartAndNoSlipNothing) {
  // A box whose upper face is a plane of nodes: the normal there is y.
  GasScene s(kCells);
  s.AddObstacle("Box", "box", {s.Centre().x, 0, s.Centre().z}, 0.25);
  s.StepThrough(0, 1);
  FluidSolver& solver = s.Solver();
  const int top = 1 + int(std::lround(0.25 / s.cellSize));  // the face in that plane
  for (const bool ownNormals : {true, false}) {
    solver.constraint.useObstacleNormals = ownNormals;
    solver.constraint.slip = 1;
    Constrain(solver);
    EXPECT_EQ((*solver.velocity.grids[1])(9, top + 1, 9), 2);  // open
    EXPECT_NEAR((*solver.velocity.grids[1])(9, top - 1, 9), 0, 1e-9);
    EXPECT_NEAR((*solver.velocity.grids[0])(9, top - 1, 9), 1, 1e-9);
    EXPECT_NEAR((*solver.velocity.grids[2])(9, top - 1, 9), 3, 1e-9);
    solver.constraint.slip = 0.5;
    Constrain(solver);
    EXPECT_NEAR((*solver.velocity.grids[0])(9, top - 1, 9), 0.5, 1e-9);
    solver.constraint.slip = 0;
    Constrain(solver);
    for (int c = 0; c < 3; ++c) EXPECT_EQ((*solver.velocity.grids[c])(9, top - 1, 9), 0);
  }
  // Beside one that moves half of what goes along it in its own frame is left.
  s.fluid->Set(VelocityConstrain::kMoveWithObstaclesId, std::int64_t(1));
  for (int frame = 2; frame < 5; ++frame) {
    BaseObject& box = s.Geometry("Box");
    box.Set(kPositionId, box.GetVector(kPositionId) + Vec3D(0.01, 0, 0));
    s.Step(frame);
  }
  solver.constraint.slip = 0.5;
  Constrain(solver);
  const double speed = 0.01 * 24;
  EXPECT_NEAR((*solver.velocity.grids[0])(9, top - 1, 9), speed + (1 - speed) * 0.5, 1e-6);
}

TEST(VelocityAtSolids, WallsOfTheContainerStayClosedBesideThem) {
  GasScene s(kCells);
  s.AddObstacle("Low", "sphere", Vec3D(0.03, 0.3, 0.5), 0.31);
  s.AddObstacle("High", "sphere", Vec3D(0.97, 0.7, 0.5), 0.31);
  s.StepThrough(0, 1);
  FluidSolver& solver = s.Solver();
  for (int c = 0; c < 3; ++c) {
    ScalarGrid& grid = *solver.velocity.grids[c];
    ForAll(grid.dims, [&](int i, int j, int k) { grid(i, j, k) = std::sin(0.7 * i + c) * std::cos(0.4 * j - k); });
  }
  s.Step(2);
  double within = 0;
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid& grid = *solver.velocity.grids[c];
    ForAll(grid.dims, [&](int i, int j, int k) {
      const int along = VecInt3D(i, j, k)[c];
      if (along == 1 || along == grid.dims[c] - 2) {
        ASSERT_EQ(grid(i, j, k), 0) << c << " " << i << " " << j << " " << k;
      } else {
        within = std::max(within, std::abs(grid(i, j, k)));
      }
    });
  }
  EXPECT_GT(within, 0.1);
}

TEST(VelocityAtSolids, MovingObstacleGivesItsVelocity) {
  GasScene s(kCells);
  s.AddObstacle("Ball", "sphere", s.Centre(), 0.25);
  s.fluid->Set(VelocityConstrain::kSlipId, 0.0);
  s.fluid->Set(VelocityConstrain::kMoveWithObstaclesId, std::int64_t(1));
  s.StepThrough(0, 2);
  const Vec3D perFrame(0.01, 0.02, -0.03);
  for (int frame = 3; frame <= 4; ++frame) {
    BaseObject& ball = s.Geometry("Ball");
    ball.Set(kPositionId, ball.GetVector(kPositionId) + perFrame);
    s.Step(frame);
  }
  const FluidSolver& solver = s.Solver();
  const Vec3D place = s.Geometry("Ball").GetVector(kPositionId);
  int checked = 0;
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid& v = *solver.velocity.grids[c];
    ForAll(v.dims, [&](int i, int j, int k) {
      const Vec3D p = v.space.SimOfVoxel(Vec3D(i, j, k) + CellSampleOffset(static_cast<std::uint32_t>(c)));
      if (Length(p - place) > 0.25 - 1.5 * s.cellSize) return;
      EXPECT_NEAR(v(i, j, k), perFrame[c] * 24, 1e-7);
      ++checked;
    });
  }
  EXPECT_GT(checked, 20);
}

TEST(Projection, SourceIsSpreadAndClearedAndLeavesThroughTheOpenFace) {
  GasScene s(kCells);
  s.fluid->Set(GridBoundary::kFaceYMaxId, std::int64_t(0));
  s.fluid->Set(Grid_Incompressibility::kPressureSolverId, kPressureCG);
  s.StepThrough(0, 1);
  EXPECT_EQ(s.Solver().divergenceSource.grid, nullptr);  // no memory for what nobody fills
  s.AddDivergenceWriter();
  s.Step(2);
  ScalarGrid& source = *s.Solver().divergenceSource.grid;
  source(9, 6, 9) = 10;  // 1/s
  s.Step(3);
  EXPECT_EQ(source(9, 6, 9), 0);
  const ScalarGrid& v = *s.Solver().velocity.grids[1];
  double out = 0;
  for (int k = 1; k < kCells.z - 1; ++k) {
    for (int i = 1; i < kCells.x - 1; ++i) {
      out += v(i, kCells.y - 1, k) * static_cast<double>(s.Solver().fractions.View(1, 1)(i, kCells.y - 1, k));
    }
  }
  EXPECT_NEAR(out / s.cellSize, 10, 1e-5);
}

TEST(Projection, MovingObstaclePushesTheFluidAside) {
  GasScene s(kCells, 2);
  s.AddObstacle("Ball", "sphere", s.Centre() - Vec3D(0, 0.1, 0), 0.2);
  s.fluid->Set(GridBoundary::kFaceYMaxId, std::int64_t(0));
  s.fluid->Set(Grid_Incompressibility::kPressureSolverId, kPressureCG);
  s.StepThrough(0, 2);
  for (int frame = 3; frame <= 4; ++frame) {
    BaseObject& ball = s.Geometry("Ball");
    ball.Set(kPositionId, ball.GetVector(kPositionId) + Vec3D(0, 0.01, 0));  // 0.24 m/s
    s.Step(frame);
  }
  const ScalarGrid& v = *s.Solver().velocity.grids[1];
  const Vec3D place = s.Geometry("Ball").GetVector(kPositionId);
  const auto at = [&](const Vec3D& p) {
    const Vec3D i = v.space.VoxelOfSim(p) - CellSampleOffset(1);
    return SampleTrilinear(GridView<const double>(v), i.x, i.y, i.z);
  };
  // Potential flow around a ball in free space: V (R / r)^3 before and behind it, half of that against it beside it.
  const double ahead = 0.24 * std::pow(0.2 / 0.26, 3), beside = -0.12 * std::pow(0.2 / 0.3, 3);
  EXPECT_NEAR(at(place + Vec3D(0, 0.26, 0)), ahead, 0.2 * ahead);
  EXPECT_NEAR(at(place - Vec3D(0, 0.26, 0)), ahead, 0.2 * ahead);
  EXPECT_LT(at(place + Vec3D(0.3, 0, 0)), 0.5 * beside);  // faster between ball and wall
}

TEST(FluidSolver, KeepsTheFractionsBeforeWhereTheyAreAskedFor) {
  GasScene scene({12, 12, 12});
  scene.AddObstacle("Block", "sphere", scene.Centre(), 0.2);
  scene.StepThrough(0, 1);
  FluidSolver& solver = scene.Solver();
  EXPECT_EQ(solver.fractions.GetFloatGridPrevious(0, 1), nullptr) << "only where it is asked for";
  solver.fractions.keepPrevious = true;
  const FloatGrid& before = *solver.fractions.GetFloatGrid(0, 1);
  const std::vector<float> held(before.data, before.data + before.count);
  scene.Geometry("Block").Set(kPositionId, scene.Centre() + Vec3D(0.1, 0, 0));
  scene.Step(2);
  const FloatGrid *previous = solver.fractions.GetFloatGridPrevious(0, 1), *now = solver.fractions.GetFloatGrid(0, 1);
  ASSERT_NE(previous, nullptr);
  ASSERT_EQ(previous->count, static_cast<std::int64_t>(held.size()));
  EXPECT_TRUE(std::equal(held.begin(), held.end(), previous->data));
  EXPECT_FALSE(std::equal(held.begin(), held.end(), now->data));
}

// The projection as a solver runs it in a scene.

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
  explicit StirredScene(std::int64_t type) : GasScene({14, 17, 10}) {
    fluid->Set(kSolver, type);
    fluid->Set(kTop, std::int64_t(0));
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
