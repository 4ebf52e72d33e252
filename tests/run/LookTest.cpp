// What decides how pictures look and which of them are made: presets of scene files, the look of scenes without one,
// samplers, and pictures that another run goes on with.

#include <gtest/gtest.h>

#include "fluids/volume_renderer/GasSettings.h"
#include "fluids/volume_renderer/SceneSampler.h"
#include "host/pictures/PictureFile.h"
#include "run/DefaultLook.h"
#include "run/Engine.h"
#include "run/FrameResults.h"
#include "run/PictureWork.h"
#include "run/Rehearsal.h"
#include "run/SceneCheck.h"
#include "run/SceneRun.h"
#include "run/Statistics.h"
#include "scene_file/SceneReader.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

std::string Scene(const std::string& objects, const std::string& materials, const std::string& target = "[0, 0, 0]") {
  return R"({ "orlix": 1, "frames": [0, 1], "objects": [ )" + objects + R"(
    { "type": "sphere", "name": "ball", "radius": 40, "shown_in_pictures": false },
    { "type": "scene", "name": "S", "voxel_size": 0.2, "render_voxel_size": 0.2, "children": [
      { "type": "fluid", "name": "Air", "container": [200, 200, 200], "anchor_mode": "centre" },
      { "type": "channel_scalar", "name": "smoke", "value_max": 2 },
      { "type": "channel_scalar", "name": "other" },
      { "type": "volume", "name": "source", "object": "ball" },
      { "type": "emission_setting", "name": "rate", "mode": "set", "per_step": true, "value": 1 },
      { "type": "channelsettings", "name": "pair", "channel": "smoke", "settings": "rate" },
      { "type": "gridemitter", "volume": "source", "pairs": ["pair"] },
      { "type": "particlegroup", "name": "grains" },
      { "type": "property_scalar", "name": "size" },
      { "type": "grid_advection", "solver": "Air", "channel": "smoke" } ] } ],
    "render": { "exr": false, "samples": 1, "sky_samples": 0 }, "camera": { "position": [0, 0, 500], "target": )" +
         target + R"( }, "materials": [ )" + materials + " ] }";
}

struct Read {
  explicit Read(const std::string& text, const std::vector<std::string>& overrides = {})
      : file(ReadSceneText("s.json", text, engine.types, {.overrides = overrides})) {
    EXPECT_TRUE(file.ok()) << (file.ok() ? "" : file.error().text);
  }
  BaseDocument& document() { return *file->document; }
  const BaseObject& gas() { return *document().ObjectsOfType(kGasMaterialId).front(); }
  Engine engine;
  Result<SceneFile> file;
};

TEST(Look, APresetIsWhereTheOtherKeysStartFromWhateverTheirOrder) {
  Read plain(Scene("", R"({ "type": "gas", "name": "G", "preset": "soot", "density": "smoke" })"));
  Read changed(Scene("", R"({ "type": "gas", "name": "G", "phase_g": 0.1, "fine_step": 2, "density": "smoke",
                              "preset": "soot" })"));
  const GasSettings soot = GasSettings::Read(plain.gas()), own = GasSettings::Read(changed.gas());
  EXPECT_NE(soot.absorption, GasSettings().absorption);
  EXPECT_EQ(own.absorption, soot.absorption);
  EXPECT_EQ(own.steps.fine, 2) << "also where it is the row's default";
  EXPECT_NE(soot.steps.fine, 2);
  EXPECT_EQ(own.phaseG, 0.1);
  EXPECT_NE(changed.gas().GetLink(GasSettings::kDensityId), nullptr);
  Read over(Scene("", R"({ "type": "gas", "name": "G", "fine_step": 2, "density": "smoke" })"), {"G.preset=soot"});
  EXPECT_EQ(GasSettings::Read(over.gas()).steps.fine, soot.steps.fine);
  Engine engine;
  const auto wrong = ReadSceneText("s.json", Scene("", R"({ "type": "gas", "preset": "thick fog" })"), engine.types);
  ASSERT_FALSE(wrong.ok());
  EXPECT_NE(wrong.error().text.find("thick fog"), std::string::npos);
  const auto keyed =
      ReadSceneText("s.json", Scene("", R"({ "type": "gas", "preset@": { "keys": [[0, 1]] } })"), engine.types);
  EXPECT_FALSE(keyed.ok());
}

TEST(Look, AScenesOwnLookComesBeforeTheDefaultOne) {
  Read bare(Scene("", ""));
  BaseObject* look = AddDefaultLook(bare.document());
  ASSERT_NE(look, nullptr);
  EXPECT_EQ(look->GetLink(GasSettings::kDensityId)->name, "smoke");
  EXPECT_DOUBLE_EQ(look->GetDouble(GasSettings::kUnitDensityId), 0.2) << "a tenth of the range";
  FitDefaultLook(*look, 0.7);
  EXPECT_DOUBLE_EQ(look->GetDouble(GasSettings::kUnitDensityId), 0.7);
  EXPECT_EQ(AddDefaultLook(bare.document()), nullptr);
}

TEST(Look, SamplersGiveValuesInGasAndWhiteWithoutOne) {
  Read scene(Scene(R"({ "type": "grid_sampler", "name": "in gas", "source": "smoke",
                        "gradient": [[0, [0, 0, 0.5]], [1, [1, 0, 0]]], "output_high": 0.9 },
                      { "type": "grid_sampler", "name": "no source" },
                      { "type": "particle_sampler", "name": "no particles", "group": "grains", "property": "size" },)",
                   ""));
  WorkerPool pool(1);
  SceneRun run(scene.engine, scene.document(), pool, "");
  ASSERT_TRUE(run.Run(*PlanFrames(scene.document(), {})).ok());
  const auto ask = [&](const char* name, const Vec3D& place) {
    Vec3D colour;
    scene.document().ForEachObject([&](BaseObject& object) {
      if (object.name != name) return;
      object.data()->AsShader()->Colours(object, Shader::PlaceKind::Space, {&place, 1}, {&colour, 1});
    });
    return colour;
  };
  EXPECT_EQ(ask("in gas", {0, 0, 0}), Vec3D(1.0)) << "not started";
  const StartedSamplers samplers(scene.document(), run.hook(), pool);
  const Vec3D inside = ask("in gas", {1, 1, 1});
  EXPECT_NEAR(inside.x, 0.5, 0.03) << "1 of a range to 2";
  EXPECT_NEAR(inside.z, 0.25, 0.03);
  EXPECT_EQ(ask("in gas", {0, 900, 0}), Vec3D(0, 0, 0.5)) << "outside of the grid";
  EXPECT_EQ(ask("no source", {0, 0, 0}), Vec3D(1.0));
  EXPECT_EQ(ask("no particles", {0, 0, 0}), Vec3D(1.0));
}

TEST(PictureWork, KnowsItsOwnPicturesAndEndsUnfinishedOnes) {
  const test::TemporaryFolder folder;
  Read scene(Scene("", R"({ "type": "gas", "density": "smoke" })"));
  const std::string out = folder.path().string();
  const PictureWork work(out, 7), other(out, 8);
  EXPECT_FALSE(*work.Continue());
  ASSERT_TRUE(work.Start().ok());
  EXPECT_TRUE(*work.Continue());
  EXPECT_FALSE(other.Continue().ok());
  EXPECT_FALSE(work.HasMade(scene.document(), 0));

  WorkerPool pool(1);
  SceneRun run(scene.engine, scene.document(), pool, out);
  FrameResults results(nullptr, FrameResults::Pictures::OfEveryFrame, {.width = 64, .height = 32, .work = &work});
  run.AddListener(results);
  // Half of frame 1 is there, white.
  Picture half(64, 32);
  for (const char* name : {"R", "G", "B", "A", "Z"}) half.AddChannel(name, 1);
  PictureChannel& done = half.AddChannel(kDoneChannel);
  for (std::size_t n = 0; n < done.values.size(); ++n) done.values[n] = n % 64 < 32;
  ASSERT_TRUE(work.KeepUnfinished(half, 1).ok());
  EXPECT_EQ(work.Unfinished(1).pixelCount(), 64u * 32);
  ASSERT_TRUE(run.Run(*PlanFrames(scene.document(), {})).ok());
  EXPECT_TRUE(work.HasMade(scene.document(), 0));
  EXPECT_TRUE(work.HasMade(scene.document(), 1));
  EXPECT_FALSE(work.HasMade(scene.document(), 2));
  EXPECT_EQ(work.Unfinished(1).pixelCount(), 0u) << "it was ended";
  const auto picture = ReadPicture(PicturePaths(scene.document(), out, 1).front());
  ASSERT_TRUE(picture.ok());
  EXPECT_GT(picture->Find("R")->values[5], 0.7) << "from the half that was there";
  EXPECT_LT(picture->Find("R")->values[60], 0.7);

  ASSERT_TRUE(other.Start().ok());
  EXPECT_FALSE(work.Continue().ok()) << "a new work forgets the old one";
}

// The keys of what is told about pictures.
std::string Told(const char* target, const char* materials) {
  const test::TemporaryFolder folder;
  Engine engine;
  auto scene = ReadSceneText("s.json", Scene("", materials, target), engine.types);
  if (!scene) return scene.error().text;
  WorkerPool pool(1);
  SceneRun run(engine, *scene->document, pool, folder.path().string());
  FrameResults results(nullptr, FrameResults::Pictures::OfEveryFrame, {.width = 16, .height = 16});
  // Told when the statistics' run is over already.
  auto statistics = Statistics::Open((folder / "stats").string(), 0);
  run.AddListener(**statistics);
  run.AddListener(results);
  if (const Status status = run.Run(*PlanFrames(*scene->document, {})); !status) return status.error().text;
  statistics->reset();
  const std::string written = test::ReadText(folder / "stats");
  std::string keys;
  for (const Warning& warning : run.state().warnings.all()) {
    if (warning.key.find("gas") != std::string::npos) keys += warning.key + " ";
    if (written.find("\"" + warning.key + "\"") == std::string::npos) keys += "unwritten ";
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

// --- rehearsal ------------------------------------------------------------------------------------------------------

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

struct Case {
  const char* what;
  std::string text;   // of the scene, behind its head
  std::string first;  // "line: message" of the first mistake, whose beginning is compared; empty for none
};

const std::string kCaches = R"("objects": [ { "type": "scene", "children": [
  { "type": "channel_scalar", "name": "smoke" },
  { "type": "cache", "name": "A", "mode": "record", "nodes": ["smoke"], "folder_source": "own", "folder": "c", "stem": "a" },
  { "type": "cache", "name": "B", "mode": "record", "nodes": ["smoke"], "folder_source": "own", "folder": "c",)";

class SceneCheck : public testing::TestWithParam<Case> {};

TEST_P(SceneCheck, FindsItWithItsLine) {
  const test::TemporaryFolder folder;
  test::WriteText(folder / "rabbit.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  Engine engine;
  const auto scene =
      ReadSceneText((folder / "s.json").string(), "{ \"orlix\": 1,\n" + GetParam().text + " }", engine.types);
  ASSERT_TRUE(scene.ok()) << scene.error().text;
  const auto found = FindSceneMistakes(*scene->document, {.results = folder / "out"});
  if (GetParam().first.empty()) {
    EXPECT_TRUE(found.empty()) << found[0].text;
    return;
  }
  ASSERT_EQ(found.size(), 1u);
  const Place* place = scene->places.Find(found[0].object, found[0].row);
  ASSERT_TRUE(place);
  const std::string text = std::to_string(LineColumnAt(place->source->text, place->offset).line) + ": " +
                           Described(*scene->document->FindObject(found[0].object), found[0].row, found[0].text);
  EXPECT_EQ(text.substr(0, GetParam().first.size()), GetParam().first);
}

std::vector<Case> Cases() {
  return {
      {"near", R"("camera": { "position": [0, 0, 9],
         "near": 7, "far": 5 })",
       "3: \"camera\".near must be above 0 and below far"},
      {"a flat camera", R"("camera": {
         "scale": 0, "look_at": false, "position": [0, 0, 9] })",
       "3: \"camera\".scale must not be 0"},
      {"angles", R"("lights": [ { "type": "light_spot", "position": [0, 5, 0],
         "inner_angle": 50 } ])",
       "3: \"light_spot\".inner_angle must not be above outer_angle"},
      {"a large picture", R"("render": { "width": 65536, "height": 65536 })",
       "2: \"render\".width times height: a picture"},
      {"a mesh", R"("objects": [ { "type": "mesh", "name": "m",
         "file": "rabit.obj" } ])",
       "3: \"m\".file is \"rabit.obj\": there is no such file in /"},
      {"a mesh that is there", R"("objects": [ { "type": "mesh", "file": "rabbit.obj" } ])", ""},
      {"outside", R"("output": [ { "vdb": true,
         "folder": "../../etc" } ])",
       "3: \"output\".folder is \"../../etc\", which leads out of the folder of results"},
      {"outside by name", R"("output": [ { "vdb": true, "folder": "a", "file_name": "../../x" } ])",
       "2: \"output\".file_name is \"../../x\", which leads out"},
      {"a name that is a folder, too", R"("output": [ { "vdb": true, "file_name": "a/b" } ])",
       "2: \"output\".file_name is \"a/b\", must be without"},
      {"a name of two lines", R"("render": { "file_name": "a\nb" })", "2: \"render\".file_name is \"a\\nb\", must be"},
      {"an absolute folder", R"("output": [ { "vdb": true, "folder": "/tmp/vdb" } ])", ""},
      {"inside, by a way round", R"("output": [ { "vdb": true, "folder": "a/../b" } ])", ""},
      {"a picture outside", R"("render": { "file_name": "../p" })", "2: \"render\".file_name is \"../p\""},
      {"pictures without files", R"("render": { "exr": false, "png": false })",
       "2: \"render\".png is false, as \"exr\" is: pictures would leave no file"},
      {"one name for two outputs", R"("objects": [ { "type": "scene" } ],
         "output": [ { "name": "A", "vdb": true }, { "name": "B", "folder": "./", "vdb": true } ])",
       "3: \"B\".file_name gives "},
      {"one name for two meshes", R"("output": [ { "meshes": "obj" } ], "objects": [
         { "type": "sphere", "name": "a b" }, { "type": "sphere", "name": "a_b" } ])",
       "2: \"output\".file_name gives "},
      {"two kinds of one name", R"("objects": [ { "type": "scene" }, { "type": "sphere" } ],
         "output": [ { "name": "A", "vdb": true, "preview": true, "pictures": true }, { "name": "B", "meshes": "ply" } ])",
       ""},
      {"an empty stage", R"("output": [ { "usd": true } ])", "2: \"output\".usd asks for a stage that would be empty"},
      {"a stage of particles in its own format", R"("objects": [ { "type": "scene",
         "children": [ { "type": "particlegroup" } ] } ],
         "output": [ { "usd": true, "particles": true, "particle_format": "usda", "meshes": "usda" } ])",
       ""},
      {"one stem", kCaches + R"(
         "stem": "a" } ] } ])",
       "6: \"server/B\".stem is \"a\": its files can't be told from those of \"server/A\""},
      {"a stem with a number", kCaches + R"( "stem": "a1" } ] } ])", "5: \"server/B\".stem is \"a1\""},
      {"stems", kCaches + R"( "stem": "ab" } ] } ])", ""},
  };
}
INSTANTIATE_TEST_SUITE_P(All, SceneCheck, testing::ValuesIn(Cases()), [](const auto& each) {
  std::string name = each.param.what;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
  return name;
});

}  // namespace
}  // namespace orlix
