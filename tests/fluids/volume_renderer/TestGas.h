#pragma once
// A cube of gas for the tests of the march.

#include <gtest/gtest.h>

#include <utility>

#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

inline constexpr int kCells = 40;
inline constexpr double kCell = 0.5;  // host units
inline constexpr double kBox = kCells * kCell;

struct Gas {
  explicit Gas(int workers = 2) : pool(workers) {
    density = Make(kGasDensity);
    settings.steps = {0.5, 2, 0, false};
    settings.shadowSteps = {0.5, 2, 0, false};
    settings.shadowDensity = Vec3D(0.0);
    settings.stopWhenOpaque = false;
    settings.phase = 0;
    const GradientKnot white[] = {{0, {1, 1, 1}}};
    gradients.smoke = Gradient(white);
  }
  static constexpr double kGasDensity = 0.8;
  static std::unique_ptr<ScalarGrid> Make(double fill) {
    auto grid =
        std::make_unique<ScalarGrid>(VecInt3D(kCells, kCells, kCells), Vec3D(kBox), 0.1f, kGridSmoke, Vec3D(-3, 2, 1));
    grid->valueScale = 1;
    grid->Fill(fill);
    return grid;
  }
  RayMarcher& Build() {
    RayMarcher::Input input{{}, settings, gradients, filters, lights, &world, 0, pool, nullptr, nullptr};
    input.channels.density = density.get();
    input.channels.temperature = temperature.get();
    EXPECT_TRUE(marcher.Build(std::move(input)).ok());
    return marcher;
  }
  // Along x through the middle of the box.
  MarchResult Straight() { return marcher.March({Vec3D(-3, 2 + kBox / 2, 1 + kBox / 2), {1, 0, 0}, kBox}, nullptr, 0); }
  WorkerPool pool;
  std::unique_ptr<ScalarGrid> density, temperature;
  GasSettings settings;
  GasGradients gradients;
  std::vector<Light> lights;
  std::array<ConstraintChain, kGasFilters> filters;
  RenderWorld world;
  RayMarcher marcher;
};

}  // namespace orlix
