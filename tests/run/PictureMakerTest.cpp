#include "run/PictureMaker.h"

#include <gtest/gtest.h>

#include "run/FrameResults.h"
#include "scene_file/SceneReader.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

std::string Scene(const char* camera, const char* materials) {
  return std::string(R"({ "orlix": 1, "frames": [0, 1], "objects": [
    { "type": "sphere", "name": "ball", "radius": 40, "shown_in_pictures": false },
    { "type": "scene", "name": "S", "voxel_size": 0.2, "render_voxel_size": 0.2, "children": [
      { "type": "fluid", "name": "Air", "container": [200, 200, 200], "anchor_mode": "centre" },
      { "type": "channel_scalar", "name": "smoke" },
      { "type": "channel_scalar", "name": "other" },
      { "type": "volume", "name": "source", "object": "ball" },
      { "type": "emission_setting", "name": "rate", "value": 5 },
      { "type": "channelsettings", "name": "pair", "channel": "smoke", "settings": "rate" },
      { "type": "gridemitter", "volume": "source", "pairs": ["pair"] },
      { "type": "grid_advection", "solver": "Air" },
      { "type": "grid_advection", "solver": "Air", "channel": "smoke" },
      { "type": "grid_advection", "solver": "Air", "channel": "other" } ] } ],
    "render": { "exr": false, "samples": 1 }, "camera": { "position": [0, 0, 500], "target": )") +
         camera + R"( }, "materials": [ )" + materials + " ] }";
}

// The keys of what is told about pictures.
std::string Told(const char* camera, const char* materials) {
  const test::TemporaryFolder folder;
  Engine engine;
  auto scene = ReadSceneText("s.json", Scene(camera, materials), engine.types);
  if (!scene) return scene.error().text;
  WorkerPool pool(1);
  SceneRun run(engine, *scene->document, pool, folder.path().string());
  FrameResults results(nullptr, FrameResults::Pictures::OfEveryFrame, {.width = 16, .height = 16});
  run.AddListener(results);
  if (const Status status = run.Run(*PlanFrames(*scene->document, {})); !status) return status.error().text;
  std::string keys;
  for (const Warning& warning : run.state().warnings.all()) {
    if (warning.key.find("gas") != std::string::npos) keys += warning.key + " ";
  }
  return keys;
}

TEST(PictureMaker, APictureWithoutTheGasThatIsThereSaysWhy) {
  const char *there = "[0, 0, 0]", *away = "[0, 0, 900]", *smoke = R"({ "type": "gas", "density": "smoke" })";
  EXPECT_EQ(Told(there, smoke), "");
  EXPECT_EQ(Told(away, smoke), "gas-unseen ");
  EXPECT_EQ(Told(there, ""), "no-gas-material ");
  EXPECT_EQ(Told(there, R"({ "type": "gas", "density": "other" })"), "gas-empty ");
}

}  // namespace
}  // namespace orlix
