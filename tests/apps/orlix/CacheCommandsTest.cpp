#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "apps/orlix/FolderReport.h"
#include "apps/orlix/IsolatedCheck.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "host/pictures/PictureFile.h"
#include "run/Checkpoint.h"
#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/run/PlumeScene.h"
#include "tests/run/WaterScene.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TemporaryFolder;
namespace fs = std::filesystem;

// One file of each kind that the program writes.
void WriteOneOfEach(const fs::path& folder) {
  ScalarGrid grid({5, 4, 3}, {5, 4, 3}, 1.0f, kGridSmoke, {});
  for (std::int64_t i = 0; i < grid.count; i++) grid[i] = 0.5 + double(i);
  HyperFile cache;
  ASSERT_TRUE(cache.Open(kFrameFileIdent, folder / "a00001.cache", HyperFile::Mode::Write));
  const CachedGridSet entries[] = {{&grid}};
  WriteGridFrame(cache, grid.space, entries, false);
  ASSERT_TRUE(cache.Close().ok());
  VdbField field;
  field.name = "density", field.grids = {&grid, nullptr, nullptr};
  ASSERT_TRUE(WriteVdb(folder / "b.0001.vdb", {field}, {.frame = 1}).ok());
  Picture picture(8, 8);
  for (const char* channel : {"R", "G", "B"}) picture.AddChannel(channel, 0.25f);
  ASSERT_TRUE(WritePicture(folder / "c.0001.exr", picture).ok());
  ASSERT_TRUE(WritePicture(folder / "c.0001.png", picture).ok());
  test::TestScene s;
  s.Step(0);
  ASSERT_TRUE(WriteCheckpoint(folder / "state00001.checkpoint", {}, s.hook).ok());
}

TEST(Verify, EveryKindIsWholeAndEveryCutOneIsBroken) {
  TemporaryFolder folder;
  WriteOneOfEach(folder.path());
  const std::set<std::string> names = test::NamesIn(folder.path());
  ASSERT_EQ(names.size(), 5u);
  const auto whole = ReportFolder(folder.path());
  ASSERT_TRUE(whole.ok());
  EXPECT_EQ(whole->whole, 5);
  EXPECT_EQ(whole->broken, 0);
  for (const std::string& name : names) {
    const std::string content = test::ReadText(folder / name);
    for (const std::size_t size : {std::size_t(0), std::size_t(1), content.size() / 2, content.size() - 1}) {
      test::WriteText(folder / name, content.substr(0, size));
      const auto report = ReportFolder(folder / name);
      ASSERT_TRUE(report.ok());
      EXPECT_EQ(report->broken, 1) << name << " of " << size << " bytes";
    }
    test::WriteText(folder / name, content);
  }
}

TEST(Verify, GapsAreMissingFilesByEachKindsRule) {
  TemporaryFolder folder;
  WriteOneOfEach(folder.path());
  const auto copyTo = [&](const char* from, const std::string& to) { fs::copy_file(folder / from, folder / to); };
  for (int frame : {3, 4, 9}) copyTo("a00001.cache", "a0000" + std::to_string(frame) + ".cache");
  for (int frame : {3, 5, 9}) copyTo("b.0001.vdb", "b.000" + std::to_string(frame) + ".vdb");  // each second frame
  test::WriteText(folder / "b.0002.vdb.77-0.part", "half");
  fs::create_directory(folder / "deeper");
  copyTo("c.0001.png", "deeper/alone.png");
  const auto report = ReportFolder(folder.path());
  ASSERT_TRUE(report.ok());
  EXPECT_EQ(report->broken, 0);
  EXPECT_EQ(report->whole, 12);
  EXPECT_EQ(report->missing, 6);
  EXPECT_EQ(report->surelyMissing, 5);
  ASSERT_EQ(report->unfinished.size(), 1u);
  const auto find = [&](const std::string& name) -> const SequenceReport& {
    return *std::find_if(report->sequences.begin(), report->sequences.end(),
                         [&](const SequenceReport& s) { return s.name == (folder / name).string(); });
  };
  EXPECT_EQ(find("a#.cache").missing, (std::vector<FrameRange>{{2, 2}, {5, 8}}));
  EXPECT_EQ(find("b.#.vdb").missing, (std::vector<FrameRange>{{7, 7}}));
  EXPECT_EQ(find("deeper/alone.png").whole, 1);
}

TEST(Verify, ACacheOfAnotherFrameIsFoundByItsNumber) {
  TemporaryFolder folder;
  const ScalarGrid grid({2, 2, 2}, {2, 2, 2}, 1.0f, kGridSmoke, {});
  const CachedGridSet entries[] = {{&grid}};
  for (const char* number : {"00001", "00002", "00102"}) {
    HyperFile cache;
    ASSERT_TRUE(cache.Open(kFrameFileIdent, folder / ("a1" + std::string(number) + ".cache"), HyperFile::Mode::Write));
    WriteGridFrame(cache, grid.space, entries, false, number);
    ASSERT_TRUE(cache.Close().ok());
  }
  EXPECT_EQ(ReportFolder(folder.path())->broken, 0);
  fs::copy_file(folder / "a100102.cache", folder / "a100002.cache", fs::copy_options::overwrite_existing);
  const auto report = ReportFolder(folder.path());
  ASSERT_EQ(report->broken, 1);
  EXPECT_NE(report->sequences[0].broken[0].reason.find("written as frame 00102"), std::string::npos);
}

TEST(Verify, AFolderThatCanNotBeReadIsBroken) {
  TemporaryFolder folder;
  fs::create_directory(folder / "shut");
  fs::permissions(folder.path(), fs::perms::all);
  fs::permissions(folder / "shut", fs::perms::none);
  const bool isRoot = ::geteuid() == 0;  // whom no permission stops
  if (isRoot) {
    ASSERT_EQ(::seteuid(65534), 0);
  }
  const auto report = ReportFolder(folder.path());
  if (isRoot) {
    ASSERT_EQ(::seteuid(0), 0);
  }
  fs::permissions(folder / "shut", fs::perms::all);
  ASSERT_TRUE(report.ok()) << report.error().text;
  EXPECT_EQ(report->broken, 1);
  EXPECT_EQ(report->unreadable.size(), 1u);
}

TEST(Verify, AReaderThatCrashesOrHangsIsABrokenFile) {
  TemporaryFolder folder;
  test::WriteText(folder / "a", "x");
  const auto outcome = [&](Status (*check)(const fs::path&)) {
    const Status status = RunIsolated(check, folder / "a");
    return status.ok() ? std::string("whole") : status.error().text;
  };
  EXPECT_EQ(outcome([](const fs::path&) { return Status(); }), "whole");
  EXPECT_EQ(outcome([](const fs::path& p) { return Status::Fail(ErrorKind::InputFile, p.string() + ": cut"); }),
            (folder / "a").string() + ": cut");
  EXPECT_NE(outcome([](const fs::path&) -> Status { std::abort(); }).find("crashes"), std::string::npos);
  EXPECT_NE(outcome([](const fs::path&) -> Status { ::_exit(3); }).find("crashes"), std::string::npos);
  EXPECT_NE(outcome([](const fs::path&) {
              ::raise(SIGXCPU);
              return Status();
            }).find("doesn't end"),
            std::string::npos);
}

TEST(Verify, WhatCanNotBeReadIsAnError) {
  TemporaryFolder folder;
  EXPECT_EQ(ReportFolder(folder / "none").error().kind, ErrorKind::InputFile);
  test::WriteText(folder / "notes.txt", "");
  EXPECT_EQ(ReportFolder(folder / "notes.txt").error().kind, ErrorKind::Usage);
  const auto empty = ReportFolder(folder.path());
  ASSERT_TRUE(empty.ok());
  EXPECT_TRUE(empty->sequences.empty());
}

// Pictures and runs from caches that play back.

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

TEST(PlayedCaches, LostFramesAndThoseOfAnEarlierRunAreFound) {
  ProgramRunner runner;
  const std::string scene = runner.Write("plume.json", PlumeScene({.cells = 8, .lastFrame = 5, .record = true}));
  const std::string caches = (runner.folder / "caches").string(), frame = caches + "/orlix_grid_c4d0000";
  const auto record = [&](const char* last, const char* more) {
    const ProgramOutcome run =
        runner.Run({"run", scene, "--frames", last, "--checkpoint-every", "0", "--overwrite", "--set", more});
    EXPECT_EQ(run.code, 0) << run.err;
    return run.err;
  };
  record("5", "Plume.max_substeps=2");
  EXPECT_EQ(runner.Run({"verify", caches}).code, 0);
  EXPECT_EQ(record("3", "Plume.max_substeps=2").find("of another run"), std::string::npos) << "it is the same one";
  std::filesystem::remove(frame + "5.cache");
  ProgramOutcome verified = runner.Run({"verify", caches});
  EXPECT_EQ(verified.code, 4);
  EXPECT_NE(verified.out.find("5 whole, missing 5\n"), std::string::npos) << verified.out;
  EXPECT_NE(record("3", "Plume.max_substeps=1").find("holds frames 4 of another run"), std::string::npos);
  std::filesystem::remove(frame + "0.cache");
  verified = runner.Run({"verify", caches});
  EXPECT_EQ(verified.code, 4);
  EXPECT_NE(verified.out.find("4 whole, missing 0, left by another run: 4\n"), std::string::npos) << verified.out;
}

TEST(PlayedCaches, OtherMomentsThanWereRecordedAreTold) {
  ProgramRunner runner;
  const std::string recording = runner.Write("plume.json", PlumeScene({.cells = 8, .lastFrame = 5, .record = true}));
  ASSERT_EQ(runner.Run({"run", recording, "--quiet", "--checkpoint-every", "0"}).code, 0);
  const auto play = [&](const std::string& clock, const std::vector<std::string>& more) {
    std::string text = PlumeScene({.cells = 8, .lastFrame = 5, .record = false, .play = true});
    const std::string usual = R"("fps": 24, "frames": [0, 5])";
    std::vector<std::string> arguments = {
        "run", runner.Write("play.json", text.replace(text.find(usual), usual.size(), clock)), "--frames", "4-5",
        "--overwrite"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runner.Run(arguments).err;
  };
  EXPECT_EQ(play(R"("fps": 24, "frames": [0, 5])", {}).find("recorded"), std::string::npos);
  EXPECT_NE(play(R"("fps": 24, "frames": [2, 5])", {}).find("what was recorded as frame"), std::string::npos);
  EXPECT_EQ(play(R"("fps": 24, "frames": [2, 5])", {"--set", "play.frame_offset=2"}).find("recorded as"),
            std::string::npos);
  EXPECT_NE(play(R"("fps": 48, "frames": [0, 5])", {}).find("recorded at 24 a second"), std::string::npos);
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

// Nothing of a pass asks for a box but the solver that is played.
TEST(PlayedCaches, AMeshOfPlayedWaterHasTheVelocityThatIsPlayedBesideIt) {
  ProgramRunner runner;
  const std::string tank = R"({ "type": "cache", "name": "Flows", "nodes": ["Tank"], "mode": "MODE" }, )";
  const auto run = [&](const std::string& name, bool record) {
    std::string text = test::WaterScene(tank + WaterCache("cache_particle", kDrops, record),
                                        R"({ "meshes": "ply", "folder": ")" + name + "\" }");
    text.replace(text.find("MODE"), 4, record ? "record" : "playback");
    const ProgramOutcome outcome =
        runner.Run({"run", runner.Write(name + ".json", text), "--quiet", "--set", "Surface.velocity=Tank", "--set",
                    "Surface.advection_time=0.02", "--checkpoint-every", "0"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("outside the container"), std::string::npos) << outcome.err;
    return test::ReadText(runner.folder / name / "frame_Dam_Surface.0004.ply");
  };
  const std::string live = run("live", true), pass = run("pass", false);
  EXPECT_NE(live.find("property float vx"), std::string::npos);
  EXPECT_TRUE(live == pass);
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
  // What the run wrote beside its caches is what these become.
  const auto info = [&](const std::string& file) {
    auto json = nlohmann::json::parse(water.Run({"info", file, "--json"}).out);
    for (const char* own : {"metres_per_unit", "up", "file"}) json.erase(own);
    return json;
  };
  const std::string points = (water.runner.folder / "drops.ply").string(),
                    mesh = (water.runner.folder / "skin.obj").string(), run = (water.runner.folder / "run").string();
  EXPECT_EQ(water.Run({"convert", drops, points}).code, 0);
  EXPECT_EQ(water.Run({"convert", skin, mesh}).code, 0);
  EXPECT_EQ(info(points), info(run + "/frame_Dam_Water_liquid.0003.ply"));
  EXPECT_EQ(info(mesh), info(run + "/frame_Dam_Surface.0003.obj"));
  EXPECT_EQ(water.Run({"convert", skin, points}).code, 5);
  EXPECT_EQ(water.Run({"convert", drops, mesh, "--overwrite"}).code, 2);
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
