// Burning: what fuel and flames turn into, and where they stop.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/operators/GridAdvection.h"
#include "fluids/operators/GridCombustion.h"
#include "fluids/operators/GridOperator.h"
#include "host/geometry/GeometryTypes.h"
#include "tests/fluids/operators/OperatorBench.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::FillCells;
using test::ForInner;
using test::GasSolver;
using test::OperatorBench;

constexpr VecInt3D kCells{8, 7, 6};

class Combustion : public testing::Test {
 protected:
  Combustion() {
    bench_.factory.Add<GasSolver>();
    gas_ = &bench_.Add("stand_in_solver", "gas");
    burn_ = &bench_.Add("grid_combustion_fire", "burn");
    heat_ = &bench_.Add("channel_temp", "heat");
    fire_ = &bench_.Add("channel_fire", "fire");
    fuel_ = &bench_.Add("channel_fuel", "fuel");
    smoke_ = &bench_.Add("channel_scalar", "smoke");
    burn_->Set(GridCombustion::kTemperatureId, OperatorBench::LinkTo(*heat_));
    burn_->Set(GridCombustion::kFireId, OperatorBench::LinkTo(*fire_));
    burn_->Set(GridCombustion::kFuelId, OperatorBench::LinkTo(*fuel_));
    burn_->Set(GridCombustion::kSmokeId, OperatorBench::LinkTo(*smoke_));
    burn_->Set(GridCombustion::kSolverId, OperatorBench::LinkTo(*gas_));
    heat_->Set(TemperatureGridChannel::kValueMaxId, 2000.0);
    fire_->Set(FireGridChannel::kFlameTemperatureId, 1600.0);  // of 2000: the threshold is 0.8
  }
  void Ready() {
    bench_.Fit(kCells);
    auto& source = bench_.Get<GasSolver>(*gas_).source;
    source.ApplyBounds({}, Vec3D(kCells) * OperatorBench::kCell);
    source.grid->Fill(0);
  }
  ScalarGrid& Of(const BaseObject* channel) { return bench_.GridOf(*channel); }
  ScalarGrid& Expansion() { return *bench_.Get<GasSolver>(*gas_).source.grid; }
  double dt() { return bench_.scene().info.substepDuration; }

  OperatorBench bench_{3};
  BaseObject *gas_, *burn_, *heat_, *fire_, *fuel_, *smoke_;
};

TEST_F(Combustion, FuelBurnsAtAFixedRateUntilItIsGone) {
  burn_->Set(GridCombustion::kBurnRateId, 2.0);
  burn_->Set(GridCombustion::kSmokeRateId, 0.5);
  burn_->Set(GridCombustion::kExpansionId, 3.0);
  Ready();
  Of(heat_).Fill(700);
  FillCells(Of(fuel_), [](int i, int, int) { return 0.1 * i; });
  ASSERT_TRUE(bench_.Run(*burn_));
  const double step = 2 * dt();
  const int cells = ForInner(kCells, [&](int i, int j, int k) {
    const double burned = std::min(step, 0.1 * i);
    EXPECT_NEAR(Of(fuel_)(i, j, k), 0.1 * i - burned, 1e-15);
    EXPECT_NEAR(Of(heat_)(i, j, k), 700 + burned * 1000, 1e-12);
    EXPECT_NEAR(Of(smoke_)(i, j, k), burned * 0.5 * dt(), 1e-15);
    EXPECT_NEAR(Expansion()(i, j, k), burned * 2 * 3, 1e-14);
    EXPECT_EQ(Of(fire_)(i, j, k), 1);
  });
  EXPECT_EQ(cells, 6 * 5 * 4);
  EXPECT_EQ(Of(fire_)(0, 3, 3), 0);  // the outermost cells aren't walked
}

TEST_F(Combustion, ColdFuelDoesNotBurn) {
  Ready();
  FillCells(Of(heat_), [](int i, int, int) { return i < 4 ? 599.0 : 600.0; });
  Of(fuel_).Fill(1);
  ASSERT_TRUE(bench_.Run(*burn_));
  ForInner(kCells, [&](int i, int j, int k) {
    EXPECT_EQ(Of(fire_)(i, j, k), i < 4 ? 0 : 1);
    EXPECT_EQ(Of(fuel_)(i, j, k) < 1, i >= 4);
    EXPECT_EQ(Of(heat_)(i, j, k) > 600, i >= 4);
  });
}

TEST_F(Combustion, AMixtureStopsWhenItsAirIsGone) {
  burn_->Set(GridCombustion::kBurnModelId, BurnModel::MixtureLimited);
  burn_->Set(GridCombustion::kBurnRateId, 4.0);
  burn_->Set(GridCombustion::kSmokeRateId, 0.0);
  Ready();
  Of(heat_).Fill(700);
  FillCells(Of(fuel_), [](int i, int, int) { return 0.5 * i; });
  FillCells(Of(smoke_), [](int, int j, int) { return 0.4 * j; });
  ASSERT_TRUE(bench_.Run(*burn_));
  int stopped = 0, burning = 0;
  ForInner(kCells, [&](int i, int j, int k) {
    const double F = 0.5 * i, S = 0.4 * j;
    const double b = std::min(std::max(3.23 - (S + F), 0.0), 0.19 * F) * 4 * dt();
    EXPECT_NEAR(Of(fuel_)(i, j, k), std::max(F - b / 0.19, 0.0), 1e-12);
    EXPECT_NEAR(Of(heat_)(i, j, k), 700 + b * 1000, 1e-9);
    EXPECT_NEAR(Expansion()(i, j, k), b * 0.2, 1e-14);  // the rate is in b already
    if (S + F >= 3.23) {
      EXPECT_EQ(Of(heat_)(i, j, k), 700);
      EXPECT_EQ(Of(fuel_)(i, j, k), F);
      ++stopped;
    } else {
      EXPECT_LT(Of(fuel_)(i, j, k), F);
      ++burning;
    }
  });
  EXPECT_GT(stopped, 10);
  EXPECT_GT(burning, 10);
}

TEST_F(Combustion, FlamesBurnDownAlongTheirCurves) {
  burn_->Set(GridCombustion::kFuelId, Value());
  burn_->Set(GridCombustion::kBurnRateId, 2.0);
  static constexpr SplineKnot kHeat[] = {{0, 0.25}, {1, 0.75}}, kSmoke[] = {{0, 1}, {1, 3}};
  burn_->Set(GridCombustion::kTemperatureCurveId, std::make_shared<const SplineData>(kHeat));
  burn_->Set(GridCombustion::kSmokeCurveId, std::make_shared<const SplineData>(kSmoke));
  Ready();
  Of(heat_).Fill(42);
  constexpr double kFlames[] = {0, 0.5, 0.8, 0.85, 0.9, 1.0, 1.1, 0};
  FillCells(Of(fire_), [&](int i, int, int) { return kFlames[i]; });
  ASSERT_TRUE(bench_.Run(*burn_));
  ForInner(kCells, [&](int i, int j, int k) {
    const double f = kFlames[i];
    const bool burns = f > 0.8 && f <= 1;
    const double g = 1 - (f - 0.8) / 0.2;
    EXPECT_NEAR(Of(heat_)(i, j, k), burns ? (0.25 + 0.5 * g) * 2000 + 500 : 42, 1e-3);
    EXPECT_NEAR(Of(smoke_)(i, j, k), burns ? (1 + 2 * g) * 0.2 : 0, 1e-6);
    EXPECT_NEAR(Expansion()(i, j, k), burns ? 0.4 : 0, 1e-15);
    EXPECT_EQ(Of(fire_)(i, j, k), f);
  });
}

TEST_F(Combustion, AFlameHotterThanTheChannelHasAThresholdBelowOne) {
  burn_->Set(GridCombustion::kFuelId, Value());
  fire_->Set(FireGridChannel::kFlameTemperatureId, 9000.0);
  Ready();
  FillCells(Of(fire_), [](int i, int, int) { return i < 4 ? 0.985 : 0.995; });
  Of(heat_).Fill(1);
  bench_.Run(*burn_);
  EXPECT_EQ(Of(heat_)(3, 3, 3), 1);
  EXPECT_GT(Of(heat_)(4, 3, 3), 1);
}

TEST_F(Combustion, ConstraintsAndFalloffsLeaveCells) {
  BaseObject &falloff = bench_.Add("falloff", "part"), &volume = bench_.Add("constraint_voxeldistance", "near");
  falloff.Set(kFalloffShapeId, std::int64_t{1});
  falloff.Set(kFalloffSizeId, Vec3D(100, 1000, 1000));
  falloff.Set(kFalloffInnerId, 1.0);
  volume.Set(VoxelDistanceConstraint::kReferenceId, OperatorBench::LinkTo(falloff));
  volume.Set(VoxelDistanceConstraint::kDistanceId, 130.0);
  burn_->Set(kFalloffsId, OperatorBench::ListOf({&falloff}));
  burn_->Set(kConstraintsId, OperatorBench::ListOf({&volume}));
  Ready();
  Of(heat_).Fill(700);
  Of(fuel_).Fill(1);
  ASSERT_TRUE(bench_.Run(*burn_));
  int burnt = 0, left = 0;
  ForInner(kCells, [&](int i, int j, int k) {
    const Vec3D p = test::SamplePlace(Of(heat_), i, j, k);
    const bool inside = p.x <= 1 && Length(p) < 1.3;
    EXPECT_EQ(Of(fire_)(i, j, k), inside) << i << j << k;
    (inside ? burnt : left)++;
    // Where it burns, it burns in full: the amounts only open and close cells.
    if (inside) {
      EXPECT_NEAR(Of(fuel_)(i, j, k), 1 - dt(), 1e-15);
    }
  });
  EXPECT_GT(burnt, 5);
  EXPECT_GT(left, 20);
}

TEST_F(Combustion, AnotherLatticeOfTheSolverTakesTheSameExpansion) {
  Ready();
  Of(heat_).Fill(700);
  Of(fuel_).Fill(1);
  auto& source = bench_.Get<GasSolver>(*gas_).source;
  source.grid = std::make_unique<ScalarGrid>(VecInt3D(12, 12, 12), Vec3D(300), 0.25f, kGridCustom, Vec3D(-37.0));
  source.grid->Fill(0);
  ASSERT_TRUE(bench_.Run(*burn_));
  EXPECT_NEAR(test::SumOf(*source.grid), 6 * 5 * 4 * dt() * 0.2, 1e-12);
}

TEST_F(Combustion, WhatIsMissingLeavesItIdle) {
  Ready();
  bench_.scene().info.substepDuration = 0;
  EXPECT_FALSE(bench_.Run(*burn_));
  bench_.scene().info.substepDuration = 0.1;
  EXPECT_TRUE(bench_.Run(*burn_));
  burn_->Set(GridCombustion::kFireId, Value());
  EXPECT_FALSE(bench_.Run(*burn_));
  burn_->Set(GridCombustion::kFireId, OperatorBench::LinkTo(*fire_));
  bench_.Link();
  bench_.Get<ChannelBase_Scalar>(*heat_).grid =
      std::make_unique<ScalarGrid>(VecInt3D(3, 3, 3), Vec3D(75), 0.25f, kGridTemperature, Vec3D());
  EXPECT_FALSE(bench_.Run(*burn_));
  ASSERT_FALSE(bench_.warnings.empty());
  EXPECT_NE(bench_.warnings.back().second.find("heat"), std::string::npos);
}

// The node in a scene, and points traced through a channel.

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
