// All simulated state of all nodes goes through VisitState: a scene that is put back from a checkpoint goes on as the
// one that it was taken from. A node that keeps state to itself makes this fail, and is named.

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <map>
#include <random>

#include "fluids/scene/RootObject.h"
#include "globals/Hash.h"
#include "host/files/HyperFile.h"
#include "run/Checkpoint.h"
#include "tests/support/GasScene.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

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

}  // namespace
}  // namespace orlix
