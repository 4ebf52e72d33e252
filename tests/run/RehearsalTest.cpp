#include "run/Rehearsal.h"

#include <gtest/gtest.h>

#include "scene_file/SceneReader.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

// Smoke that a steady force carries along x: a camera has to see where it starts and where it ends.
std::string Drifting(const std::string& more) {
  return R"({ "orlix": 1, "fps": 24, "frames": [0, 12], "objects": [
    { "type": "sphere", "name": "ball", "radius": 40, "position": [-150, 0, 0] },
    { "type": "scene", "name": "S", "voxel_size": 0.1, "children": [
      { "type": "fluid", "name": "Air", "container": [500, 200, 200], "anchor_mode": "centre", "margin": 100,
        "face_x_min": "open", "face_x_max": "open", "forces": ["Wind"] },
      { "type": "channel_scalar", "name": "smoke" },
      { "type": "volume", "name": "source", "object": "ball" },
      { "type": "emission_setting", "name": "rate", "value": 5 },
      { "type": "channelsettings", "name": "pair", "channel": "smoke", "settings": "rate" },
      { "type": "gridemitter", "volume": "source", "pairs": ["pair"] },
      { "type": "force_gravity", "name": "Wind", "direction": [12, 0, 0] },
      { "type": "cache", "mode": "record", "nodes": ["smoke"], "folder_source": "own", "folder": "caches" },
      { "type": "grid_advection", "solver": "Air" },
      { "type": "grid_advection", "solver": "Air", "channel": "smoke" } ] } ],
    "materials": [ { "type": "gas", "density": "smoke" } ])" +
         more + " }";
}

TEST(Rehearsal, ItsBoxHoldsTheGasOfAllAskedFramesAndNothingIsRecorded) {
  const test::TemporaryFolder folder;
  Engine engine;
  WorkerPool pool(2);
  const auto rehearse = [&](std::vector<int> frames) {
    auto scene = ReadSceneText((folder / "s.json").string(), Drifting(""), engine.types);
    EXPECT_TRUE(scene.ok()) << scene.error().text;
    EXPECT_TRUE(WantsRehearsal(*scene->document));
    return Rehearse(engine, *scene->document, pool, *PlanFrames(*scene->document, frames));
  };
  const FramedBox early = rehearse({1}), both = rehearse({1, 12});
  ASSERT_FALSE(early.Empty() || both.Empty());
  EXPECT_NEAR(early.low.x, -190, 25);
  EXPECT_NEAR(early.high.y, 40, 25);
  EXPECT_LE(both.low.x, early.low.x);
  EXPECT_GT(both.high.x, early.high.x + 50);
  EXPECT_TRUE(test::NamesIn(folder.path()).empty());
}

TEST(Rehearsal, ASceneWithACameraWantsNone) {
  Engine engine;
  const auto scene = ReadSceneText("s.json", Drifting(R"(, "camera": { "position": [0, 0, 900] })"), engine.types);
  ASSERT_TRUE(scene.ok());
  EXPECT_FALSE(WantsRehearsal(*scene->document));
}

}  // namespace
}  // namespace orlix
