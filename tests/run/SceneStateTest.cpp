// All simulated state of all nodes goes through VisitState: a scene that is put back from a checkpoint goes on as the
// one that it was taken from. A node that keeps state to itself makes this fail, and is named.

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <map>

#include "fluids/scene/RootObject.h"
#include "globals/Hash.h"
#include "run/Checkpoint.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

namespace fs = std::filesystem;

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
  int scenes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(SourceFolder() + "/scenes")) {
    if (entry.path().extension() != ".json") continue;
    SCOPED_TRACE(entry.path().string());
    ExpectSameAfterRestore(entry.path().string(), checkpointFrames, more, 4);
    scenes++;
  }
  EXPECT_GT(scenes, 0);
}
TEST(SceneState, ShippedScenesGoOnAsIfNothingHadHappened) { TryShippedScenes({1, 3}, 2); }
TEST(SceneStateSlow, ShippedScenesGoOnAsIfNothingHadHappened) { TryShippedScenes({0, 5, 12, 20}, 6); }

// Crates that collide in water, one that is let go, one that a force node pushes: in the midst of their contacts.
constexpr const char* kBodyScene = R"({
  "orlix": 1, "fps": 24, "frames": [0, 40],
  "objects": [
    { "type": "box", "name": "A", "size": [24, 24, 24], "position": [-8, 52, 3], "rotation": [20, 10, 30] },
    { "type": "box", "name": "B", "size": [24, 24, 24], "position": [10, 80, -2], "rotation": [0, 40, 10] },
    { "type": "sphere", "name": "C", "radius": 12, "segments": 8, "position": [-30, 70, 0],
      "position@": { "keys": [[0, [-30, 70, 0]], [12, [-10, 60, 0], "linear"]] } },
    { "type": "box", "name": "Floor", "size": [80, 8, 60], "position": [0, 0, 0] },
    { "type": "box", "name": "Pool", "size": [80, 30, 60], "position": [0, 20, 0] },
    { "type": "scene", "name": "Room", "voxel_size": 0.06, "max_substeps": 3, "rigid_walls": true, "rigid_slop": 0.01,
      "children": [
      { "type": "volume_multi", "name": "Crates", "objects": ["A", "B"],
        "tags": [{ "type": "c4d_obstacle", "driven": false, "mass_mode": "density", "density": 600, "inertia": "solid",
                   "record_motion": "substeps" }] },
      { "type": "volume", "name": "Ball", "object": "C",
        "tags": [{ "type": "c4d_obstacle", "driven@": { "keys": [[0, true], [7, true], [8, false]] }, "mass": 3 }] },
      { "type": "volume", "name": "Ground", "object": "Floor", "tags": [{ "type": "c4d_obstacle", "driven": false }] },
      { "type": "rigid_forces", "name": "Wind", "bodies": ["Crates"], "forces": ["Blow"], "sampling": "points" },
      { "type": "force_gravity", "name": "Blow", "direction": [20, 0, 5] },
      { "type": "volume", "name": "Pool volume", "object": "Pool" },
      { "type": "particlegroup", "name": "Water" },
      { "type": "particlegridemitter", "name": "Fill", "group": "Water", "kind": "liquid", "volume": "Pool volume",
        "settings": "At the start", "deep_limit": 1000 },
      { "type": "particlemesh_emission_setting", "name": "At the start", "active_in": "First frame", "jitter": 0.5 },
      { "type": "duration", "name": "First frame", "use_frames": true, "length_frames": 1 },
      { "type": "liquid", "name": "Tank", "container": [80, 90, 60], "anchor_mode": "bottom", "face_y_max": "open",
        "pressure_solver": "multigrid", "pressure_accuracy": 0.1, "forces": ["Fall"] },
      { "type": "force_gravity", "name": "Fall", "strength": 0 },
      { "type": "particle_advection", "name": "Flow", "group": "Water", "kind": "liquid", "motion_source": "solvers",
        "integrator": "heun", "collisions": "boundary", "kill_inside": false } ] } ] })";

TEST(SceneState, BodiesGoOnInTheMidstOfTheirContacts) {
  const test::TemporaryFolder folder;
  test::WriteText(folder / "bodies.json", kBodyScene);
  ExpectSameAfterRestore((folder / "bodies.json").string(), {2, 6, 9}, 4);
}

}  // namespace
}  // namespace orlix
