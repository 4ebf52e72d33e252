#include <gtest/gtest.h>
#include <signal.h>

#include "apps/orlix/Progress.h"
#include "globals/ByteSize.h"
#include "run/Checkpoints.h"
#include "run/FrameList.h"
#include "run/Interrupt.h"
#include "run/ResultRecord.h"
#include "run/SceneRun.h"
#include "scene_file/SceneReader.h"
#include "tests/run/PlumeScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

// Writes down what it is told, fails at a frame.
class Witness : public FrameListener {
 public:
  std::string log;
  int failAt = -1;
  double cellSize = 0;

  Status BeforeRun(const RunState& state) override {
    log += "begin" + std::to_string(state.firstFrame) + "-" + std::to_string(state.lastFrame);
    return {};
  }
  Status AfterFrame(const RunState& state) override {
    cellSize = state.hook.scenes().begin()->second->GetSimulationSpace().cellSize;
    log += " " + std::to_string(state.frame) + (state.wanted ? "!" : "");
    if (state.frame == failAt) return Status::Fail(ErrorKind::Output, "full");
    return {};
  }
  Status AfterRun(const RunState&) override {
    log += " end";
    return {};
  }
};

struct Fixture {
  Engine engine;
  WorkerPool pool{2};
  Witness witness;
  std::unique_ptr<BaseDocument> document;

  Fixture() {
    auto scene = ReadSceneText("s.json", R"({ "orlix": 1, "fps": 24, "frames": [2, 5], "objects": [
        { "type": "scene", "voxel_size": 0.25, "render_voxel_size": 0.125, "children": [ { "type": "channel_scalar" } ] } ] })",
                               engine.types);
    document = std::move(scene->document);
  }
  Status Run(const std::optional<std::vector<int>>& list = {}, bool rendering = false) {
    auto plan = PlanFrames(*document, list);
    if (!plan) return plan.error();
    plan->rendering = rendering;
    SceneRun run(engine, *document, pool, "");
    run.AddListener(witness);
    return run.Run(*plan);
  }
};

TEST(SceneRun, EveryFrameIsSimulatedAndTheListedAreWanted) {
  Fixture all, some, beyond, before;
  EXPECT_TRUE(all.Run().ok());
  EXPECT_EQ(all.witness.log, "begin2-5 2! 3! 4! 5! end");
  EXPECT_TRUE(some.Run(std::vector<int>{3}).ok());
  EXPECT_EQ(some.witness.log, "begin2-3 2 3! end");
  EXPECT_TRUE(beyond.Run(std::vector<int>{2, 7}).ok());
  EXPECT_EQ(beyond.witness.log, "begin2-7 2! 3 4 5 6 7! end");
  EXPECT_EQ(beyond.document->maxTime.Frame(24), 7);
  EXPECT_EQ(before.Run(std::vector<int>{1}).error().kind, ErrorKind::Usage);
}

TEST(SceneRun, PicturesHaveTheirOwnCells) {
  Fixture simulated, rendered;
  EXPECT_TRUE(simulated.Run().ok());
  EXPECT_TRUE(rendered.Run({}, true).ok());
  EXPECT_EQ(simulated.witness.cellSize, 0.25);
  EXPECT_EQ(rendered.witness.cellSize, 0.125);
}

TEST(SceneRun, AnErrorOfAListenerEndsTheRun) {
  Fixture failed;
  failed.witness.failAt = 4;
  EXPECT_EQ(failed.Run().error().kind, ErrorKind::Output);
  EXPECT_EQ(failed.witness.log, "begin2-5 2! 3! 4! end");
}

// --- frame list -----------------------------------------------------------------------------------------------------

TEST(FrameList, RangesStepsAndSingleFramesMerge) {
  const std::pair<const char*, std::vector<int>> cases[] = {
      {"5", {5}}, {"-3--1", {-3, -2, -1}}, {"1-10x4,120,5", {1, 5, 9, 120}}, {"3-3x7", {3}}, {"2,1,2", {1, 2}},
  };
  for (const auto& [text, frames] : cases) {
    const auto list = ParseFrameList(text);
    ASSERT_TRUE(list.ok()) << text;
    EXPECT_EQ(*list, frames) << text;
  }
}

TEST(FrameList, AnythingElseIsRefused) {
  for (const char* text :
       {"", ",", "1,", "a", "3-1", "1-5x0", "1-5x-1", "1-5x", "1 - 5", "99999999999", "1-9999999x1", "5x2", "1-2-3"}) {
    const auto list = ParseFrameList(text);
    ASSERT_FALSE(list.ok()) << text;
    EXPECT_EQ(list.error().kind, ErrorKind::Usage);
    EXPECT_EQ(list.error().text.find("before it begins") != std::string::npos, std::string(text) == "3-1") << text;
  }
}

TEST(ByteSize, UnitsArePowersOf1024) {
  EXPECT_EQ(*ParseByteSize("100"), 100);
  EXPECT_EQ(*ParseByteSize("8G"), 8LL << 30);
  EXPECT_EQ(*ParseByteSize("0.5k"), 512);
  EXPECT_EQ(*ParseByteSize("2MiB"), 2 << 20);
  EXPECT_EQ(*ParseByteSize("1TB"), 1LL << 40);
  for (const char* text : {"", "G", "-1G", "0", "8X", "8GG", "1e30T", "nan", "inf"}) {
    EXPECT_FALSE(ParseByteSize(text).ok()) << text;
  }
  EXPECT_EQ(ByteSizeText(512), "512 bytes");
  EXPECT_EQ(ByteSizeText(3LL << 29), "1.5 GB");
  EXPECT_EQ(ByteSizeText(5e20), "4.55e+08 TB") << "more than an integer holds";
}

TEST(Progress, DurationsReadAsAClock) {
  EXPECT_EQ(DurationText(7.4), "0:07");
  EXPECT_EQ(DurationText(750), "12:30");
  EXPECT_EQ(DurationText(11100), "3:05:00");
  EXPECT_EQ(DurationText(1.0 / 0.0), "0:00");
}

// --- result record --------------------------------------------------------------------------------------------------

RecordedFrame Made(const test::TemporaryFolder& folder, const std::string& name, std::uint64_t from) {
  test::WriteText(folder / name, "twelve bytes");
  return {{ResultFileOf(folder / name, name, false)}, {from, 9, {{(folder / "c").string(), 3}}}};
}

TEST(ResultRecord, TellsWhatIsMissingNeverMadeOrStale) {
  const test::TemporaryFolder folder;
  const auto path = ResultRecord::PathOf(folder.path(), "shots/splash.json");
  EXPECT_EQ(path, folder / "splash.results");
  ResultRecord record;
  ASSERT_TRUE(record.Begin(path, {0, 1, 2, 5, 6}).ok());
  for (const int frame : {2, 0, 6}) {
    ASSERT_TRUE(record.Add(frame, Made(folder, "f" + std::to_string(frame), 7)).ok());
  }
  ASSERT_TRUE(record.Add(0, Made(folder, "f0", 8)).ok()) << "made again";
  test::WriteText(path, test::ReadText(path) + R"({"frame": 1, "files": [)");  // a kill

  Result<ResultRecord> read = ResultRecord::Read(path);
  ASSERT_TRUE(read.ok()) << read.error().text;
  EXPECT_EQ(read->planned(), (std::vector<FrameRange>{{0, 2}, {5, 6}}));
  EXPECT_EQ(read->NeverMade(), (std::vector<FrameRange>{{1, 1}, {5, 5}}));
  EXPECT_EQ(read->frames().at(0).origin.caches, (std::vector<CacheStamp>{{(folder / "c").string(), 3}}));
  FrameOrigin origin{7, 0, {}};
  EXPECT_EQ(read->WhyMake(2, origin), "") << "no picture, so what only pictures show doesn't matter";
  EXPECT_NE(read->WhyMake(0, origin), "");
  EXPECT_NE(read->WhyMake(1, origin), "");
  test::WriteText(folder / "f6", "cut");
  EXPECT_EQ(read->MissingFiles(6, ResultRecord::Look::Sizes), std::vector<std::string>{"f6"});
  test::WriteText(folder / "f2", "twelve bytez");
  EXPECT_TRUE(read->MissingFiles(2, ResultRecord::Look::Sizes).empty());
  EXPECT_EQ(read->WhyMake(2, origin), "f2 isn't whole") << "as long as it was, another letter";
  EXPECT_TRUE(read->MadeFromOthers().empty()) << "a cache that is gone doesn't make its results stale";
  test::WriteText(folder / "c", std::string(100, 'x'));
  EXPECT_EQ(read->MadeFromOthers(), (std::vector<FrameRange>{{0, 0}, {2, 2}, {6, 6}}));

  ASSERT_TRUE(read->Begin(path, {7}).ok());
  read = ResultRecord::Read(path);
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->frames().size(), 3u);
  EXPECT_EQ(read->planned(), (std::vector<FrameRange>{{0, 2}, {5, 7}}));

  RecordedFrame other = Made(folder, "f7", 7);
  ++*other.files[0].hash;
  ASSERT_TRUE(read->Add(7, other).ok());
  read = ResultRecord::Read(path);
  EXPECT_EQ(read->WhyMake(7, origin), "") << "not touched, so not read";
  EXPECT_EQ(read->MissingFiles(7, ResultRecord::Look::Contents).size(), 1u);
  std::filesystem::last_write_time(folder / "f7", std::filesystem::last_write_time(folder / "f7"));
  EXPECT_NE(read->WhyMake(7, origin), "") << "as long and as old as it was, but touched";
}

TEST(ResultRecord, WhatIsNoRecordIsRefused) {
  const test::TemporaryFolder folder;
  for (const char* text : {"no record", "{\"frame\": 1}\n", "{\"planned\": [[0]]}\n", "{\"planned\": 3}\n",
                           "{\"planned\": [[0, 1e300]], \"frame\": \"x\"}\n", "[[[[[[[["}) {
    test::WriteText(folder / "a.results", text);
    EXPECT_FALSE(ResultRecord::Read(folder / "a.results").ok()) << text;
  }
  EXPECT_TRUE(ResultRecord::Read(folder / "none.results").ok());
}

// --- interrupt ------------------------------------------------------------------------------------------------------

// What signals do to a run. Each in a process of its own: a signal is never taken back.

// Raises a signal in the middle of a frame, and again when enough time has gone by for the two to be two.
class Interrupter : public FrameListener {
 public:
  Interrupter(int frame, int signals) : frame_(frame), signals_(signals) {}
  void AfterSubstep(const RunState& state, const SubstepReport&) override {
    for (; state.frame == frame_ && signals_ > 0; --signals_) {
      ::raise(SIGINT);
      ::raise(SIGINT);  // the same key press, once more
      ::usleep(250000);
    }
  }
  Status AfterFrame(const RunState& state) override {
    lastWhole = state.frame;
    return {};
  }
  int lastWhole = -1;

 private:
  int frame_, signals_;
};

// 0 when the run ended in order, and its last whole frame, checkpoint and cache are the expected ones.
int RunInterrupted(const std::filesystem::path& folder, int signals, int expected) {
  Interrupt::Install();
  Engine engine;
  auto scene =
      ReadSceneText((folder / "plume.json").string(), test::PlumeScene({.cells = 8, .lastFrame = 9}), engine.types);
  const auto plan = PlanFrames(*scene->document, {});
  WorkerPool pool(2);
  SceneRun run(engine, *scene->document, pool, folder.string());
  Interrupter interrupter(4, signals);
  Checkpoints checkpoints(folder, 3, 1);
  run.AddListener(interrupter);
  run.AddListener(checkpoints);
  if (!run.Run(*plan).ok() || Interrupt::Signal() != SIGINT || !run.state().interrupted) return 1;
  if (interrupter.lastWhole != expected) return 2;
  if (!std::filesystem::exists(folder / fmt::format("caches/orlix_grid_c4d{:05}.cache", expected))) return 3;
  if (std::filesystem::exists(folder / fmt::format("caches/orlix_grid_c4d{:05}.cache", expected + 1))) return 4;
  return checkpoints.last() == (signals == 1 ? expected : 3) ? 0 : 5;
}

TEST(Interrupt, TheFirstEndsBehindTheFrameTheSecondWithinIt) {
  for (const auto& [signals, expected] : {std::pair(1, 4), {2, 3}}) {
    const test::TemporaryFolder folder;
    EXPECT_EQ(test::RunInChild([&] { return RunInterrupted(folder.path(), signals, expected); }), 0) << signals;
  }
}

TEST(Interrupt, TheThirdKills) {
  EXPECT_EQ(test::RunInChild([] {
              Interrupt::Install();
              for (int signal = 0; signal < 3; ++signal) ::raise(SIGTERM), ::usleep(250000);
              return 0;
            }),
            256 + SIGTERM);
}

}  // namespace
}  // namespace orlix
