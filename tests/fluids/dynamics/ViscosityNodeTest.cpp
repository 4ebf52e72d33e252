#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/dynamics/Grid_Viscosity.h"
#include "tests/support/GasScene.h"

namespace orlix {
namespace {

using test::GasScene;

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

TEST(ViscosityNode, WithoutAViscosityNothingMoves) {
  GasScene s({12, 12, 12});
  s.StepThrough(0, 1);
  ScalarGrid& u = *s.Solver().velocity.grids[0];
  u.Fill(0.25);
  s.Solver().SolveViscosity();
  EXPECT_EQ(u(5, 5, 5), 0.25);
}

}  // namespace
}  // namespace orlix
