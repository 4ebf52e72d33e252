// Channels: how grids follow the container, what a sub-step does to their values, and samples.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VelocityGridChannel.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

struct ChannelFixture : testing::Test {
  ChannelFixture() {
    scene.root->Set(RootSettings::kVoxelSizeId, 0.5);
    smoke = &scene.Add("channel_scalar", "smoke");
    scene.Step(0);
    channel = scene.NodeOf<ScalarGridChannel>(*smoke);
    channel->ReadParameters();
  }
  // A value that tells its cell in the scene's lattice.
  void Mark() {
    const VecInt3D low = channel->grid->space.voxelMin;
    test::FillCells(*channel->grid, [&](int i, int j, int k) { return MarkOf(low + VecInt3D(i, j, k)); });
  }
  static double MarkOf(const VecInt3D& at) { return 0.5 + 0.01 * at.x + 0.001 * at.y + 0.0001 * at.z; }
  test::TestScene scene{2};
  BaseObject* smoke;
  ScalarGridChannel* channel;
};

TEST_F(ChannelFixture, GrowsWithTheContainerAndKeepsItsContent) {
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  EXPECT_EQ(channel->grid->dims, VecInt3D(4, 4, 4));
  Mark();
  std::swap(channel->grid->data, channel->previous->data);
  Mark();
  ASSERT_TRUE(channel->ApplyBounds({-1, -0.5, 0}, {2, 2.5, 3}));
  EXPECT_EQ(channel->grid->dims, VecInt3D(6, 6, 6));
  EXPECT_EQ(channel->grid->space.voxelMin, VecInt3D(-2, -1, 0));
  int kept = 0;
  for (const ScalarGrid* g : {channel->grid.get(), channel->previous.get()}) {
    test::ForAll({6, 6, 6}, [&](int i, int j, int k) {
      const VecInt3D at = g->space.voxelMin + VecInt3D(i, j, k);
      const bool old = at.x >= 0 && at.y >= 0 && at.x < 4 && at.y < 4 && at.z < 4;
      ASSERT_DOUBLE_EQ((*g)(i, j, k), old ? MarkOf(at) : 0);
      kept += old;
    });
  }
  EXPECT_EQ(kept, 128);
}

TEST_F(ChannelFixture, AfterStepLimitsAndClearsTheBorder) {
  smoke->Set(ScalarGridChannel::kValueMinId, 0.25);
  smoke->Set(ScalarGridChannel::kBackgroundId, 0.125);
  channel->ReadParameters();
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {3, 3, 3}));
  EXPECT_EQ((*channel->grid)(2, 2, 2), 0.25) << "a background below value_min is tidied at once";
  channel->grid->Fill(7);
  channel->AfterStep();
  EXPECT_EQ((*channel->grid)(2, 2, 2), 1) << "limited to value_max";
  EXPECT_EQ((*channel->grid)(0, 2, 2), 0.25) << "the border falls to value_min";
  EXPECT_EQ(channel->grid->activeMin, VecInt3D(1, 1, 1));
  Vec3D min(100), max(-100);
  channel->ExtendBounds(min, max);
  EXPECT_EQ(min, Vec3D(0.5, 0.5, 0.5));
  EXPECT_EQ(max, Vec3D(2, 2, 2));
}

TEST_F(ChannelFixture, ClearEachStepForgetsAtEachApply) {
  smoke->Set(ScalarGridChannel::kClearEachStepId, std::int64_t(1));
  channel->ReadParameters();
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  channel->grid->Fill(0.75);
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  EXPECT_EQ((*channel->grid)(1, 1, 1), 0);
}

TEST_F(ChannelFixture, PreviousGoesAndSwapDoesNothingWithoutIt) {
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  const double* data = channel->grid->data;
  channel->SwapGrids();
  EXPECT_EQ(channel->previous->data, data);
  smoke->Set(ScalarGridChannel::kKeepPreviousId, std::int64_t(0));
  channel->ReadParameters();
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  EXPECT_EQ(channel->previous, nullptr);
  const double* now = channel->grid->data;
  channel->SwapGrids();
  EXPECT_EQ(channel->grid->data, now);
}

TEST_F(ChannelFixture, PointsAndCellsAtTheFaces) {
  ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {2, 2, 2}));
  EXPECT_TRUE(channel->ContainsPoint({0, 0, 0}));
  EXPECT_FALSE(channel->ContainsPoint({2, 1, 1})) << "the upper faces are outside";
  EXPECT_TRUE(channel->ContainsCell({0.1, 1, 1}, false));
  EXPECT_FALSE(channel->ContainsCell({0.1, 1, 1}, true));
  Mark();
  EXPECT_DOUBLE_EQ(channel->SamplePoint({0.75, 0.75, 0.75}), (*channel->grid)(1, 1, 1)) << "a cell's centre";
  EXPECT_EQ(channel->GetGrid(1), nullptr);
}

TEST_F(ChannelFixture, AContainerBeyondMemoryEndsTheSimulation) {
  SetGridMemoryBudget(CurrentGridMemory().current + 100000);
  EXPECT_FALSE(channel->ApplyBounds({0, 0, 0}, {50, 50, 50}));
  EXPECT_FALSE(channel->ApplyBounds({0, 0, 0}, {50, 50, 50}));
  SetGridMemoryBudget(0);
  EXPECT_FALSE(channel->IsActive());
  const auto& failure = scene.scene().failure();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, ErrorKind::Memory);
  for (const char* text : {"\"Scene/smoke\"", "100 x 100 x 100", "7.63 MB"}) {
    EXPECT_NE(failure->text.find(text), std::string::npos) << failure->text;
  }
  EXPECT_FALSE(channel->ApplyBounds({0, 0, 0}, {1e9, 1e9, 1e9})) << "more cells than an index counts";
}

TEST_F(ChannelFixture, VelocityIsSampledAtItsFaces) {
  VelocityGridChannel velocity(smoke, scene.scene());
  velocity.ReadParameters();
  ASSERT_TRUE(velocity.ApplyBounds({0, 0, 0}, {3, 3, 3}));
  EXPECT_EQ(velocity.grids[0]->dims, VecInt3D(7, 6, 6));
  EXPECT_EQ(velocity.grids[2]->dims, VecInt3D(6, 6, 7));
  // u = x, v = 2y, w = -3z in simulation space, at each component's own place.
  for (int c = 0; c < 3; ++c) {
    const double slope[] = {1, 2, -3};
    test::FillCells(*velocity.grids[c], [&](int i, int j, int k) { return slope[c] * 0.5 * VecInt3D(i, j, k)[c]; });
  }
  const Vec3D p(1.3, 0.8, 2.1), v = velocity.SamplePoint(p);
  EXPECT_NEAR(v.x, p.x, 1e-12);
  EXPECT_NEAR(v.y, 2 * p.y, 1e-12);
  EXPECT_NEAR(v.z, -3 * p.z, 1e-12);
}

TEST(Channels, FuelReadsAnIntegerAndFireItsFallback) {
  test::TestScene scene;
  BaseObject& fuel = scene.Add("channel_fuel", "fuel");
  BaseObject& fire = scene.Add("channel_fire", "fire");
  fuel.Set(FuelGridChannel::kIgnitionTemperatureId, 612.9);
  scene.Step(0);
  EXPECT_EQ(scene.NodeOf<FuelGridChannel>(fuel)->ignitionTemperature, 612);
  auto* node = scene.NodeOf<FireGridChannel>(fire);
  EXPECT_EQ(node->coolingTimeHot, 0.5);
  fire.Set(FireGridChannel::kCoolingTimeHotId, Value());
  node->ReadParameters();
  EXPECT_EQ(node->coolingTimeHot, 1.0);
}

}  // namespace
}  // namespace orlix
