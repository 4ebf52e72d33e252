// The smoke plume that users start from, at a low resolution.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "tests/support/SceneFileRun.h"

namespace orlix {
namespace {

using test::SceneFileRun;

constexpr const char* kScene = "scenes/smoke_plume.json";

// Cells of 12.5 cm: 20 x 32 x 20, all of them computed.
std::vector<std::string> Coarse(std::vector<std::string> more = {}) {
  std::vector<std::string> all = {"Plume.voxel_size=0.125", "Plume/Air.margin=64"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

struct Mass {
  double sum = 0, height = 0;
};

Mass MassOf(const ScalarGrid& grid) {
  Mass mass;
  test::ForCells(grid, [&](double v, const Vec3D& p) { mass.sum += v, mass.height += v * p.y; });
  if (mass.sum > 0) mass.height /= mass.sum;
  return mass;
}

TEST(SmokePlume, StaysMirrorSymmetric) {
  SceneFileRun run(kScene, Coarse({"Plume/Air.pressure_accuracy=0.5", "Source.constraints=[]"}));
  run.StepThrough(0, 36);
  const ScalarGrid& smoke = *run.Get<ScalarGridChannel>("Plume/smoke").grid;
  const VecInt3D n = smoke.dims;
  double most = 0, apart = 0;
  test::ForAll(n, [&](int i, int j, int k) {
    most = std::max(most, smoke(i, j, k));
    apart = std::max(apart, std::abs(smoke(i, j, k) - smoke(n.x - 1 - i, j, k)));
    apart = std::max(apart, std::abs(smoke(i, j, k) - smoke(i, j, n.z - 1 - k)));
  });
  EXPECT_GT(most, 0.5);
  EXPECT_LT(apart, 1e-5 * most);
}

TEST(SmokePlume, MassInAClosedBoxIsWhatWasEmitted) {
  SceneFileRun run(kScene,
                   Coarse({"Source.constraints=[]", "Plume/Air.face_y_max=closed", "Plume/Air.face_x_min=closed",
                           "Plume/Air.face_x_max=closed", "Plume/Air.face_z_min=closed", "Plume/Air.face_z_max=closed",
                           "Plume/smoke.value_max=1e6", "Move smoke.scheme=conservative"}));
  run.StepThrough(0, 2);
  const auto smoke = [&]() -> const ScalarGrid& { return *run.Get<ScalarGridChannel>("Plume/smoke").grid; };
  const double first = MassOf(smoke()).sum;
  run.StepThrough(3, 3);
  const double perFrame = MassOf(smoke()).sum - first;
  EXPECT_GT(perFrame, 1);
  run.StepThrough(4, 48);
  // What is below the empty value is cleared in each sub-step.
  EXPECT_NEAR(MassOf(smoke()).sum, first + 46 * perFrame, 2e-3 * 46 * perFrame);
}

TEST(SmokePlume, BoxFollowsTheSmoke) {
  SceneFileRun run(kScene, {"Plume.voxel_size=0.125", "Plume/Air.margin=4"});
  run.StepThrough(0, 4);
  const std::int64_t early = run.reports.back().cells;
  run.StepThrough(5, 48);
  EXPECT_GT(run.reports.back().cells, early);
  // Scratch memory of former sizes is given back.
  EXPECT_LT(run.reports.back().peakBytes, 600 * run.reports.back().cells);
  EXPECT_LT(early, 22 * 34 * 22 / 2);
  EXPECT_LE(run.reports.back().cells, 22 * 34 * 22);
}

TEST(SmokePlumeSlow, KeepsAtMost107BytesACellAndTakes180) {
  for (const auto& [solver, most] : {std::pair{"conjugate_gradients", 150}, {"multigrid", 180}, {"gauss", 170}}) {
    SceneFileRun run(
        kScene, {"Plume.voxel_size=0.03125", "Plume/Air.container=[393.75, 393.75, 393.75]", "Plume/Air.margin=126",
                 "Plume/Air.pressure_iterations=3", std::string("Plume/Air.pressure_solver=") + solver});
    run.StepThrough(0, 2);
    const SubstepReport& report = run.reports.back();
    ASSERT_EQ(report.cells, 128 * 128 * 128);
    EXPECT_LE(static_cast<double>(report.gridBytes) / report.cells, 107) << solver;
    EXPECT_GE(static_cast<double>(report.gridBytes) / report.cells, 104) << solver;
    EXPECT_LE(static_cast<double>(report.peakBytes) / report.cells, most) << solver;
    const MemoryForecast forecast = run.scene().ForecastMemory();
    EXPECT_EQ(forecast.cells, 128 * 128 * 128);
    EXPECT_NEAR(forecast.bytes / static_cast<double>(report.peakBytes), 1.05, 0.1) << solver;
  }
}

}  // namespace
}  // namespace orlix
