// The node in a scene, and points traced through a channel.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/operators/GridAdvection.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::GasScene;

// A gas scene with a channel, stepped once so that all grids exist; nothing drives the gas.
class AdvectionScene : public GasScene {
 public:
  explicit AdvectionScene(std::int64_t scheme, bool velocityTarget = false) : GasScene({18, 16, 17}) {
    smoke = &Add("channel_scalar", "smoke");
    smoke->Set(ScalarGridChannel::kValueMaxId, 100.0);
    colour = &Add("channel_vector", "colour");
    colour->Set(VectorGridChannel::kValueMaxId, Vec3D(100));
    node = &Add("grid_advection", "Carry");
    node->Set(GridAdvection::kSolverId, LinkTo(*fluid));
    node->Set(GridAdvection::kSchemeId, scheme);
    node->Set(GridAdvection::kIntegratorId, Integrator::Heun);
    if (!velocityTarget) node->Set(GridAdvection::kChannelId, LinkTo(*smoke));
    Step(0);
    Step(1);
  }
  // Resolves links anew: a step ends with their release.
  GridAdvection& Linked() {
    scene().SetStage(kStageStart);
    scene().EvaluateStage();
    scene().SetStage(kStageAdvection);
    return *NodeOf<GridAdvection>(*node);
  }
  void Run(GridAdvection& advection) {
    ProcessData data;
    advection.Prepare();
    advection.Process(data);
    advection.Finish();
  }
  ScalarGridChannel& Smoke() { return *NodeOf<ScalarGridChannel>(*smoke); }
  // Whole cells in a sub-step.
  void Blow(const Vec3D& cellsAStep) {
    const double scale = cellSize / scene().info.substepDuration;
    for (int c = 0; c < 3; ++c) {
      test::FillCells(*Solver().velocity.grids[c], [&](int, int, int) { return cellsAStep[c] * scale; });
    }
  }

  BaseObject *smoke, *colour, *node;
};

double Blob(int i, int j, int k) { return i >= 6 && i < 10 && j >= 5 && j < 8 && k >= 7 && k < 9 ? 1 + 0.25 * i : 0; }

TEST(GridAdvection, CarriesAScalarChannelWithTheSolversVelocity) {
  for (const std::int64_t scheme : {0, 1}) {
    AdvectionScene scene(scheme);
    GridAdvection& advection = scene.Linked();
    scene.Blow({2, 1, -1});
    test::FillCells(*scene.Smoke().grid, Blob);
    scene.Run(advection);
    double largest = 0, total = 0;
    test::ForBox({3, 2, 2}, {15, 13, 14}, [&](int i, int j, int k) {
      largest = std::max(largest, std::fabs((*scene.Smoke().grid)(i, j, k) - Blob(i - 2, j - 1, k + 1)));
      total += (*scene.Smoke().grid)(i, j, k);
    });
    EXPECT_LT(largest, 1e-4) << "scheme " << scheme;  // dt is a single-precision number
    EXPECT_GT(total, 10);
    EXPECT_EQ((*scene.Smoke().previous)(7, 6, 7), Blob(7, 6, 7));
  }
}

TEST(GridAdvection, ScalarsThatAreCarriedAlikeAreTakenAlongAndGetWhatTheyGetAlone) {
  const auto carried = [](Integrator integrator, std::int64_t scheme) {
    AdvectionScene scene(1);
    BaseObject& heat = scene.Add("channel_temp", "heat");
    heat.Set(ScalarGridChannel::kValueMaxId, 100.0);
    BaseObject& other = scene.Add("grid_advection", "Carry heat");
    other.Set(GridAdvection::kSolverId, scene.LinkTo(*scene.fluid));
    other.Set(GridAdvection::kChannelId, scene.LinkTo(heat));
    other.Set(GridAdvection::kSchemeId, scheme);
    other.Set(GridAdvection::kIntegratorId, integrator);
    other.Set(GridAdvection::kCorrectionStrengthId, 0.4);
    scene.Step(2);
    GridAdvection& first = scene.Linked();
    auto& heatChannel = *scene.NodeOf<ScalarGridChannel>(heat);
    auto& second = *scene.NodeOf<GridAdvection>(other);
    scene.Blow({1.3, 0.6, -0.7});
    test::FillCells(*scene.Smoke().grid, Blob);
    test::FillCells(*heatChannel.grid, [](int i, int j, int k) { return Blob(i, k, j) + 0.1 * j; });
    const bool canTake = first.CanTakeAlong(second), together = first.TakesAlong(second);
    EXPECT_EQ(canTake, together) << "a block of its own keeps them apart otherwise";
    EXPECT_FALSE(first.TakesAlong(second));
    first.Prepare(), second.Prepare();
    ProcessData data;
    first.Process(data);
    if (!together) second.Process(data);
    first.Finish(), second.Finish();
    return std::pair(together, std::pair(test::ValuesOf(*scene.Smoke().grid), test::ValuesOf(*heatChannel.grid)));
  };
  const auto [together, values] = carried(Integrator::Heun, 1);
  EXPECT_TRUE(together);
  const auto [alone, ownTraces] = carried(Integrator::Ralston, 1);
  EXPECT_FALSE(alone);
  EXPECT_FALSE(carried(Integrator::Heun, 0).first);
  EXPECT_EQ(values.first, ownTraces.first);
  // A uniform velocity leads to the same points by both integrators, up to rounding.
  ASSERT_EQ(values.second.size(), ownTraces.second.size());
  double largest = 0, difference = 0;
  for (std::size_t c = 0; c < values.second.size(); ++c) {
    largest = std::max(largest, values.second[c]);
    difference = std::max(difference, std::fabs(values.second[c] - ownTraces.second[c]));
  }
  EXPECT_GT(largest, 2);
  EXPECT_LT(difference, 1e-9);
}

TEST(GridAdvection, ConservativeSchemesKeepGammaThroughAChangeOfContainer) {
  AdvectionScene scene(2);
  GridAdvection& advection = scene.Linked();
  ASSERT_TRUE(advection.previousGamma && advection.gamma);
  EXPECT_EQ(advection.gamma->dims, scene.Smoke().grid->dims);
  EXPECT_EQ((*advection.previousGamma)(3, 3, 3), 1);
  scene.Blow({0.4, 0.2, -0.3});
  test::FillCells(*scene.Smoke().grid, Blob);
  const double before = test::SumOf(*scene.Smoke().grid);
  scene.Run(advection);
  EXPECT_NEAR(test::SumOf(*scene.Smoke().grid), before, 1e-10 * before);
  advection.ResetSimulation();
  EXPECT_EQ((*advection.gamma)(9, 3, 3), 1);
  advection.scalarChannel = nullptr;
  EXPECT_FALSE(advection.ApplyBounds({}, {}));
  EXPECT_EQ(advection.gamma, nullptr);
}

TEST(GridAdvection, WithoutATargetTheVelocityCarriesItself) {
  AdvectionScene scene(1, true);
  GridAdvection& advection = scene.Linked();
  EXPECT_EQ(advection.scalarChannel, nullptr);
  ASSERT_NE(advection.velocityChannel, nullptr);
  scene.Blow({1, 0, 0});
  ScalarGrid& w = *scene.Solver().velocity.grids[2];
  const double speed = scene.cellSize / scene.scene().info.substepDuration;
  test::FillCells(w, [&](int i, int j, int) { return i == 7 && j == 7 ? 0.5 * speed : 0; });
  scene.Run(advection);
  // The column moved by one cell.
  const ScalarGrid& moved = *scene.Solver().velocity.grids[2];
  EXPECT_NEAR(moved(8, 7, 8), 0.5 * speed, 1e-5 * speed);
  EXPECT_NEAR(moved(7, 7, 8), 0, 1e-5 * speed);
  EXPECT_NEAR((*scene.Solver().velocity.grids[0])(7, 7, 8), speed, 1e-5 * speed);
}

TEST(GridAdvection, AVectorChannelTakesTheConservativeSchemesAsThePlainOne) {
  AdvectionScene plain(0), conservative(2);
  for (AdvectionScene* scene : {&plain, &conservative}) {
    scene->node->Set(GridAdvection::kChannelId, scene->LinkTo(*scene->colour));
    GridAdvection& advection = scene->Linked();
    ASSERT_NE(advection.vectorChannel, nullptr);
    scene->Blow({0.3, 0.7, -0.2});
    for (int c = 0; c < 3; ++c) {
      test::FillCells(*advection.vectorChannel->grids[c], [&](int i, int j, int k) { return (c + 1) * Blob(i, j, k); });
    }
    scene->Run(advection);
  }
  const auto& a = plain.NodeOf<VectorGridChannel>(*plain.colour)->grids;
  const auto& b = conservative.NodeOf<VectorGridChannel>(*conservative.colour)->grids;
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(test::ValuesOf(*a[c]), test::ValuesOf(*b[c]));
    EXPECT_GT(test::SumOf(*a[c]), 10);
  }
}

TEST(TraceVelocityField, MovesPointsThroughPresentAndPreviousGrids) {
  AdvectionScene scene(1);
  scene.Linked();
  scene.Blow({3, 0, 0});
  VectorGridChannel& velocity = scene.Solver().velocity;
  velocity.SwapGrids();
  scene.Blow({0, 2, 0});
  const float dt = static_cast<float>(scene.scene().info.substepDuration);
  const double h = scene.cellSize;
  const Vec3D start(0.4, 0.3, 0.5), origin = velocity.grids[0]->space.simMin;
  ASSERT_NE(origin, Vec3D());
  for (int integrator = 0; integrator < 4; ++integrator) {
    Vec3D local = start, world = start + origin, before = start;
    TraceVelocityField(velocity, local, dt, static_cast<Integrator>(integrator), false);
    TraceVelocityField(velocity, world, dt, static_cast<Integrator>(integrator), true);
    TraceVelocityFieldPrevious(velocity, before, -dt, static_cast<Integrator>(integrator), false);
    EXPECT_LT(Length(local - (start + Vec3D(0, 2 * h, 0))), 1e-6);
    EXPECT_LT(Length(world - (start + origin + Vec3D(0, 2 * h, 0))), 1e-6);
    EXPECT_LT(Length(before - (start - Vec3D(3 * h, 0, 0))), 1e-6);
  }
  Vec3D still = start;
  TraceVelocityField(velocity, still, dt, static_cast<Integrator>(9), true);
  EXPECT_EQ(still, start);
}

}  // namespace
}  // namespace orlix
