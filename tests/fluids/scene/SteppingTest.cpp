// The clock: what each move of the document's time does, and how a frame divides into sub-steps.

#include <gtest/gtest.h>

#include <numeric>

#include "fluids/scene/RootObject.h"
#include "tests/fluids/scene/TraceNode.h"

namespace orlix {
namespace {

using test::TracedScene;
using test::TraceNode;

struct Stepper : TracedScene {
  Stepper() {
    node = &AddTrace("n", StageBit(kStageOperators));
    root->Set(RootSettings::kDocumentRangeId, std::int64_t(0));
    root->Set(RootSettings::kStartFrameId, std::int64_t(0));
    root->Set(RootSettings::kEndFrameId, std::int64_t(20));
    root->Set(RootSettings::kSubstepModeId, SubstepMode::FixedCount);
    root->Set(RootSettings::kMaxSubstepsId, std::int64_t(1));  // two sub-steps
  }
  struct Outcome {
    int substeps, resets;
    double time;
  };
  Outcome Move(int frame) {
    log.calls.clear();
    const std::size_t before = reports.size();
    Step(frame);
    return {static_cast<int>(reports.size() - before), CountCalls(".Reset"), scene().info.time};
  }
  BaseObject* node;
};

TEST(Stepping, TheStartFrameAndTheNextRunOneSubstepAtTimeZero) {
  Stepper s;
  auto start = s.Move(0);
  EXPECT_EQ(start.substeps, 1);
  EXPECT_EQ(start.time, 0);
  auto second = s.Move(1);
  EXPECT_EQ(second.substeps, 1);
  EXPECT_DOUBLE_EQ(second.time, static_cast<float>(static_cast<double>(static_cast<float>(1.0 / 24)) / 2));
  auto third = s.Move(2);
  EXPECT_EQ(third.substeps, 2);
  EXPECT_EQ(third.resets, 0);
}

TEST(Stepping, ARepeatedFrameIsAnUpdatePass) {
  Stepper s;
  s.Move(0), s.Move(1);
  const double time = s.Move(2).time;
  auto again = s.Move(2);
  EXPECT_EQ(s.CountCalls(".Process"), 0) << "the mark of the simulated frame is still seen, but runs nothing";
  EXPECT_EQ(s.Move(2).substeps, 0) << "nothing changed";
  s.node->Set(TraceNode::kSpeedId, 1.0);
  s.node->Set(TraceNode::kUpdateId, std::int64_t(1));
  again = s.Move(2);
  EXPECT_EQ(again.substeps, 1);
  EXPECT_EQ(s.CountCalls("n.Process"), 1);
  EXPECT_EQ(again.time, time);
}

TEST(Stepping, OneFrameBackKeepsTheStateAndSeveralGoOn) {
  Stepper s;
  s.document.fps = 32;  // a frame's length that subtracts exactly
  for (int f = 0; f <= 5; ++f) s.Move(f);
  const double time = s.scene().info.time;
  auto back = s.Move(4);
  EXPECT_EQ(s.CountCalls(".Process"), 0);
  EXPECT_EQ(back.time, time);
  s.Move(5);
  auto further = s.Move(2);
  EXPECT_EQ(further.resets, 0);
  EXPECT_GT(further.time, time) << "a jump back above the start goes on from the state";
}

TEST(Stepping, BackToTheStartBeforeItAndPastTheEnd) {
  Stepper s;
  for (int f = 0; f <= 3; ++f) s.Move(f);
  auto start = s.Move(0);
  EXPECT_EQ(start.resets, 1);
  EXPECT_EQ(start.time, 0);
  s.Move(1);
  s.root->Set(RootSettings::kStartFrameId, std::int64_t(3));
  auto before = s.Move(2);
  EXPECT_EQ(before.resets, 1);
  EXPECT_EQ(before.substeps, 0);
  auto past = s.Move(20);
  EXPECT_EQ(past.substeps, 0);
  EXPECT_EQ(past.resets, 0);
}

TEST(Stepping, AChangedCellSizeResetsOnce) {
  Stepper s;
  for (int f = 0; f <= 3; ++f) s.Move(f);
  s.root->Set(RootSettings::kVoxelSizeId, 0.1);
  auto changed = s.Move(4);
  EXPECT_EQ(changed.resets, 1);
  EXPECT_EQ(changed.substeps, 1);
  EXPECT_EQ(s.Move(5).resets, 0);
}

TEST(Stepping, SwappedRangeAndDocumentRange) {
  Stepper s;
  s.root->Set(RootSettings::kStartFrameId, std::int64_t(8));
  s.root->Set(RootSettings::kEndFrameId, std::int64_t(2));
  EXPECT_EQ(s.Move(3).substeps, 1) << "start and end are swapped";
  EXPECT_EQ(s.Move(8).substeps, 0);
  Stepper d;
  d.root->Set(RootSettings::kDocumentRangeId, std::int64_t(1));
  d.document.maxTime = BaseTime::OfFrame(4, 24);
  d.Move(0);
  EXPECT_EQ(d.Move(4).substeps, 1) << "the document's last frame is simulated";
  EXPECT_EQ(d.Move(5).substeps, 0);
}

// --- adaptive sub-steps at 30 fps ------------------------------------------------------------------------------------

std::vector<double> Split(double wishFraction, int minSubsteps, int maxSubsteps) {
  TracedScene s;
  s.document.fps = 30;
  BaseObject& node = s.AddTrace("n", StageBit(kStageOperators));
  s.root->Set(RootSettings::kVoxelSizeId, 1.0);
  s.root->Set(RootSettings::kCflId, 1.0);
  s.root->Set(RootSettings::kMinSubstepsId, std::int64_t(minSubsteps - 1));
  s.root->Set(RootSettings::kMaxSubstepsId, std::int64_t(maxSubsteps - 1));
  for (int f = 0; f <= 1; ++f) s.Step(f);
  const double frame = static_cast<float>(1.0 / 30);
  node.Set(TraceNode::kSpeedId, 1.0 / (wishFraction * frame));
  s.reports.clear();
  s.Step(2);
  std::vector<double> lengths;
  for (const SubstepReport& report : s.reports) lengths.push_back(report.dt / frame);
  EXPECT_EQ(s.reports.back().substep, static_cast<int>(lengths.size()));
  return lengths;
}

void ExpectSplit(const std::vector<double>& got, const std::vector<double>& expected) {
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t n = 0; n < got.size(); ++n) EXPECT_NEAR(got[n], expected[n], 1e-6) << n;
}

TEST(AdaptiveSubsteps, SplitsAtThirtyFramesASecond) {
  ExpectSplit(Split(2.0, 1, 3), {1});
  ExpectSplit(Split(0.6, 1, 3), {0.6, 0.4});
  ExpectSplit(Split(0.7, 1, 3), {0.5, 0.5});
  ExpectSplit(Split(0.4, 1, 3), {0.4, 0.3, 0.3});
  // The float limit times 3 falls short of the frame: the rest is halved.
  ExpectSplit(Split(0.01, 1, 3), {1 / 3.0, 1 / 3.0, 1 / 6.0, 1 / 6.0});
  // More sub-steps asked for at least than at most: all have that length.
  ExpectSplit(Split(2.0, 4, 2), {0.25, 0.25, 0.25, 0.25});
}

TEST(AdaptiveSubsteps, ThereAreAtMost255) {
  for (const auto& [least, most] : {std::pair(1, 255), std::pair(255, 255), std::pair(255, 1)}) {
    const std::vector<double> lengths = Split(0.001, least, most);
    EXPECT_EQ(lengths.size(), 255u);
    EXPECT_NEAR(std::accumulate(lengths.begin(), lengths.end(), 0.0), 1, 1e-9);
  }
}

TEST(AdaptiveSubsteps, TimeScaleZeroStandsStill) {
  TracedScene s;
  s.AddTrace("n", StageBit(kStageOperators));
  s.root->Set(RootSettings::kTimeScaleId, 0.0);
  s.StepThrough(0, 3);
  EXPECT_EQ(s.scene().info.time, 0);
  EXPECT_EQ(s.reports.back().dt, 0);
  EXPECT_EQ(s.scene().info.substepFraction, 0);
}

}  // namespace
}  // namespace orlix
