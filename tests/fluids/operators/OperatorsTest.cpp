// Cooling, dissipation, diffusion, variable density and arithmetic: their laws cell by cell.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/operators/ChannelOperator_Math.h"
#include "fluids/operators/ChannelOperator_Remap.h"
#include "fluids/operators/GridCombustion.h"
#include "fluids/operators/GridCooling.h"
#include "fluids/operators/GridDiffusion.h"
#include "fluids/operators/GridDissipate.h"
#include "fluids/operators/GridOperator.h"
#include "fluids/operators/GridVariableDensity.h"
#include "host/geometry/GeometryTypes.h"
#include "tests/fluids/operators/OperatorBench.h"

namespace orlix {
namespace {

using test::FillCells;
using test::ForInner;
using test::GasSolver;
using test::OperatorBench;

constexpr VecInt3D kCells{9, 8, 7};

class Cooling : public testing::TestWithParam<std::int64_t> {
 protected:
  Cooling() {
    cool_.Set(GridCooling::kTemperatureId, OperatorBench::LinkTo(heat_));
    cool_.Set(GridCooling::kRateId, 0.5);
    cool_.Set(GridCooling::kModelId, GetParam());
    heat_.Set(TemperatureGridChannel::kValueMinId, 20.0);
    heat_.Set(TemperatureGridChannel::kValueMaxId, 1020.0);
    fire_.Set(FireGridChannel::kFlameTemperatureId, 816.0);  // a threshold of 0.8
  }
  void Ready() { bench_.Fit(kCells); }
  double Law(double t) {
    const double dt = bench_.scene().info.substepDuration;
    if (GetParam() == 0) return t - std::pow((t - 20) / 1000, 4) * 500;
    if (GetParam() == 1) return t * (1 - 0.5 * dt);
    return t - 500 * dt;
  }
  OperatorBench bench_{3};
  BaseObject &cool_ = bench_.Add("grid_cooling", "cool"), &heat_ = bench_.Add("channel_temp", "heat"),
             &fire_ = bench_.Add("channel_fire", "fire");
};

TEST_P(Cooling, FollowsItsLawAndEndsAtTheMinimum) {
  Ready();
  const auto start = [](int i, int j, int k) { return 10.0 + 8 * i + 30 * j + 6 * k; };
  FillCells(bench_.GridOf(heat_), start);
  ASSERT_TRUE(bench_.Run(cool_));
  int atMinimum = 0;
  ForInner(kCells, [&](int i, int j, int k) {
    const double t = start(i, j, k), expected = std::max(Law(t), 20.0);
    EXPECT_NEAR(bench_.GridOf(heat_)(i, j, k), expected, 1e-10);
    atMinimum += expected == 20;
  });
  if (GetParam() == 2) {
    EXPECT_GT(atMinimum, 0);
  }
  bench_.GridOf(heat_).Fill(-5);
  bench_.Run(cool_);
  EXPECT_EQ(bench_.GridOf(heat_)(3, 3, 3), 20);
}

TEST_P(Cooling, FlamesAgeAndKeepTheirHeat) {
  cool_.Set(GridCooling::kFireId, OperatorBench::LinkTo(fire_));
  Ready();
  constexpr double kFlames[] = {0, 0, 0.01, 0.5, 0.8, 0.805, 0.9, 1.7, 0};
  FillCells(bench_.GridOf(fire_), [&](int i, int, int) { return kFlames[i]; });
  bench_.GridOf(heat_).Fill(900);
  ASSERT_TRUE(bench_.Run(cool_));
  const double dt = bench_.scene().info.substepDuration;
  const double hotStep = 0.2 / 2.5 * dt, coldStep = 0.8 / 0.5 * dt;
  ForInner(kCells, [&](int i, int j, int k) {
    const double f = std::min(kFlames[i], 1.0);
    const bool burning = f > 0.8;
    const double expected = burning ? std::max(f - hotStep, 0.8) : std::max(f - coldStep, 0.0);
    EXPECT_NEAR(bench_.GridOf(fire_)(i, j, k), expected, 1e-7) << i;
    EXPECT_NEAR(bench_.GridOf(heat_)(i, j, k), burning ? 900 : Law(900), 1e-10);
  });
}

TEST_P(Cooling, AmountsScaleTheLoss) {
  BaseObject& falloff = bench_.Add("falloff", "half");
  falloff.Set(kFalloffSizeId, Vec3D(1e6, 1e6, 1e6));
  falloff.Set(kFalloffStrengthId, 0.25);
  cool_.Set(kFalloffsId, OperatorBench::ListOf({&falloff}));
  Ready();
  bench_.GridOf(heat_).Fill(800);
  ASSERT_TRUE(bench_.Run(cool_));
  EXPECT_NEAR(bench_.GridOf(heat_)(4, 4, 4), 800 - (800 - Law(800)) / 4, 1e-9);
  falloff.Set(kFalloffStrengthId, 0.0);
  bench_.Run(cool_);
  const double after = bench_.GridOf(heat_)(4, 4, 4);
  bench_.Run(cool_);
  EXPECT_EQ(bench_.GridOf(heat_)(4, 4, 4), after);
}

INSTANTIATE_TEST_SUITE_P(Models, Cooling, testing::Values(0, 1, 2));

TEST(Dissipate, FallsButNeverCrossesTheBackground) {
  OperatorBench bench;
  BaseObject &fade = bench.Add("grid_dissipate", "fade"), &smoke = bench.Add("channel_scalar", "smoke");
  fade.Set(GridDissipate::kChannelId, OperatorBench::LinkTo(smoke));
  fade.Set(GridDissipate::kRateId, 4.0);
  smoke.Set(ScalarGridChannel::kBackgroundId, 0.25);
  bench.Fit(kCells);
  const auto start = [](int i, int, int) { return 0.1 * i; };
  FillCells(bench.GridOf(smoke), start);
  ASSERT_TRUE(bench.Run(fade));
  const double dt = bench.scene().info.substepDuration, loss = 4 * dt * dt;
  ForInner(kCells, [&](int i, int j, int k) {
    EXPECT_NEAR(bench.GridOf(smoke)(i, j, k), std::max(0.1 * i - loss, 0.25), 1e-15);
  });
  for (int n = 0; n < 50; ++n) bench.Run(fade);
  const int cells = ForInner(kCells, [&](int i, int j, int k) { EXPECT_EQ(bench.GridOf(smoke)(i, j, k), 0.25); });
  EXPECT_EQ(cells, 7 * 6 * 5);
}

TEST(Dissipate, VectorComponentsFallTogether) {
  OperatorBench bench;
  BaseObject &fade = bench.Add("grid_dissipate", "fade"), &colour = bench.Add("channel_vector", "colour");
  fade.Set(GridDissipate::kChannelId, OperatorBench::LinkTo(colour));
  fade.Set(GridDissipate::kRateId, 4.0);
  colour.Set(VectorGridChannel::kValueMaxId, Vec3D(2, 9, 9));
  bench.Fit(kCells);
  auto& grids = bench.Get<VectorGridChannel>(colour).grids;
  const Vec3D starts[] = {{0.5, 0.4, 0.05}, {0.5, 0.5, -0.1}, {-0.5, -0.2, -0.1}};
  for (int c = 0; c < 3; ++c) FillCells(*grids[c], [&](int i, int, int) { return starts[i % 3][c]; });
  ASSERT_TRUE(bench.Run(fade));
  const double dt = bench.scene().info.substepDuration, loss = 2 * 4 * dt * dt;  // the first component's range
  ForInner(kCells, [&](int i, int j, int k) {
    for (int c = 0; c < 3; ++c) {
      const double v = starts[i % 3][c], expected = i % 3 == 0 ? std::max(v - loss, 0.0) : i % 3 == 1 ? v : 0;
      EXPECT_NEAR((*grids[c])(i, j, k), expected, 1e-15);
    }
  });
}

TEST(Density, IsThatOfAWarmSmokyGas) {
  OperatorBench bench;
  BaseObject &density = bench.Add("grid_variabledensity", "density"), &target = bench.Add("channel_scalar", "target"),
             &smoke = bench.Add("channel_scalar", "smoke"), &heat = bench.Add("channel_temp", "heat");
  density.Set(GridVariableDensity::kTargetId, OperatorBench::LinkTo(target));
  density.Set(GridVariableDensity::kDensityId, OperatorBench::LinkTo(smoke));
  density.Set(GridVariableDensity::kTemperatureId, OperatorBench::LinkTo(heat));
  density.Set(GridVariableDensity::kAirDensityId, 1.2);
  density.Set(GridVariableDensity::kGasDensityId, 3.0);
  bench.Fit(kCells);
  FillCells(bench.GridOf(smoke), [](int i, int, int) { return 0.1 * i; });
  FillCells(bench.GridOf(heat), [](int, int j, int k) { return k == 3 ? 1e9 : 50.0 * j; });
  bench.GridOf(target).Fill(0.5);
  ASSERT_TRUE(bench.Run(density));
  ForInner(kCells, [&](int i, int j, int k) {
    const double expected = k == 3 ? 1.2 * 0.05 : 1.2 * 294 / (50.0 * j + 294) * (0.1 * i * 1.5 + 1);
    EXPECT_NEAR(bench.GridOf(target)(i, j, k), 0.5 + expected, 1e-12);
  });
}

// A velocity channel as a node of its own.
class FaceChannel : public VectorGridChannel {
 public:
  FaceChannel(BaseList2D* object, OrlixScene& owner) : VectorGridChannel(object, owner) {
    channelType = {kGridVelocityU, kGridVelocityV, kGridVelocityW};
  }
  static const TypeInfo& Type() {
    static const TypeInfo kType = [] {
      TypeInfo type = VectorGridChannel::Type();
      type.id = 990003, type.resource = "zq_faces";
      return type;
    }();
    return kType;
  }
  std::int32_t GetNodeSubType() const override { return 46; }
};

TEST(Density, AStaggeredTargetTakesHalvesFromBothSides) {
  for (const int workers : {1, 3}) {  // a face may lie between two workers' layers
    OperatorBench bench(workers);
    bench.factory.Add<FaceChannel>();
    BaseObject &density = bench.Add("grid_variabledensity", "density"), &target = bench.Add("faces", "target"),
               &smoke = bench.Add("channel_scalar", "smoke"), &heat = bench.Add("channel_temp", "heat");
    density.Set(GridVariableDensity::kTargetId, OperatorBench::LinkTo(target));
    density.Set(GridVariableDensity::kDensityId, OperatorBench::LinkTo(smoke));
    density.Set(GridVariableDensity::kTemperatureId, OperatorBench::LinkTo(heat));
    bench.Fit({9, 8, 15});
    FillCells(bench.GridOf(smoke), [](int i, int j, int k) { return 0.03 * i + 0.05 * j * k; });
    FillCells(bench.GridOf(heat), [](int i, int j, int k) { return 50.0 * j + 7 * k * i; });
    auto& grids = bench.Get<FaceChannel>(target).grids;
    for (auto& grid : grids) grid->Fill(0);
    ASSERT_TRUE(bench.Run(density));
    const DensityTerms terms;
    const auto at = [&](VecInt3D c) {
      const bool inner = c.x > 0 && c.y > 0 && c.z > 0 && c.x < 8 && c.y < 7 && c.z < 14;
      return inner ? terms.At(bench.GridOf(smoke)(c.x, c.y, c.z), bench.GridOf(heat)(c.x, c.y, c.z)) : 0;
    };
    for (int c = 0; c < 3; ++c) {
      VecInt3D back;
      back[c] = 1;
      ForInner(grids[c]->dims, [&](int i, int j, int k) {
        EXPECT_NEAR((*grids[c])(i, j, k), 0.5 * (at(VecInt3D(i, j, k) - back) + at({i, j, k})), 1e-12);
      });
    }
  }
}

class DiffusionThreads : public testing::Test {
 protected:
  void Ready(std::int64_t mode, double alpha, std::int64_t rounds = 1) {
    blur_.Set(GridDiffusion::kChannelId, OperatorBench::LinkTo(smoke_));
    blur_.Set(GridDiffusion::kModeId, mode);
    blur_.Set(GridDiffusion::kAlphaId, alpha * OperatorBench::kCell / bench_.scene().info.substepDuration);
    blur_.Set(GridDiffusion::kRoundsId, rounds);
    smoke_.Set(ScalarGridChannel::kValueMaxId, 100.0);
    bench_.Fit(kN);
  }
  static constexpr VecInt3D kN{17, 17, 17};
  OperatorBench bench_{3};
  BaseObject &blur_ = bench_.Add("grid_diffusion", "blur"), &smoke_ = bench_.Add("channel_scalar", "smoke");
};

TEST_F(DiffusionThreads, APointBecomesAGaussian) {
  Ready(0, 1.4);
  ScalarGrid& grid = bench_.GridOf(smoke_);
  grid.Fill(0);
  grid(8, 8, 8) = 1;
  ASSERT_TRUE(bench_.Run(blur_));
  const auto kernel = GaussianKernel(1.4, 100);
  ASSERT_EQ(kernel.size(), 9u);
  const auto weight = [&](int tap) { return kernel[static_cast<std::size_t>(tap - 4)]; };
  test::ForBox({4, 4, 4}, {13, 13, 13},
               [&](int i, int j, int k) { EXPECT_NEAR(grid(i, j, k), weight(i) * weight(j) * weight(k), 1e-15); });
  EXPECT_NEAR(test::SumOf(grid), 1, 1e-12);
}

TEST_F(DiffusionThreads, ASmallRadiusHasOneTap) {
  EXPECT_EQ(GaussianKernel(0.3, 100), std::vector<double>{1});
  EXPECT_EQ(GaussianKernel(0, 100), std::vector<double>{1});
  EXPECT_EQ(GaussianKernel(-2, 100), std::vector<double>{1});
  EXPECT_EQ(GaussianKernel(1e12, 5).size(), 11u);
  Ready(0, 0.3);
  ScalarGrid& grid = bench_.GridOf(smoke_);
  FillCells(grid, [](int i, int j, int k) { return 0.1 * i + 0.2 * j + 0.3 * k; });
  ASSERT_TRUE(bench_.Run(blur_));
  ForInner(kN, [&](int i, int j, int k) { EXPECT_NEAR(grid(i, j, k), 0.1 * i + 0.2 * j + 0.3 * k, 1e-14); });
  bench_.Fit({9, 9, 2});  // without an inner cell
  EXPECT_FALSE(bench_.Run(blur_));
}

TEST_F(DiffusionThreads, NeighboursAreAveragedInEachRound) {
  const auto start = [](int i, int j, int k) { return (i * 7 + j * 3 + k * 5) % 11 * 0.1; };
  const double a = 0.2;
  const auto averaged = [&](auto&& v, int i, int j, int k) {
    return (v(i, j, k) +
            a * (v(i + 1, j, k) + v(i - 1, j, k) + v(i, j + 1, k) + v(i, j - 1, k) + v(i, j, k + 1) + v(i, j, k - 1))) /
           (1 + 6 * a);
  };
  for (const std::int64_t mode : {1, 2}) {
    Ready(mode, a);
    ScalarGrid& grid = bench_.GridOf(smoke_);
    FillCells(grid, start);
    bench_.Run(blur_);
    ForInner(kN, [&](int i, int j, int k) {
      const double value = averaged(start, i, j, k);
      EXPECT_NEAR(grid(i, j, k), mode == 1 ? value : std::max(value, start(i, j, k)), 1e-12);
    });
    // Two rounds are one and another one.
    const ScalarGrid once = grid;
    blur_.Set(GridDiffusion::kRoundsId, std::int64_t{2});
    FillCells(grid, start);
    bench_.Run(blur_);
    ForInner(kN, [&](int i, int j, int k) {
      const double value = averaged(once, i, j, k);
      EXPECT_NEAR(grid(i, j, k), mode == 1 ? value : std::max(value, once(i, j, k)), 1e-12);
    });
  }
}

TEST_F(DiffusionThreads, EachComponentOfAVectorIsBlurred) {
  BaseObject& colour = bench_.Add("channel_vector", "colour");
  for (const std::int64_t mode : {0, 1}) {
    Ready(mode, 0.5);
    blur_.Set(GridDiffusion::kChannelId, OperatorBench::LinkTo(colour));
    colour.Set(VectorGridChannel::kValueMaxId, Vec3D(9, 9, 9));
    bench_.Fit(kN);
    auto& grids = bench_.Get<VectorGridChannel>(colour).grids;
    for (int c = 0; c < 3; ++c) {
      grids[c]->Fill(0);
      (*grids[c])(8, 8, 8) = c + 1;
    }
    ASSERT_TRUE(bench_.Run(blur_));
    const double centre = (*grids[0])(8, 8, 8), beside = (*grids[0])(9, 8, 8);
    EXPECT_LT(centre, 1);
    EXPECT_GT(beside, 0);
    for (int c = 1; c < 3; ++c) {
      EXPECT_NEAR((*grids[c])(8, 8, 8), (c + 1) * centre, 1e-12);
      EXPECT_NEAR((*grids[c])(9, 8, 8), (c + 1) * beside, 1e-12);
    }
  }
}

struct MathCase {
  std::int64_t operation;
  double expected;  // of cell 3 with operand 2
};
class Math : public testing::TestWithParam<MathCase> {};

// The operator on the whole of a channel, with these weights.
void Visit(OperatorBench& bench, const BaseObject& object, iBase& channel, const ScalarGrid& grid, double weight = 1) {
  bench.Link();
  auto& op = bench.Get<ChannelOperator>(object);
  op.AttachInput(&channel);
  op.Prepare();
  op.Setup();
  const std::vector<double> weights(static_cast<std::size_t>(grid.dims.x), weight);
  ParallelRange(bench.pool, 1, grid.dims.z - 1, [&](int begin, int end, int worker) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < grid.dims.y - 1; ++j) {
        op.ProcessRow({1, grid.dims.x - 1, j, k, worker, &grid.space, grid.Index(0, j, k), weights.data()});
      }
    }
  });
  op.Finish();
}

TEST_P(Math, OnScalars) {
  OperatorBench bench;
  BaseObject &math = bench.Add("channelop_math", "math"), &target = bench.Add("channel_scalar", "target"),
             &source = bench.Add("channel_scalar", "source"), &vector = bench.Add("channel_vector", "vector");
  math.Set(ChannelOperator_Math::kOperationId, GetParam().operation);
  math.Set(ChannelOperator_Math::kValueId, 2.0);
  bench.Fit(kCells);
  auto& channel = bench.Get<ChannelBase_Scalar>(target);
  const auto result = [&] {
    channel.grid->Fill(3);
    Visit(bench, math, channel, *channel.grid);
    EXPECT_EQ((*channel.grid)(0, 4, 4), 3);
    return (*channel.grid)(4, 4, 4);
  };
  EXPECT_EQ(result(), GetParam().expected);
  // The same from a channel, and from the first component of a vector.
  bench.GridOf(source).Fill(2);
  for (int c = 0; c < 3; ++c) bench.Get<VectorGridChannel>(vector).grids[c]->Fill(c == 0 ? 2 : -50);
  math.Set(ChannelOperator_Math::kValueId, -9.0);
  for (const BaseObject* link : {&source, &vector}) {
    math.Set(ChannelOperator_Math::kSourceId, OperatorBench::LinkTo(*link));
    EXPECT_EQ(result(), GetParam().expected);
  }
  // Constraints scale the operand; where nothing is left the cell stays.
  math.Set(ChannelOperator_Math::kSourceId, OperatorBench::LinkTo(source));
  bench.GridOf(source).Fill(4);
  BaseObject& half = bench.Add("constraint_gridvalue", "half");
  half.Set(GridValueConstraint::kChannelId, OperatorBench::LinkTo(target));
  half.Set(GridValueConstraint::kTestId, GridValueConstraint::Test::NotEqual);  // anything but 0
  half.Set(GridValueConstraint::kUseCurveId, std::int64_t{0});
  half.Set(Constraint::kIntensityId, 0.5);
  math.Set(kConstraintsId, OperatorBench::ListOf({&half}));
  EXPECT_EQ(result(), GetParam().expected);
  half.Set(Constraint::kIntensityId, 0.0);
  EXPECT_EQ(result(), 3);
}

TEST_P(Math, OnVectors) {
  OperatorBench bench;
  BaseObject &math = bench.Add("channelop_math", "math"), &target = bench.Add("channel_vector", "target"),
             &source = bench.Add("channel_scalar", "source"), &vector = bench.Add("channel_vector", "vector");
  math.Set(ChannelOperator_Math::kOperationId, GetParam().operation);
  math.Set(ChannelOperator_Math::kValueId, 2.0);
  math.Set(ChannelOperator_Math::kVectorValueId, Vec3D(2, 0.5, -1));
  bench.Fit(kCells);
  auto& channel = bench.Get<VectorGridChannel>(target);
  const auto result = [&] {
    const Vec3D start(3, 1, -2);
    for (int c = 0; c < 3; ++c) channel.grids[c]->Fill(start[c]);
    Visit(bench, math, channel, *channel.grids[0]);
    return Vec3D((*channel.grids[0])(4, 4, 4), (*channel.grids[1])(4, 4, 4), (*channel.grids[2])(4, 4, 4));
  };
  const Vec3D byNumber[] = {{5, 3, 0}, {1, -1, -4}, {6, 2, -4}, {4, 1, -2}, {2, 1, -2}, {3, 2, 2}};
  const Vec3D byVector[] = {{5, 1.5, -3}, {1, 0.5, -1}, {6, 0.5, 2}, {8.5, 1, -2}, {2, 0.5, -2}, {3, 1, -1}};
  const auto op = static_cast<std::size_t>(GetParam().operation);
  const auto expected = [&](const Vec3D* table) { return op < 6 ? table[op] : Vec3D(3, 1, -2); };
  EXPECT_EQ(result(), expected(byNumber));
  math.Set(ChannelOperator_Math::kUseVectorId, std::int64_t{1});
  EXPECT_EQ(result(), expected(byVector));
  bench.GridOf(source).Fill(2);
  math.Set(ChannelOperator_Math::kSourceId, OperatorBench::LinkTo(source));
  EXPECT_EQ(result(), expected(byNumber));
  const Vec3D values(2, 0.5, -1);
  for (int c = 0; c < 3; ++c) bench.Get<VectorGridChannel>(vector).grids[c]->Fill(values[c]);
  math.Set(ChannelOperator_Math::kSourceId, OperatorBench::LinkTo(vector));
  math.Set(ChannelOperator_Math::kVectorValueId, Vec3D(99, 99, 99));
  EXPECT_EQ(result(), expected(byVector));
}

// The scalar product of (3, 1, -2) with 2 in all components is 4.
INSTANTIATE_TEST_SUITE_P(Operations, Math,
                         testing::Values(MathCase{0, 5}, MathCase{1, 1}, MathCase{2, 6}, MathCase{3, 6}, MathCase{4, 2},
                                         MathCase{5, 3}, MathCase{6, 3}));

TEST(MathSource, ASolverStandsForItsVelocityAtCellCentres) {
  OperatorBench bench;
  bench.factory.Add<GasSolver>();
  BaseObject &math = bench.Add("channelop_math", "math"), &target = bench.Add("channel_vector", "target"),
             &gas = bench.Add("stand_in_solver", "gas");
  math.Set(ChannelOperator_Math::kSourceId, OperatorBench::LinkTo(gas));
  bench.Fit(kCells);
  auto& velocity = bench.Get<GasSolver>(gas).velocity;
  velocity.ApplyBounds({}, Vec3D(kCells) * OperatorBench::kCell);
  for (int c = 0; c < 3; ++c)
    FillCells(*velocity.grids[c], [&](int i, int j, int k) { return c == 0 ? i : c == 1 ? 10 * j : 100 * k; });
  auto& channel = bench.Get<VectorGridChannel>(target);
  for (auto& grid : channel.grids) grid->Fill(0);
  Visit(bench, math, channel, *channel.grids[0]);
  ForInner(kCells, [&](int i, int j, int k) {
    EXPECT_NEAR((*channel.grids[0])(i, j, k), i + 0.5, 1e-9);
    EXPECT_NEAR((*channel.grids[1])(i, j, k), 10 * (j + 0.5), 1e-9);
    EXPECT_NEAR((*channel.grids[2])(i, j, k), 100 * (k + 0.5), 1e-9);
  });
}

TEST(Remap, SendsCellsThroughTheGradient) {
  OperatorBench bench;
  BaseObject &scalar = bench.Add("channel_scalar", "s"), &vector = bench.Add("channel_vector", "v");
  BaseObject &op = bench.Add("channelop_remap", "op"), &visit = bench.Add("grid_celliterator", "visit");
  const GradientKnot knots[] = {{0, {1, 0, 0.5}}, {0.5, {0.25, 1, 0.5}}, {1, {0.5, 0, 1}}};
  op.Set(ChannelOperator_Remap::kGradientId, GradientValue(std::make_shared<const Gradient>(knots)));
  visit.Set(Grid_CellEmitter::kOperatorsId, OperatorBench::ListOf({&op}));
  visit.Set(Grid_CellEmitter::kChannelId, OperatorBench::LinkTo(scalar));
  constexpr VecInt3D kBox{6, 4, 4};
  bench.Fit(kBox);
  auto& channel = bench.Get<ChannelBase_Scalar>(scalar);
  channel.valueMin = -1, channel.valueMax = 4;
  FillCells(*channel.grid, [](int i, int, int) { return i - 1.0; });
  ASSERT_TRUE(bench.Run(visit));
  int checked = 0;
  ForInner(kBox, [&](int i, int j, int k) {
    const double t = (i - 1.0 - channel.valueMin) / channel.valueMax;
    const double curve = t < 0.5 ? 1 - 1.5 * t : t < 1 ? 0.25 + 0.5 * (t - 0.5) : 0.5;
    EXPECT_NEAR((*channel.grid)(i, j, k), (channel.valueMax - channel.valueMin) * curve + channel.valueMin, 1e-12) << i;
    ++checked;
  });
  EXPECT_EQ(checked, 16);
  visit.Set(Grid_CellEmitter::kChannelId, OperatorBench::LinkTo(vector));
  bench.Fit(kBox);
  auto& grids = bench.Get<ChannelBase_Vector>(vector).grids;
  for (int c = 0; c < 3; ++c) FillCells(*grids[std::size_t(c)], [&](int, int, int) { return 0.25 * (c + 1); });
  ASSERT_TRUE(bench.Run(visit));
  EXPECT_NEAR((*grids[0])(2, 2, 2), 0.625, 1e-12);
  EXPECT_NEAR((*grids[1])(2, 2, 2), 1, 1e-12);
  EXPECT_NEAR((*grids[2])(2, 2, 2), 0.75, 1e-12);
  EXPECT_EQ((*grids[0])(0, 2, 2), 0.25);
}

TEST(Falloff, FormsAndTheirBorders) {
  OperatorBench bench;
  BaseObject& object = bench.Add("falloff", "f");
  object.Set(kFalloffSizeId, Vec3D(100, 200, 50));
  const auto at = [&](const Vec3D& p) {
    double value = 2;
    object.data()->AsFalloff()->MultiplyRow(object, p, {}, {&value, 1});
    return value / 2;
  };
  EXPECT_EQ(at({0, 0, 0}), 1);
  EXPECT_EQ(at({50, 0, 0}), 1);
  EXPECT_NEAR(at({75, 0, 0}), 0.5, 1e-12);
  EXPECT_NEAR(at({0, 150, 0}), 0.5, 1e-12);
  EXPECT_EQ(at({0, 0, 50}), 0);
  object.Set(kFalloffShapeId, std::int64_t{1});
  EXPECT_NEAR(at({75, 150, 37.5}), 0.5, 1e-12);
  EXPECT_EQ(at({0, 201, 0}), 0);
  object.Set(kFalloffShapeId, std::int64_t{2});
  object.Set(kFalloffInnerId, 0.0);
  EXPECT_NEAR(at({7, 7, -25}), 0.75, 1e-12);
  object.Set(kFalloffInvertId, std::int64_t{1});
  EXPECT_NEAR(at({7, 7, -25}), 0.25, 1e-12);
  object.Set(kFalloffStrengthId, 0.5);
  EXPECT_NEAR(at({7, 7, -25}), 0.125, 1e-12);
  object.Set(kFalloffSizeId, Vec3D());
  EXPECT_TRUE(std::isfinite(at({1, 2, 3})));
}

}  // namespace
}  // namespace orlix
