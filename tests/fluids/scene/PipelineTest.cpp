// Nodes and stages: who is found, in which order, in which blocks.

#include <gtest/gtest.h>

#include <numeric>

#include "fluids/scene/RootObject.h"
#include "fluids/scene/StageRunner.h"
#include "tests/fluids/scene/TraceNode.h"

namespace orlix {
namespace {

using test::TracedScene;
using test::TraceNode;

TEST(Pipeline, StagesThenPriorityThenTreeOrder) {
  TracedScene s;
  s.AddTrace("late", StageBit(kStageForces));
  s.AddTrace("second", StageBit(kStageOperators), 5);
  s.AddTrace("third", StageBit(kStageOperators), 5);
  s.AddTrace("first", StageBit(kStageOperators), 4);
  s.Step(0);
  std::vector<std::string> processed;
  for (const std::string& call : s.log.calls) {
    if (call.ends_with(".Process")) processed.push_back(call.substr(0, call.find('.')));
  }
  EXPECT_EQ(processed, (std::vector<std::string>{"first", "second", "third", "late"}));
  std::vector<int> stages;
  for (const auto& [stage, seconds] : s.reports.back().stageSeconds) stages.push_back(stage);
  ASSERT_EQ(stages.size(), 15u);
  EXPECT_EQ(stages.front(), kStageInitSubstep);
  EXPECT_EQ(stages.back(), kStageFinish);
}

TEST(Pipeline, BlocksOpenAtAChangeOfKindAndAtOwnBlocks) {
  TracedScene s;
  const int bit = StageBit(kStageOperators);
  s.AddTrace("a", bit, 1, false);
  s.AddTrace("b", bit, 2, false);
  s.AddTrace("c", bit, 3, false).Set(kOwnBlockId, std::int64_t(1));
  s.AddTrace("d", bit, 4, true);
  BaseObject& e = s.AddTrace("e", bit, 5, true);
  e.Set(TraceNode::kIteratedId, std::int64_t(1));
  e.Set(TraceNode::kRoundsId, std::int64_t(2));
  s.Step(0);
  s.scene().SetStage(kStageStart);
  s.scene().EvaluateStage();
  s.scene().SetStage(kStageOperators);
  s.scene().ForEachNode(NODE_SOLVER, NODE_SOLVER, [](iBase& node) { node.MarkDirty(false); });
  const StageRunner runner(s.scene(), false);
  std::string shape;
  for (const StageBlock& block : runner.Divide(runner.Collect())) {
    shape += std::to_string(static_cast<int>(block.kind)) + ":";
    for (const iObject* node : block.nodes) shape += node->handler.hostObject()->name;
    shape += " ";
  }
  EXPECT_EQ(shape, "1:ab 1:c 0:d 2:e ");
  EXPECT_TRUE(StageRunner(s.scene(), true).Divide(runner.Collect()).empty()) << "none evaluates on update";
}

TEST(Pipeline, EachKindOfBlockCallsItsPhases) {
  const int bit = StageBit(kStageOperators);
  const auto calls = [&](bool serial, bool iterated, bool each) {
    TracedScene s;
    BaseObject& n = s.AddTrace("n", bit, 0, serial);
    n.Set(TraceNode::kIteratedId, std::int64_t(iterated));
    n.Set(TraceNode::kEachId, std::int64_t(each));
    n.Set(TraceNode::kRoundsId, std::int64_t(2));
    s.Step(0);
    std::string text;
    for (const std::string& call : s.log.calls) text += call.substr(2) + " ";
    return text.substr(text.find("Prepare"));
  };
  EXPECT_EQ(calls(true, false, false), "Prepare Process Finish ");
  EXPECT_EQ(calls(false, false, false), "Prepare Setup Process Finish ");
  EXPECT_EQ(calls(true, true, false), "Prepare0 Setup0 Process0 Finish0 Prepare1 Setup1 Process1 Finish1 ");
  EXPECT_EQ(calls(false, true, false), "Prepare Setup Process0 Process1 Finish ");
  EXPECT_EQ(calls(false, true, true), "Prepare0 Setup0 Process0 Finish0 Prepare1 Setup1 Process1 Finish1 ");
}

TEST(PipelineThreads, AParallelBlockRunsOnEveryWorker) {
  TracedScene s(8);
  s.AddTrace("n", StageBit(kStageOperators), 0, false);
  s.Step(0);
  EXPECT_EQ(s.log.processed.load(), 8);
  s.log.processed = 0;
  s.root->Set(RootSettings::kMaxThreadsId, std::int64_t(3));
  s.Step(1);
  EXPECT_EQ(s.log.processed.load(), 3) << "the scene's own limit";
}

TEST(Pipeline, UserStageReplacesAndPriorityIsAnOffsetThatDoesNotGrow) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", StageBit(kStageOperators) | StageBit(kStageForces), 7);
  n.Set(kPriorityId, std::int64_t(2));
  for (int f = 0; f < 4; ++f) s.Step(f);
  EXPECT_EQ(s.NodeOf<TraceNode>(n)->priority, 9);
  n.Set(kStageId, std::int64_t(kStageChannels));
  s.Step(4);
  EXPECT_EQ(s.NodeOf<TraceNode>(n)->stageMask, StageBit(kStageChannels));
  EXPECT_EQ(s.NodeOf<TraceNode>(n)->priority, 2);
}

TEST(Pipeline, NodesComeAndGoWithTheirObjects) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", StageBit(kStageOperators));
  BaseObject& outside = s.document.AddObject(TraceNode::Type());
  s.Step(0);
  iBase* node = s.hook.FindNode(&n);
  ASSERT_NE(node, nullptr);
  s.document.MoveObject(n, &outside);
  s.Step(1);
  EXPECT_EQ(s.hook.FindNode(&n), nullptr);
  s.document.MoveObject(n, s.root);
  s.Step(2);
  EXPECT_NE(s.hook.FindNode(&n), nullptr) << "back with a new, empty node";
  s.document.RemoveObject(n);
  s.Step(3);
  int left = 0;
  s.scene().ForEachNode(NODE_CHANNEL, NODE_HELPER, [&](iBase&) { ++left; });
  EXPECT_EQ(left, 0);
  s.document.RemoveObject(*s.root);
  s.Step(4);
  EXPECT_TRUE(s.hook.scenes().empty());
}

TEST(Pipeline, RetrieveTestsListAndBothTypes) {
  TracedScene s;
  BaseObject& smoke = s.Add("channel_scalar", "smoke");
  BaseObject& colour = s.Add("channel_vector", "colour");
  s.Step(0);
  OrlixScene& scene = s.scene();
  EXPECT_NE(scene.Retrieve(&smoke, NODE_CHANNEL, RETRIEVE_SCALAR, RETRIEVE_ANY), nullptr);
  EXPECT_NE(scene.Retrieve(&smoke, NODE_ALL, RETRIEVE_SCALAR, RETRIEVE_GRID), nullptr);
  EXPECT_EQ(scene.Retrieve(&smoke, NODE_CHANNEL, RETRIEVE_VECTOR, RETRIEVE_ANY), nullptr);
  EXPECT_EQ(scene.Retrieve(&smoke, NODE_FORCE, RETRIEVE_ANY, RETRIEVE_ANY), nullptr);
  EXPECT_EQ(scene.Retrieve(nullptr, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY), nullptr);
  EXPECT_FALSE(scene.Retrieve(&smoke, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY)->HasRetrieveType(RETRIEVE_ANY));
  InExcludeData filter;
  filter.entries = {{colour.creationNumber(), 1}};
  const auto names = [&](const InExcludeData* list, int bit, bool include) {
    std::vector<iBase*> found;
    scene.RetrieveAll(list, found, NODE_CHANNEL, RETRIEVE_ANY, 2000, bit, include);
    std::string text;
    for (const iBase* node : found) text += node->handler.hostObject()->name + " ";
    return text;
  };
  EXPECT_EQ(names(nullptr, RETRIEVE_ANY, true), "smoke colour ");
  EXPECT_EQ(names(&filter, RETRIEVE_ANY, true), "colour ");
  EXPECT_EQ(names(&filter, RETRIEVE_ANY, false), "smoke ");
  EXPECT_EQ(names(nullptr, RETRIEVE_SCALAR, true), "smoke ");
}

TEST(Pipeline, AValueThatIsNoNumberEndsTheRunByName) {
  TracedScene s;
  s.AddTrace("good", StageBit(kStageOperators), 1);
  BaseObject& bad = s.AddTrace("bad", StageBit(kStageOperators), 2);
  s.AddTrace("later", StageBit(kStageForces));
  s.StepThrough(0, 2);
  bad.Set(TraceNode::kPoisonId, std::int64_t(1));
  s.log.calls.clear();
  s.Step(3);
  ASSERT_NE(s.hook.Failure(), nullptr);
  EXPECT_EQ(s.hook.Failure()->kind, ErrorKind::Diverged);
  for (const char* part : {"\"Scene/bad\"", "grid state", "cell (1, 2, 0)", "frame 3", "\"Operators\""}) {
    EXPECT_NE(s.hook.Failure()->text.find(part), std::string::npos) << s.hook.Failure()->text;
  }
  EXPECT_EQ(s.CountCalls("later.Process"), 0);
}

TEST(Pipeline, ABreakEndsTheFrame) {
  TracedScene s;
  s.AddTrace("n", StageBit(kStageOperators));
  s.StepThrough(0, 1);
  s.thread.Break();
  s.log.calls.clear();
  s.hook.Execute(s.document, &s.thread, false);
  EXPECT_EQ(s.CountCalls(".Process"), 0);
}

TEST(FrameClock, AFrameBackFromAFinishedStepIsNoMoveButOneToTheStartIs) {
  TypeRegistry types;
  BaseDocument document(types);
  document.fps = 32;  // so that a frame's seconds are exact
  FrameClock clock;
  clock.Attach(document);
  const auto timeAt = [&](int frame) {
    EXPECT_TRUE(document.SetTime(BaseTime::OfFrame(frame, document.fps)).ok());
    clock.Update(0, 100, false);
    return clock.time * document.fps;
  };
  EXPECT_EQ(timeAt(5), 5);
  EXPECT_EQ(timeAt(4), 4) << "the step isn't finished";
  clock.Finish();
  EXPECT_EQ(timeAt(3), 4);
  EXPECT_EQ(timeAt(2), 2);
  EXPECT_EQ(timeAt(1), 1);
  clock.Finish();
  EXPECT_EQ(timeAt(0), 0);
}

TEST(Pipeline, SortIsSafeForAnyRelation) {
  struct Odd final : iBase {
    using iBase::iBase;
    bool ComesBefore(const iBase&) const override { return true; }
  };
  TracedScene s;
  s.AddTrace("n", 0);
  s.Step(0);
  std::vector<std::unique_ptr<iBase>> owned;
  std::vector<iBase*> nodes;
  for (int n = 0; n < 50; ++n) {
    owned.push_back(std::make_unique<Odd>(s.root, s.scene()));
    nodes.push_back(owned.back().get());
  }
  SortByComesBefore(nodes);
  EXPECT_EQ(nodes.front(), owned.back().get());
}

TEST(Pipeline, ANodeRunsWhileItsDurationIsActive) {
  TracedScene s;
  BaseObject& late = s.AddTrace("late", StageBit(kStageOperators));
  BaseObject& duration = s.Add("duration", "from the third frame");
  duration.Set(1001, 1.5 / 24);
  late.Set(kDurationId, test::TestScene::LinkTo(duration));
  s.AddTrace("always", StageBit(kStageOperators));
  s.StepThrough(0, 2);
  EXPECT_EQ(s.CountCalls("late.Process"), 0);
  EXPECT_GE(s.CountCalls("always.Process"), 3);
  s.Step(3);
  EXPECT_GE(s.CountCalls("late.Process"), 1);
}

TEST(Pipeline, AWarningIsToldOnceARun) {
  TracedScene checked, run;
  for (TracedScene* t : {&checked, &run}) t->AddTrace("a", 0).Set(TraceNode::kIdleId, std::int64_t(1));
  checked.AddTrace("busy", 0);
  checked.hook.BuildScenes(checked.document, false);
  ASSERT_EQ(checked.warnings.size(), 1u);  // known without a step
  EXPECT_EQ(checked.warnings[0].first, "Scene/a");
  run.StepThrough(0, 3);
  EXPECT_EQ(run.warnings.size(), 1u);
  run.hook.Conclude();
  run.hook.Conclude();
  ASSERT_EQ(run.observer.warnings.all().size(), 2u);
  EXPECT_EQ(run.observer.warnings.all()[0].text, "marks nothing dirty in frame 0");
  EXPECT_EQ(run.observer.warnings.all()[1].key, "over");
}

// The clock: what each move of the document's time does, and how a frame divides into sub-steps.

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

TEST(Stepping, AFrameThatStandsAloneHasTheTimeOfTheSimulation) {
  const std::set<std::uint64_t> nothing;
  for (const SubstepMode mode : {SubstepMode::Adaptive, SubstepMode::FixedCount, SubstepMode::FixedTime}) {
    Stepper run, pass;
    pass.observer.passNodes = &nothing;
    for (Stepper* s : {&run, &pass}) {
      s->root->Set(RootSettings::kSubstepModeId, mode);
      s->root->Set(RootSettings::kFrameTimeId, 0.5);
      s->root->Set(RootSettings::kMinSubstepsId, std::int64_t(1));
    }
    for (int f = 0; f <= 4; ++f) run.Move(f);
    EXPECT_NEAR(pass.Move(4).time, run.scene().info.time, 1e-7) << static_cast<int>(mode);
  }
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
