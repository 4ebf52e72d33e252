// Pictures and runs from caches that play back.

#include <gtest/gtest.h>

#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/run/PlumeScene.h"
#include "tests/run/WaterScene.h"

namespace orlix {
namespace {

using test::PlumeScene;
using test::ProgramOutcome;
using test::ProgramRunner;

// A plume recorded over frames 0 to 5, and the scene that plays it.
struct Recorded {
  Recorded() {
    const std::string scene = runner.Write("plume.json", PlumeScene({.cells = 8, .lastFrame = 5}));
    EXPECT_EQ(runner.Run({"run", scene, "--quiet", "--checkpoint-every", "0"}).code, 0);
    playing = runner.Write("play.json", PlumeScene({8, 5, false, true}));
  }
  // The quick look at frame 5 when these frames are asked for.
  std::string FrameFive(const std::string& scene, const std::string& frames) {
    const std::string out = (runner.folder / frames).string();
    const ProgramOutcome outcome =
        runner.Run({"render", scene, "--preview", "--frames", frames, "--out", out, "--quiet", "--overwrite"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    for (const std::string& name : test::NamesIn(out)) {
      if (name.find("0005") != std::string::npos) return test::ReadText(out + "/" + name);
    }
    ADD_FAILURE() << "no picture of frame 5 in " << out;
    return {};
  }
  ProgramRunner runner;
  std::string playing;
};
Recorded& Shared() {
  static Recorded recorded;
  return recorded;
}

TEST(PlayedCaches, EachFrameIsTheOneThatWasAskedFor) {
  Recorded& recorded = Shared();
  EXPECT_TRUE(recorded.FrameFive(recorded.playing, "5") == recorded.FrameFive(recorded.playing, "3-5"));
}

TEST(PlayedCaches, RecordingOverFramesAsksFirst) {
  Recorded& recorded = Shared();
  const std::filesystem::path file = recorded.runner.folder / "caches/orlix_grid_c4d00002.cache";
  const std::string scene = (recorded.runner.folder / "plume.json").string(), whole = test::ReadText(file);
  const std::vector<std::string> run = {
      "run", scene, "--quiet", "--checkpoint-every", "0", "--set", "Plume.max_substeps=1"};
  const ProgramOutcome refused = recorded.runner.Run(run);
  EXPECT_EQ(refused.code, 5);
  EXPECT_NE(refused.err.find("--overwrite"), std::string::npos) << refused.err;
  EXPECT_TRUE(test::ReadText(file) == whole);
  std::vector<std::string> again = {"run", scene, "--quiet", "--checkpoint-every", "0", "--overwrite"};
  EXPECT_EQ(recorded.runner.Run(again).code, 0);
}

TEST(PlayedCaches, WhatIsNotPlayedIsSimulatedFromTheFirstFrame) {
  Recorded& recorded = Shared();
  std::string text = PlumeScene({.cells = 8, .lastFrame = 5, .record = false});
  const std::string cache = R"({ "type": "cache", "nodes": ["smoke"], "folder_source": "own", "folder": "caches" }, )";
  const std::string scene = recorded.runner.Write("part.json", text.insert(text.find(R"({ "type": "null")"), cache));
  EXPECT_TRUE(recorded.FrameFive(scene, "5") == recorded.FrameFive(scene, "0-5"));
}

TEST(PlayedCaches, AMissingOrBrokenFileEndsWithItsName) {
  Recorded& recorded = Shared();
  const std::filesystem::path file = recorded.runner.folder / "caches/orlix_grid_c4d00002.cache";
  const std::string whole = test::ReadText(file);
  for (const bool broken : {true, false}) {
    broken ? std::filesystem::resize_file(file, 1000) : static_cast<void>(std::filesystem::remove(file));
    for (std::vector<std::string> arguments :
         {std::vector<std::string>{"run", recorded.playing, "--checkpoint-every", "0"},
          {"render", recorded.playing, "--frames", "2", "--preview"}}) {
      arguments.insert(arguments.end(), {"--quiet", "--overwrite"});
      const ProgramOutcome outcome = recorded.runner.Run(arguments);
      EXPECT_EQ(outcome.code, 4) << outcome.err;
      EXPECT_NE(outcome.err.find(file.string()), std::string::npos) << outcome.err;
      arguments.emplace_back("--allow-missing");
      EXPECT_EQ(recorded.runner.Run(arguments).code, 0);
    }
  }
  test::WriteText(file, whole);
}

std::string WaterCache(const std::string& type, const std::string& targets, bool record) {
  return R"({ "type": ")" + type + R"(", "name": ")" + type + R"(", )" + targets +
         R"(, "folder_source": "own", "folder": "water", "compression": "packed", "mode": ")" +
         (record ? "record" : "playback") + "\" }";
}
const char* const kDrops = R"("groups": [{ "object": "Water", "kind": "liquid" }])";
const char* const kSkin = R"("meshers": ["Surface"])";

// Water that was recorded once.
struct RecordedWater {
  RecordedWater() {
    const std::string scene = runner.Write(
        "record.json",
        test::WaterScene(WaterCache("cache_particle", kDrops, true) + ", " + WaterCache("cache_mesh", kSkin, true),
                         R"({ "meshes": "obj", "particles": true, "folder": "run" })"));
    EXPECT_EQ(Run({"run", scene}).code, 0);
  }
  ProgramOutcome Run(std::vector<std::string> arguments) {
    arguments.emplace_back("--quiet");
    if (arguments[0] == "run") arguments.insert(arguments.end(), {"--checkpoint-every", "0"});
    ProgramOutcome outcome = runner.Run(arguments);
    EXPECT_EQ(outcome.err.find("warning"), std::string::npos) << outcome.err;
    return outcome;
  }
  std::string Play(const std::string& name, const std::string& cache, const std::string& outputs) {
    return runner.Write(name, test::WaterScene(cache, outputs));
  }
  std::string Result(const std::string& name) { return test::ReadText(runner.folder / name); }
  ProgramRunner runner;
};
RecordedWater& Water() {
  static RecordedWater recorded;
  return recorded;
}

TEST(PlayedCaches, WaterIsMeshedAgainFromItsParticlesAsInTheRun) {
  RecordedWater& water = Water();
  const std::string scene = water.Play("again.json", WaterCache("cache_particle", kDrops, false),
                                       R"({ "meshes": "obj", "particles": true, "folder": "again" },
                                          { "meshes": "mcache", "folder": "compact" })");
  EXPECT_EQ(water.Run({"run", scene}).code, 0);
  int files = 0;
  for (const std::string& name : test::NamesIn(water.runner.folder / "run")) {
    if (name.starts_with("orlix")) continue;
    EXPECT_TRUE(water.Result("again/" + name) == water.Result("run/" + name)) << name;
    ++files;
  }
  EXPECT_EQ(files, 3 * 6) << "the column, the surface and the particles";
  const std::string compact = (water.runner.folder / "compact").string();
  EXPECT_EQ(water.Run({"verify", compact}).code, 0);
  EXPECT_NE(water.Run({"info", compact + "/frame_Dam_Surface.0003.mcache"}).out.find("polygons, normals"),
            std::string::npos);
}

TEST(PlayedCaches, TheProgramKnowsParticleAndMeshCaches) {
  RecordedWater& water = Water();
  const std::string folder = (water.runner.folder / "water").string();
  const std::string drops = folder + "/orlix_particle_c4d00003.pcache", skin = folder + "/orlix_mesh_c4d00003.mcache";
  EXPECT_NE(water.Run({"info", drops}).out.find("Old Position"), std::string::npos);
  EXPECT_NE(water.Run({"info", skin}).out.find("polygons, normals"), std::string::npos);
  const std::string scene = water.Play("told.json", WaterCache("cache_mesh", kSkin, false), "");
  EXPECT_NE(water.Run({"cache", scene, "--json"}).out.find("\"last\": 5"), std::string::npos);
  EXPECT_EQ(water.Run({"verify", folder}).code, 0);
  for (const std::string& file : {drops, skin}) {
    const std::string whole = test::ReadText(file),
                      copy = folder + "/x/" + std::filesystem::path(file).filename().string();
    std::filesystem::create_directories(folder + "/x");
    test::WriteText(copy, whole.substr(0, whole.size() / 2));
    for (const char* command : {"info", "verify"}) EXPECT_EQ(water.runner.Run({command, copy}).code, 4);
  }
  std::filesystem::remove_all(folder + "/x");
}

// --- passes ----------------------------------------------------------------------------------------------------------

const char* const kMeshes = R"({ "meshes": "obj", "particles": true, "folder": "%" })";

// A scene that meshes the recorded water into a folder of its own.
std::string MeshAgain(const std::string& name, const std::string& folder) {
  std::string outputs = kMeshes;
  outputs.replace(outputs.find('%'), 1, folder);
  return Water().Play(name, WaterCache("cache_particle", kDrops, false), outputs);
}

TEST(Passes, AFrameIsMadeWithoutThoseBeforeIt) {
  RecordedWater& water = Water();
  const std::string scene = MeshAgain("one.json", "one");
  const std::filesystem::path caches = water.runner.folder / "water";
  std::filesystem::rename(caches / "orlix_particle_c4d00001.pcache", caches / "away");
  EXPECT_EQ(water.Run({"run", scene, "--frames", "4,2"}).code, 0);
  std::filesystem::rename(caches / "away", caches / "orlix_particle_c4d00001.pcache");
  const auto names = test::NamesIn(water.runner.folder / "one");
  EXPECT_EQ(names.size(), 6u);
  for (const std::string& name : names) EXPECT_TRUE(water.Result("one/" + name) == water.Result("run/" + name)) << name;
}

TEST(Passes, ARunThatIsWholeIsNotMadeAgainAndWhatIsMissingOrStaleIs) {
  RecordedWater& water = Water();
  const std::string scene = MeshAgain("kept.json", "kept"), folder = water.runner.folder.path().string();
  const std::string record = folder + "/kept.results";
  const auto toMake = [&] {
    const std::string json = water.Run({"passes", scene, "--json"}).out;
    std::string frames;
    for (std::size_t at = json.find("to_make"); (at = json.find("\"frame\": ", at)) != std::string::npos; ++at) {
      frames += json[at + 9];
    }
    return frames;
  };
  EXPECT_EQ(toMake(), "012345");
  EXPECT_EQ(water.Run({"run", scene}).code, 0);
  EXPECT_EQ(toMake(), "");
  EXPECT_EQ(water.Run({"verify", record}).code, 0);

  const std::string lost = folder + "/kept/frame_Dam_Surface.0003.obj", whole = test::ReadText(lost);
  std::filesystem::resize_file(lost, 100);
  const auto untouched = std::filesystem::last_write_time(folder + "/kept/frame_Dam_Surface.0002.obj");
  EXPECT_EQ(water.runner.Run({"verify", record}).code, 4);
  EXPECT_EQ(toMake(), "3");
  EXPECT_EQ(water.Run({"run", scene, "--missing"}).code, 0);
  EXPECT_EQ(test::ReadText(lost), whole);
  EXPECT_EQ(std::filesystem::last_write_time(folder + "/kept/frame_Dam_Surface.0002.obj"), untouched);

  // Another simulation's frame 4.
  const std::string drops = folder + "/water/orlix_particle_c4d00004.pcache", kept = test::ReadText(drops);
  test::WriteText(drops, test::ReadText(folder + "/water/orlix_particle_c4d00005.pcache"));
  EXPECT_EQ(toMake(), "4");
  EXPECT_NE(water.runner.Run({"verify", record}).out.find("caches that have changed since: 4"), std::string::npos);
  EXPECT_EQ(water.Run({"run", scene, "--missing"}).code, 0);
  EXPECT_TRUE(water.Result("kept/frame_Dam_Surface.0004.obj") == water.Result("run/frame_Dam_Surface.0005.obj"));
  EXPECT_EQ(water.Run({"verify", record}).code, 0);
  test::WriteText(drops, kept);

  EXPECT_EQ(water.Run({"run", scene, "--missing", "--set", "Level.subdivision=1.5"}).code, 0);
  EXPECT_EQ(toMake(), "012345") << "made with other settings";
  EXPECT_NE(water.Run({"watch", folder, "--once"}).out.find("orlix_particle_c4d#.pcache: 6 frames"), std::string::npos);
}

TEST(Passes, WhatNeedsASimulationIsToldByItsName) {
  RecordedWater& water = Water();
  const auto passes = [&](const std::string& cache, const std::string& outputs) {
    return water.runner.Run({"passes", water.Play("told.json", cache, outputs), "--quiet"}).out;
  };
  const std::string drops = WaterCache("cache_particle", kDrops, false), skin = WaterCache("cache_mesh", kSkin, false);
  const std::string mesh = R"({ "meshes": "obj" })";
  EXPECT_NE(passes("", mesh).find("mesh of Dam/Surface: simulates, since no cache plays Dam/Water"), std::string::npos);
  EXPECT_NE(passes(drops, mesh).find("mesh of Dam/Surface: from Dam/cache_particle"), std::string::npos);
  EXPECT_NE(passes(skin, mesh).find("mesh of Dam/Surface: from Dam/cache_mesh"), std::string::npos);
  const std::string wrongKind = R"("groups": [{ "object": "Water", "kind": "diffuse" }])";
  EXPECT_NE(passes(WaterCache("cache_particle", wrongKind, false), mesh).find("no cache plays Dam/Water"),
            std::string::npos);
  EXPECT_NE(passes(drops, R"({ "vdb": true })").find("no cache plays Dam/Tank"), std::string::npos);
  EXPECT_NE(passes(skin, R"({ "pictures": true })").find("no cache plays Dam/Water"), std::string::npos);
}

}  // namespace
}  // namespace orlix
