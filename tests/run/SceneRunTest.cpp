#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <random>

#include "apps/orlix/Progress.h"
#include "exchange/OutputType.h"
#include "fluids/bodies/ObstacleTag.h"
#include "fluids/scene/RootObject.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "globals/ByteSize.h"
#include "globals/Hash.h"
#include "host/files/HyperFile.h"
#include "run/Checkpoint.h"
#include "run/Checkpoints.h"
#include "run/FrameList.h"
#include "run/Interrupt.h"
#include "run/Passes.h"
#include "run/ResultRecord.h"
#include "run/SceneRun.h"
#include "scene_file/SceneReader.h"
#include "tests/run/PlumeScene.h"
#include "tests/run/WaterScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/GasScene.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SceneFileRun.h"
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

// What surfaces are made of in each frame, and the points of the last one's mesh.
struct SurfaceWitness : FrameListener {
  int made = 0;
  std::vector<Vec3D> points;
  Status AfterFrame(const RunState& state) override {
    const auto& scene = *state.hook.scenes().begin()->second;
    EXPECT_FALSE(scene.VisualSeconds().stages.empty());
    scene.ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](const iBase& node) {
      const auto* mesher = dynamic_cast<const ImplicitMesher*>(&node);
      if (!mesher) return;
      made += mesher->Mesh().Points() != points;
      points = mesher->Mesh().Points();
    });
    return {};
  }
};

TEST(SceneRun, SurfacesRestInFramesThatNobodyWantsUnlessTheSimulationReadsThem) {
  struct Case {
    std::string more, outputs;
    std::set<std::string> resting;
  };
  const std::string record = R"({ "type": "cache_mesh", "mode": "record", "folder_source": "own", "folder": "c",
      "meshers": ["Surface"] })";
  for (const Case& each : {
           Case{R"({ "type": "mop_smoothing", "name": "Smooth", "source": "Surface" })",
                "",
                {"Level", "Surface", "Smooth"}},
           Case{"", R"({ "file_name": "a", "vdb": true, "grids": ["Level"] })", {"Level", "Surface"}},
           Case{R"({ "type": "levelset_smoother", "name": "Smooth", "source": "Level" },
                   { "type": "levelset_smoother", "name": "Round", "source": "Column volume" })",
                "",
                {"Level", "Surface", "Smooth"}},
           Case{R"({ "type": "levelset_smoother", "name": "Smooth", "source": "Level" },
                   { "type": "volume", "name": "Wet", "object": "Surface" })",
                "",
                {}},
           Case{R"({ "type": "constraint_volume", "name": "In", "volume": "Level" })", "", {}},
           Case{R"({ "type": "mesher", "name": "Static", "input": "Column volume" },
                   { "type": "surface_reconstruction", "name": "Again", "source": "Surface" },
                   { "type": "surface_reconstruction", "name": "Late", "source": "Water", "duration": "First frame" },
                   { "type": "surface_reconstruction", "name": "Marks", "source": "Water", "filter": true },
                   { "type": "surface_reconstruction", "name": "Fine", "source": "Water" })",
                "",
                {"Fine"}},
           Case{record, "", {}},
       }) {
    Engine engine;
    const auto scene = ReadSceneText("s.json", test::WaterScene(each.more, each.outputs), engine.types);
    ASSERT_TRUE(scene.ok()) << scene.error().text;
    std::set<std::string> names;
    for (const std::uint64_t number : FindSurfaceMakers(*scene->document)) {
      names.insert(scene->document->FindObject(number)->name);
    }
    EXPECT_EQ(names, each.resting) << each.more;
  }
  std::vector<Vec3D> points[2];
  for (const bool rest : {false, true}) {
    Engine engine;
    const auto scene = ReadSceneText("s.json", test::WaterScene("", ""), engine.types);
    WorkerPool pool(2);
    SceneRun run(engine, *scene->document, pool, "");
    SurfaceWitness witness;
    run.AddListener(witness);
    const auto list = rest ? std::optional(std::vector<int>{2, 5}) : std::nullopt;
    ASSERT_TRUE(run.Run(*PlanFrames(*scene->document, list)).ok());
    EXPECT_EQ(witness.made, rest ? 2 : 6);
    points[rest] = witness.points;
  }
  EXPECT_EQ(points[0], points[1]);
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
  ASSERT_TRUE(record.Begin(path, {{0, 2}, {5, 6}}).ok());
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

  ASSERT_TRUE(read->Begin(path, {{7, 7}}).ok());
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

// All simulated state of all nodes goes through VisitState: a scene that is put back from a checkpoint goes on as the
// one that it was taken from. A node that keeps state to itself makes this fail, and is named.

namespace fs = std::filesystem;
using test::TemporaryFolder;

// A hash for each item of state, by its place.
class StateItems final : public StateVisitor {
 public:
  void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) override {
    StateHash hash;
    if (grid) {
      hash.AddValue(grid->dims);
      hash.AddValue(grid->space.hostMin);
      hash.AddValue(grid->activeMin), hash.AddValue(grid->activeMax);
      hash.Add(grid->data, sizeof(double) * std::size_t(grid->count));
    }
    items[path_ + name] = hash.Value();
  }
  void VisitBytes(const char* name, void* bytes, std::size_t size) override {
    items[path_ + name] = HashBytes(bytes, size);
  }
  void Begin(const char* name) override {
    lengths_.push_back(path_.size());
    path_ += std::string(name) + "/";
  }
  void End() override {
    path_.resize(lengths_.back());
    lengths_.pop_back();
  }
  std::map<std::string, std::uint64_t> items;

 private:
  std::string path_;
  std::vector<std::size_t> lengths_;
};

std::map<std::string, std::uint64_t> ItemsOf(const OrlixHook& hook) {
  StateItems items;
  for (const auto& [key, scene] : hook.scenes()) scene->VisitState(items);
  return std::move(items.items);
}

void Coarsen(BaseDocument& document, double factor) {
  for (BaseObject* root : document.ObjectsOfType(kRootTypeId)) root->Set(1002, root->GetDouble(1002) * factor);
}

// Runs the first frames, and from a checkpoint after each of the given ones as many again as `more`.
void ExpectSameAfterRestore(const std::string& file, const std::vector<int>& checkpointFrames, int more,
                            double coarser = 1) {
  test::TemporaryFolder folder;
  test::SceneFileRun run(file, {}, 2);
  Coarsen(*run.document, coarser);
  const int first = run.document->minTime.Frame(run.document->fps);
  std::map<int, std::map<std::string, std::uint64_t>> expected;
  for (int frame = first; frame <= first + checkpointFrames.back() + more; frame++) {
    run.StepThrough(frame, frame);
    expected[frame] = ItemsOf(run.hook);
    CheckpointHead head;
    head.frame = frame;
    if (std::find(checkpointFrames.begin(), checkpointFrames.end(), frame - first) == checkpointFrames.end()) continue;
    ASSERT_TRUE(WriteCheckpoint(folder / std::to_string(frame), head, run.hook).ok());
  }
  ASSERT_GT(expected.rbegin()->second.size(), 5u);
  for (const int offset : checkpointFrames) {
    const int frame = first + offset;
    test::SceneFileRun resumed(file, {}, 3);
    Coarsen(*resumed.document, coarser);
    const Status restored = RestoreCheckpoint(folder / std::to_string(frame), *resumed.document, resumed.hook);
    ASSERT_TRUE(restored.ok()) << restored.error().text;
    std::string differing;
    const auto compare = [&](int at) {
      for (const auto& [name, hash] : ItemsOf(resumed.hook)) {
        if (expected[at][name] != hash) differing += fmt::format("  {} at frame {}\n", name, at);
      }
    };
    compare(frame);
    for (int next = frame + 1; next <= frame + more && differing.empty(); next++) {
      resumed.StepThrough(next, next);
      compare(next);
    }
    EXPECT_EQ(differing, "") << file << ", restored after frame " << frame;
  }
}

// What builds on the frame before in other ways: an obstacle that moves and turns, schemes that keep the sum, a
// container that grows with the smoke, velocity without its previous, a field of noise that moves, a window in time.
constexpr const char* kBusyScene = R"({
  "orlix": 1, "fps": 24, "frames": [3, 40],
  "objects": [
    { "type": "sphere", "name": "ball", "radius": 60, "position": [150, 90, 150] },
    { "type": "box", "name": "block", "size": [80, 40, 80], "position": [150, 240, 150],
      "position@": { "keys": [[3, [110, 240, 150]], [12, [200, 260, 140], "linear"]] },
      "rotation@": { "keys": [[3, [0, 0, 0]], [12, [30, 90, 0], "linear"]] } },
    { "type": "scene", "name": "Busy", "voxel_size": 0.25, "max_substeps": 3, "min_substeps": 1, "seed": 5, "children": [
      { "type": "fluid", "name": "Air", "margin": 3, "container": [320, 480, 320], "position": [-10, 0, -10],
        "face_y_max": "open", "pressure_iterations": 40, "keep_previous": false },
      { "type": "volume", "name": "source", "object": "ball", "extends_container": true },
      { "type": "volume", "name": "wall", "object": "block", "tags": [ { "type": "c4d_obstacle" } ] },
      { "type": "channel_scalar", "name": "smoke", "value_max": 9 },
      { "type": "channel_scalar", "name": "dust", "value_max": 9 },
      { "type": "channel_temp", "name": "heat" },
      { "type": "channel_vector", "name": "colour" },
      { "type": "channel_scalar", "name": "fresh", "1001": true },
      { "type": "duration", "name": "window", "1000": 0.3 },
      { "type": "emission_setting", "name": "amount", "1013": 8, "1012": true, "1004": "window" },
      { "type": "emission_setting", "name": "hot", "1000": 1, "1001": true, "1013": 900, "1012": false },
      { "type": "channelsettings", "name": "p1", "1000": "smoke", "1001": "amount" },
      { "type": "channelsettings", "name": "p2", "1000": "dust", "1001": "amount" },
      { "type": "channelsettings", "name": "p3", "1000": "heat", "1001": "hot" },
      { "type": "channelsettings", "name": "p4", "1000": "colour", "1001": "amount" },
      { "type": "channelsettings", "name": "p5", "1000": "fresh", "1001": "amount" },
      { "type": "constraint_noise", "name": "grain", "1001": 40, "1006": 2 },
      { "type": "gridemitter", "name": "emitter", "1000": ["p1", "p2", "p3", "p4", "p5"], "1002": "source",
        "constraints": ["grain"] },
      { "type": "force_buoyancy", "name": "Lift", "temperature": "heat", "1004": 0.02 },
      { "type": "force_swirling", "name": "Swirl" },
      { "type": "force_vortex", "name": "Turn", "strength": 200, "position": [150, 0, 150] },
      { "type": "grid_advection", "name": "a0", "1005": "Air", "1002": 1, "1003": 3 },
      { "type": "grid_advection", "name": "a1", "1000": "smoke", "1005": "Air", "1002": 2 },
      { "type": "grid_advection", "name": "a2", "1000": "dust", "1005": "Air", "1002": 3 },
      { "type": "grid_advection", "name": "a3", "1000": "heat", "1005": "Air", "1004": 2 },
      { "type": "grid_advection", "name": "a4", "1000": "colour", "1005": "Air", "1002": 0, "1004": 1 }
    ] }
  ]
})";

TEST(SceneState, ABusySceneGoesOnAsIfNothingHadHappened) {
  test::TemporaryFolder folder;
  test::WriteText(folder / "busy.json", kBusyScene);
  ExpectSameAfterRestore((folder / "busy.json").string(), {0, 3, 7}, 3);
}

// The scenes that a user would start from, with cells four times as large.
void TryShippedScenes(const std::vector<int>& checkpointFrames, int more) {
  int scenes = 0, seen = 0;
  for (const auto& entry : fs::recursive_directory_iterator(SourceFolder() + "/scenes")) {
    if (entry.path().extension() != ".json" || (test::kSanitized && seen++ % 3 != 0)) continue;
    SCOPED_TRACE(entry.path().string());
    ExpectSameAfterRestore(entry.path().string(), checkpointFrames, more, 4);
    scenes++;
  }
  EXPECT_GT(scenes, 0);
}
TEST(SceneState, ShippedScenesGoOnAsIfNothingHadHappened) { TryShippedScenes({1, 3}, 2); }
TEST(SceneStateSlow, ShippedScenesGoOnAsIfNothingHadHappened) { TryShippedScenes({0, 5, 12, 20}, 6); }

TEST(SceneState, BodiesGoOnInTheMidstOfTheirContacts) {
  ExpectSameAfterRestore("scenes/raft.json", {0}, 2, 4);
  ExpectSameAfterRestore("scenes/dominoes_in_wave.json", {14, 20}, 3, 2);
}

// --- checkpoint -----------------------------------------------------------------------------------------------------

// A box of still air.
struct AirScene : test::GasScene {
  AirScene() : GasScene({6, 6, 6}) {}
};

CheckpointHead HeadOf(int frame) {
  CheckpointHead head;
  head.frame = frame;
  return head;
}

TEST(Checkpoint, TheHeadIsReadByItself) {
  TemporaryFolder folder;
  AirScene s;
  s.StepThrough(0, 2);
  CheckpointHead head = HeadOf(2);
  head.sceneHash = 0xfedcba9876543210u;
  ASSERT_TRUE(WriteCheckpoint(folder / "c", head, s.hook).ok());
  const auto read = ReadCheckpointHead(folder / "c");
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->sceneHash, head.sceneHash);
  EXPECT_EQ(read->frame, 2);
  EXPECT_EQ(read->scenes, 1);
  EXPECT_FALSE(ReadCheckpointHead(folder / "none").ok());
  EXPECT_TRUE(HyperFile::Verify(0, folder / "c").ok());
}

TEST(Checkpoint, AnotherSceneIsRefused) {
  TemporaryFolder folder;
  AirScene s;
  s.Step(0);
  ASSERT_TRUE(WriteCheckpoint(folder / "c", HeadOf(0), s.hook).ok());
  const auto refusal = [&](auto change) {
    AirScene other;
    change(other);
    const Status status = RestoreCheckpoint(folder / "c", other.document, other.hook);
    return status.ok() ? std::string() : status.error().text;
  };
  EXPECT_EQ(refusal([](AirScene&) {}), "");
  EXPECT_NE(refusal([](AirScene& o) { o.fluid->name = "renamed"; }).find("renamed"), std::string::npos);
  EXPECT_NE(refusal([](AirScene& o) { o.Add("channel_scalar", "third"); }), "");
  EXPECT_NE(refusal([](AirScene& o) { o.document.RemoveObject(*o.fluid); }), "");
  EXPECT_NE(refusal([](AirScene& o) { o.document.AddObject(RootSettings::Type()); }).find("1 scenes"),
            std::string::npos);
}

// Mutants with checksums that agree.
TEST(Checkpoint, MutantsAreRefusedOrRestored) {
  constexpr int kMutants = 200;
  TemporaryFolder folder;
  AirScene s;
  s.StepThrough(0, 1);
  ASSERT_TRUE(WriteCheckpoint(folder / "c", HeadOf(1), s.hook).ok());
  const std::string text = test::ReadText(folder / "c");
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  std::mt19937 random(5);
  int refused = 0;
  for (int mutant = 0; mutant < kMutants; mutant++) {
    const auto bytes = test::MutantOf({data, data + text.size()}, 0x6F78636B, random);
    test::WriteText(folder / "d", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    AirScene restored;
    const Status status = RestoreCheckpoint(folder / "d", restored.document, restored.hook);
    EXPECT_TRUE(status.ok() || !status.error().text.empty());
    refused += !status.ok();
  }
  EXPECT_GT(refused, kMutants / 2);
}

// No cache keeps where a body is: its mesh, and the list of bodies, aren't made without a simulation.
TEST(Passes, WhatABodyMovesIsSimulated) {
  test::TestScene s;
  BaseObject& crate = s.Add("box", "Crate");
  BaseObject& volume = s.Add("volume", "Crate volume");
  volume.Set(VolumeBase::kObjectId, s.LinkTo(crate));
  BaseObject& tag = s.document.AddTag(*s.types.FindName("c4d_obstacle"), volume);
  tag.Set(ObstacleTag::kMassId, 5.0);
  BaseObject& output = s.document.AddObject(OutputSettings::Type());
  output.Set(OutputSettings::kMeshesId, std::int64_t(MeshOutput::Ply));
  output.Set(OutputSettings::kBodiesId, true);
  for (const bool driven : {true, false}) {
    tag.Set(ObstacleTag::kDrivenId, driven);
    const std::vector<Pass> passes = FindPasses(s.document, PassResults::Run);
    ASSERT_EQ(passes.size(), 2u);
    for (const Pass& pass : passes) EXPECT_EQ(pass.StandsAlone(), driven) << pass.name;
  }
}

}  // namespace
}  // namespace orlix
