#include "run/SceneCheck.h"

#include <gtest/gtest.h>

#include "run/Engine.h"
#include "scene_file/SceneReader.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

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
