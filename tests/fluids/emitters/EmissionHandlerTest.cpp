// How single values reach the cells of channels.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/emitters/EmissionHandler.h"
#include "fluids/grids/Spread.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::NodeBench;

class Emission : public testing::Test {
 protected:
  static constexpr double h = NodeBench::kCell;
  Emission() {
    smoke_->Set(ScalarGridChannel::kValueMinId, -2.0);
    smoke_->Set(ScalarGridChannel::kValueMaxId, 5.0);
    colour_->Set(VectorGridChannel::kValueMinId, Vec3D(-1));
    colour_->Set(VectorGridChannel::kValueMaxId, Vec3D(2, 3, 4));
    bench_.Fit({8, 7, 6}, {-0.5, 0, 1});
    for (ScalarGrid* grid : {&Smoke(), &Fire()}) grid->Fill(1);
    for (int c = 0; c < 3; ++c) Colour().grids[c]->Fill(1);
  }
  ScalarGrid& Smoke() { return bench_.GridOf(*smoke_); }
  ScalarGrid& Fire() { return bench_.GridOf(*fire_); }
  ChannelBase_Vector& Colour() { return bench_.Get<VectorGridChannel>(*colour_); }
  void Emit(double value, const Vec3D& p, const GridEmission& emission, const BaseObject* channel = nullptr) {
    const auto& target = bench_.Get<ChannelBase_Scalar>(channel ? *channel : *smoke_);
    CreateEmissionHandler(target)->Emit(value, p, emission, {});
  }
  // The centre of a cell.
  static Vec3D Centre(int i, int j, int k) { return Vec3D(i + 0.5, j + 0.5, k + 0.5) * h + Vec3D(-0.5, 0, 1); }

  NodeBench bench_;
  BaseObject* smoke_ = &bench_.Add("channel_scalar", "smoke");
  BaseObject* fire_ = &bench_.Add("channel_fire", "fire");
  BaseObject* colour_ = &bench_.Add("channel_vector", "colour");
};

TEST_F(Emission, ModesAddSetAndAddUpToALimit) {
  Emit(2.5, Centre(3, 2, 4), {});
  EXPECT_EQ(Smoke()(3, 2, 4), 3.5);
  Emit(2.5, Centre(3, 2, 4) + Vec3D(0.4, -0.4, 0.49) * h, {.mode = EmissionMode::Set});
  EXPECT_EQ(Smoke()(3, 2, 4), 2.5);
  Emit(2.5, Centre(1, 1, 1), {.mode = EmissionMode::AddToLimit, .scalarLimit = 3.0});
  EXPECT_EQ(Smoke()(1, 1, 1), 3);
  Emit(9, Centre(1, 1, 1), {.mode = EmissionMode::AddToLimit});  // the channel's own limit
  EXPECT_EQ(Smoke()(1, 1, 1), 5);
  EXPECT_EQ(test::SumOf(Smoke()), Smoke().count + 1.5 + 4);
}

TEST_F(Emission, ALimitBelowTheValueThereTakesItDown) {
  Smoke()(2, 2, 2) = 4;
  Emit(0.5, Centre(2, 2, 2), {.mode = EmissionMode::AddToLimit, .scalarLimit = 3.0});
  EXPECT_EQ(Smoke()(2, 2, 2), 3);
}

TEST_F(Emission, TheChannelsLimitsHoldExceptWhenSpread) {
  Emit(100, Centre(2, 2, 2), {});
  EXPECT_EQ(Smoke()(2, 2, 2), 5);
  Emit(-100, Centre(2, 2, 2), {.mode = EmissionMode::Set});
  EXPECT_EQ(Smoke()(2, 2, 2), -2);
  Emit(100, Centre(4, 4, 4), {.spread = true});
  EXPECT_EQ(Smoke()(4, 4, 4), 101);
}

TEST_F(Emission, SpreadGivesEachCellItsShare) {
  const Vec3D p = Centre(3, 2, 1) + Vec3D(0.25, 0.5, 0.75) * h;
  Emit(16, p, {.spread = true});
  double sum = 0;
  for (int corner = 0; corner < 8; ++corner) {
    const int a = corner & 1, b = corner >> 1 & 1, c = corner >> 2;
    const double weight = (a ? 0.25 : 0.75) * 0.5 * (c ? 0.75 : 0.25);
    EXPECT_NEAR(Smoke()(3 + a, 2 + b, 1 + c), 1 + 16 * weight, 1e-13);
    sum += Smoke()(3 + a, 2 + b, 1 + c) - 1;
  }
  EXPECT_NEAR(sum, 16, 1e-12);
  Emit(8, p, {.mode = EmissionMode::Set, .spread = true});
  EXPECT_NEAR(Smoke()(3, 2, 1), 8 * 0.75 * 0.5 * 0.25, 1e-14);
}

TEST_F(Emission, FireTakesNothingBeyondZeroToOne) {
  Fire().Fill(0);
  for (const bool spread : {false, true}) {
    Emit(7, Centre(1, 2, 3), {.mode = EmissionMode::Set, .spread = spread}, fire_);
    EXPECT_EQ(Fire()(1, 2, 3), 1);
    Emit(-7, Centre(1, 2, 3), {.mode = EmissionMode::Set, .spread = spread}, fire_);
    EXPECT_EQ(Fire()(1, 2, 3), 0);
  }
}

TEST_F(Emission, VectorsGoComponentByComponentWithTheirOwnLimits) {
  const auto handler = CreateEmissionHandler(Colour());
  handler->Emit({0.5, 9, -5}, Centre(3, 3, 3), {}, {});
  EXPECT_EQ((*Colour().grids[0])(3, 3, 3), 1.5);
  EXPECT_EQ((*Colour().grids[1])(3, 3, 3), 3);
  EXPECT_EQ((*Colour().grids[2])(3, 3, 3), -1);
  handler->Emit(Vec3D(5), Centre(2, 2, 2), {.mode = EmissionMode::AddToLimit, .vectorLimit = Vec3D(1.5, 2.5, 3.5)}, {});
  EXPECT_EQ((*Colour().grids[2])(2, 2, 2), 3.5);
  // Indices that the caller has worked out stand for the point.
  const std::int64_t indices[3] = {0, 1, 2};
  handler->Emit({0, 0.25, 0.5}, Centre(6, 6, 5), {.mode = EmissionMode::Set}, indices);
  EXPECT_EQ((*Colour().grids[1])[1], 0.25);
  EXPECT_EQ((*Colour().grids[2])[2], 0.5);
  EXPECT_EQ((*Colour().grids[0])(6, 6, 5), 1);
}

TEST_F(Emission, PointsOutsideTheGridTouchNothing) {
  for (const Vec3D& p : {Vec3D(-1, 0.5, 1.5), Vec3D(0.2, 50, 1.5), Vec3D(0.2, 0.5, 0.2), Vec3D(1e300, 0, 0)}) {
    Emit(3, p, {});
  }
  for (std::int64_t c = 0; c < Smoke().count; ++c) ASSERT_EQ(Smoke()[c], 1);
}

TEST(Spread, AppliesEachOperation) {
  Grid<double> grid({4, 4, 4}, kGridScratch);
  const auto at = [&](SpreadOperation operation) {
    grid.Fill(12);
    Spread(GridView<double>(grid), 4.0, 1.5, 2.0, 0.0, operation);
    return grid(1, 2, 0);  // weight 1/2
  };
  EXPECT_EQ(at(SpreadOperation::Assign), 2);
  EXPECT_EQ(at(SpreadOperation::Add), 14);
  EXPECT_EQ(at(SpreadOperation::Subtract), 10);
  EXPECT_EQ(at(SpreadOperation::Multiply), 24);
  EXPECT_EQ(at(SpreadOperation::Divide), 6);
}

TEST(Spread, KeepsToTheBordersCubeAndToItsLayers) {
  Grid<double> grid({4, 5, 6}, kGridScratch);
  grid.Fill(0);
  Spread(GridView<double>(grid), 1.0, -7.0, 99.0, 2.5, SpreadOperation::Add);
  EXPECT_EQ(grid(0, 4, 2), 0.5);
  EXPECT_EQ(grid(0, 4, 3), 0.5);
  SpreadWithin(GridView<double>(grid), 1.0, 2.0, 2.0, 2.5, SpreadOperation::Add, 3, 9);
  EXPECT_EQ(grid(2, 2, 2), 0);
  EXPECT_EQ(grid(2, 2, 3), 0.5);
  // The layers of several callers make up the whole write.
  Grid<float> parts({4, 4, 4}, kGridScratch), whole({4, 4, 4}, kGridScratch);
  parts.Fill(1), whole.Fill(1);
  Spread(GridView<float>(whole), 3.0f, 1.3, 1.6, 1.9, SpreadOperation::Assign);
  for (int k = 0; k < 4; ++k) {
    SpreadWithin(GridView<float>(parts), 3.0f, 1.3, 1.6, 1.9, SpreadOperation::Assign, k, k + 1);
  }
  for (std::int64_t c = 0; c < whole.count; ++c) EXPECT_EQ(parts[c], whole[c]);
}

}  // namespace
}  // namespace orlix
