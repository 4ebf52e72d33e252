#include "scene_file/SceneReader.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/scene_file/TestTypes.h"

namespace orlix {
namespace {

// Reads s.json from memory, with other files beside it.
Result<SceneFile> Read(const std::string& text, std::vector<std::string> overrides = {},
                       std::map<std::string, std::string> files = {}) {
  SceneReadOptions options;
  options.overrides = std::move(overrides);
  options.load = [files](const std::string& path) -> Result<std::string> {
    const auto found = files.find(path);
    if (found == files.end()) return Error{ErrorKind::InputFile, path + ": can't be opened"};
    return found->second;
  };
  return ReadSceneText("s.json", text, test::Types(), options);
}

std::string MistakesOf(const Result<SceneFile>& scene) { return scene.ok() ? "" : scene.error().text; }

// A scene whose root holds these children.
std::string SceneWith(const std::string& children) {
  return "{ \"orlix\": 1, \"objects\": [ { \"type\": \"scene\", \"name\": \"P\", \"children\": [\n" + children +
         "\n] } ] }";
}

constexpr const char* kPlume = R"({
  // a comment, and trailing commas
  "orlix": 1, "fps": 24, "frames": [5, 120], "up": "y",
  "objects": [
    { "type": "mesh", "name": "rabbit", "file": "rabbit.obj", "scale": 20, "position": [1, 2, 3] },
    { "type": 1300000, "name": "Plume", "1002 cell_size": 0.05, "children": [
      { "type": "zq_fluid", "name": "Air", "container": [4, 8, 4], "closed": true,
        "forces": ["Lift", {"object": "P2/Lift2", "flags": 6}] },
      { "type": "channel_scalar", "name": "smoke", "tags": [ { "type": "c4d_obstacle" }, ] },
      { "type": "force_buoyancy", "name": "Lift", "density": "Plume/smoke", "shape": "none", "1002": 0.4,
        "strength@": { "keys": [[0, 0.0], [24, 0.4, "linear"]] },
        "falloff": [[0, 1], [0.5, 2, "step"], {"x": 1, "y": 3, "interpolation": "cubic", "left": [-0.1, 0]}],
        "tint": [[0, [1, 0, 0]], [1, [0, 0, 1], "step"]] },
      { "type": "mesh", "name": "P2", "children": [ { "type": "force_buoyancy", "name": "Lift2" } ] },
    ] }
  ],
  "lights": [ { "intensity": 3 } ], "camera": {},
})";

TEST(SceneReader, EverySectionAndValueArrives) {
  const auto scene = Read(kPlume);
  ASSERT_TRUE(scene.ok()) << MistakesOf(scene);
  BaseDocument& document = *scene->document;
  EXPECT_EQ(document.fps, 24);
  EXPECT_EQ(document.minTime.Frame(24), 5);
  EXPECT_EQ(document.maxTime.Frame(24), 120);
  BaseObject* rabbit = document.FindByPath("rabbit");
  ASSERT_TRUE(rabbit);
  EXPECT_EQ(rabbit->GetVector(kScaleId), Vec3D(20, 20, 20));
  EXPECT_EQ(rabbit->GetVector(kPositionId), Vec3D(1, 2, 3));
  EXPECT_EQ(rabbit->GetString(1001), "rabbit.obj");
  BaseObject *air = document.FindByPath("Air"), *lift = document.FindByPath("Lift"),
             *smoke = document.FindByPath("smoke");
  ASSERT_TRUE(air && lift && smoke);
  EXPECT_EQ(air->parent()->GetDouble(1002), 0.05);
  EXPECT_TRUE(air->GetBool(1004));
  const InExcludeData* forces = air->GetInExclude(1002);
  ASSERT_TRUE(forces && forces->entries.size() == 2);
  EXPECT_EQ(forces->entries[0], (InExcludeData::Entry{lift->creationNumber(), 1}));
  EXPECT_EQ(document.FindObject(forces->entries[1].target)->name, "Lift2");
  EXPECT_EQ(forces->entries[1].flags, 6u);
  EXPECT_EQ(lift->GetLink(1001), smoke);
  EXPECT_EQ(lift->GetInt(1003), 7);
  EXPECT_EQ(lift->GetDouble(1002), 0.4);
  ASSERT_EQ(smoke->tags().size(), 1u);
  ASSERT_EQ(lift->GetSpline(1004)->knots().size(), 3u);
  EXPECT_EQ(lift->GetSpline(1004)->knots()[1].interpolation, KnotInterpolation::Step);
  EXPECT_EQ(lift->GetSpline(1004)->knots()[2].left, (Vec2D{-0.1, 0}));
  EXPECT_EQ(lift->GetGradient(1005)->ColourAt(1), Vec3D(0, 0, 1));
  ASSERT_EQ(document.tracks().size(), 1u);
  EXPECT_TRUE(document.SetTime(BaseTime::OfFrame(12, 24)).ok());
  EXPECT_DOUBLE_EQ(lift->GetDouble(1002), 0.2);
  EXPECT_EQ(document.ObjectsOfType(902).size() + document.ObjectsOfType(903).size(), 2u);
}

struct MistakeCase {
  const char* claim;
  const char* children;  // in the second line of the file
  const char* message;
};

class SceneMistake : public testing::TestWithParam<MistakeCase> {};

TEST_P(SceneMistake, HasPlaceAndReason) {
  const auto scene = Read(SceneWith(GetParam().children));
  ASSERT_FALSE(scene.ok());
  EXPECT_EQ(scene.error().kind, ErrorKind::Scene);
  EXPECT_EQ(scene.error().text, GetParam().message);
}

const MistakeCase kMistakes[] = {
    {"MisspeltType", R"({ "type": "fliud" })", R"(s.json:2:11: there is no type "fliud", did you mean "fluid"?)"},
    {"PlannedType", R"({ "type": "fluid_liquid" })",
     R"(s.json:2:11: the type "fluid_liquid" is known but not built yet)"},
    {"NoType", R"({ "name": "a" })", R"(s.json:2:1: the object has no "type")"},
    {"TypeOfAnotherSection", R"({ "type": "c4d_obstacle" })",
     R"(s.json:2:11: the type "c4d_obstacle" is for tag, it can't stand in objects)"},
    {"MisspeltKey", R"({ "type": "fluid", "acuracy": 1 })",
     R"(s.json:2:20: "P/fluid": fluid has no parameter "acuracy", did you mean "accuracy"?)"},
    {"WrongValueType", R"({ "type": "fluid", "name": "Air", "accuracy": "high" })",
     R"(s.json:2:47: "P/Air".accuracy is "high", must be a number, 0 to 1)"},
    {"FractionForWhole", R"({ "type": "force_buoyancy", "seed": 1.5 })",
     R"(s.json:2:37: "P/force_buoyancy".seed is 1.5, must be a whole number)"},
    {"IntegerOverflow", R"({ "type": "force_buoyancy", "seed": 99999999999 })",
     R"(s.json:2:37: "P/force_buoyancy".seed is 99999999999, must be within -2147483648 to 2147483647)"},
    {"FloatBeyondSinglePrecision", R"({ "type": "force_buoyancy", "strength": 1e300 })",
     R"(s.json:2:41: "P/force_buoyancy".strength is 1e+300, must be within -3.4028234663852886e+38 to 3.4028234663852886e+38)"},
    {"NumberOverflow", R"({ "type": "force_buoyancy", "strength": 1e999 })",
     R"(s.json:2:41: no JSON: number overflow parsing '1e999')"},
    {"OutOfRange", R"({ "type": "fluid", "name": "Air", "accuracy": 3 })",
     R"(s.json:2:47: "P/Air".accuracy is 3, must be 0 to 1)"},
    {"ComponentOutOfRange", R"({ "type": "fluid", "container": [1, 0, 1] })",
     R"(s.json:2:33: "P/fluid".container is [1, 0, 1], must be above 0 in each component)"},
    {"UnknownChoice", R"({ "type": "force_buoyancy", "shape": "hart" })",
     R"(s.json:2:38: "P/force_buoyancy".shape is "hart", must be "soft", "hard" or "none" (or the number: 0, 1, 7), did you mean "hard"?)"},
    {"ButtonWithValue", R"({ "type": "force_buoyancy", "add": 1 })",
     R"(s.json:2:36: "P/force_buoyancy".add is a button and holds no value)"},
    {"LinkToNothing",
     R"({ "type": "channel_scalar", "name": "smoke" }, { "type": "force_buoyancy", "density": "smok" })",
     R"(s.json:2:87: "P/force_buoyancy".density is "smok", no object has this name, did you mean "smoke"?)"},
    {"LinkToWrongKind", R"({ "type": "fluid", "name": "Air" }, { "type": "force_buoyancy", "density": "Air" })",
     R"(s.json:2:76: "P/force_buoyancy".density is "Air", of type fluid (a solver), must be a channel)"},
    {"AmbiguousLink",
     R"({ "type": "mesh", "name": "a", "children": [ { "type": "channel_scalar", "name": "s" } ] },
        { "type": "channel_scalar", "name": "s" }, { "type": "force_buoyancy", "density": "s" })",
     R"(s.json:3:91: "P/force_buoyancy".density is "s", a name that 2 objects have; write a path: "a/s", "P/s")"},
    {"TwinSiblings", R"({ "type": "fluid", "name": "Air" }, { "type": "fluid", "name": "Air" })",
     R"(s.json:2:64: the name "Air" stands twice beneath "P", first in s.json:2; no path could tell them apart)"},
    {"ListWithTwins", R"({ "type": "force_buoyancy", "name": "L" }, { "type": "fluid", "forces": ["L", "P/L"] })",
     R"(s.json:2:79: "P/fluid".forces names "P/L" twice)"},
    {"IdAndKeyDisagree", R"({ "type": "force_buoyancy", "1002 seed": 1 })",
     R"(s.json:2:29: "P/force_buoyancy": "1002 seed" disagree: 1002 is "strength", "seed" is 1006)"},
    {"TwoSpellings", R"({ "type": "force_buoyancy", "seed": 1, "1006": 2 })",
     R"(s.json:2:40: "P/force_buoyancy".seed is set twice, as "seed" and as "1006")"},
    {"KeyTwice", R"({ "type": "force_buoyancy", "seed": 1, "seed": 2 })",
     R"(s.json:2:40: the key "seed" stands twice, first in line 2)"},
    {"KeysOfAText", R"({ "type": "force_buoyancy", "note@": { "keys": [[0, "a"]] } })",
     R"(s.json:2:38: "P/force_buoyancy".note@ is a string, which can't have keyframes)"},
    {"TwoKeysAtOneFrame", R"({ "type": "force_buoyancy", "seed@": { "keys": [[0, 1], [0, 2]] } })",
     R"(s.json:2:48: "P/force_buoyancy".seed@ has two keys at frame 0)"},
    {"KeyOutOfRange", R"({ "type": "fluid", "accuracy@": { "keys": [[0, 1], [3, 2]] } })",
     R"(s.json:2:56: "P/fluid".accuracy@ is 2, must be 0 to 1)"},
    {"GradientOutside", R"({ "type": "force_buoyancy", "tint": [[1.5, [0, 0, 0]]] })",
     R"(s.json:2:39: "P/force_buoyancy".tint is 1.5, must be 0 to 1)"},
    {"SlashInName", R"({ "type": "fluid", "name": "a/b" })",
     R"(s.json:2:28: name is "a/b", must be a text of 1 to 200 bytes without "/")"},
    {"NotANumber", R"({ "type": "fluid", "accuracy": NaN })", R"(s.json:2:32: no JSON: value - invalid literal "NaN")"},
};
INSTANTIATE_TEST_SUITE_P(All, SceneMistake, testing::ValuesIn(kMistakes),
                         [](const auto& mistake) { return std::string(mistake.param.claim); });

TEST(SceneReader, AllMistakesComeInOnePass) {
  const auto scene = Read(SceneWith(R"({ "type": "fliud", "children": [ { "type": "fluid", "accuracy": 2 } ] },
    { "type": "force_buoyancy", "density": "nothing", "seeds": 3 })"));
  const std::string text = MistakesOf(scene);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
  EXPECT_LT(text.find("fliud"), text.find("accuracy"));
  EXPECT_LT(text.find("nothing"), text.find("seeds"));
}

TEST(SceneReader, ManyMistakesAreCounted) {
  std::string children = R"({ "type": "fluid")";
  for (int i = 0; i < 150; ++i) children += ", \"bad_key_" + std::to_string(i) + "\": 1";
  const std::string text = MistakesOf(Read(SceneWith(children + " }")));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100);
  EXPECT_NE(text.find("\nand 50 more"), std::string::npos) << text;
}

TEST(SceneReader, BrokenTextsHaveAPlace) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "s.json:1:1: the text is empty"},
      {" \n // only a comment\n", "s.json:1:1: the text is empty"},
      {"[]", "s.json:1:1: a scene file is an object"},
      {"{}", "s.json:1:1: \"orlix\" is missing"},
      {"{ \"orlix\": 2 }", "s.json:1:12: orlix is 2"},
      {"{ \"orlix\": 1,\n \"fps\": 23.976 }", "s.json:2:9: fps is 23.976, must be a whole number, 1 to 1000"},
      {"{ \"orlix\": 1, \"frames\": [9, 3] }", "s.json:1:25: frames is [9, 3], must be"},
      {"{ \"orlix\": 1, \"object\": [] }", "s.json:1:15: a scene file has no \"object\", did you mean \"objects\"?"},
      {"{ \"orlix\": 1,\n  \"objects\": \"\xFF\" }", "s.json:2:15: the byte 0xFF is no UTF-8"},
      {"{ \"orlix\": 1, \"\xC3\xA9\": 1 }", "s.json:1:15: a scene file has no"},
      {"{ \"\xC3\xA9\": 1, \"orlix\": 3 }", "s.json:1:20: orlix is 3"},
      {"{ \"orlix\": 1, /* open", "s.json:1:15: this comment has no end"},
      {"{ \"orlix\": 1, \"objects\": [ \"x ] }", "s.json:1:28: this string has no closing quote"},
      {"{ \"orlix\": 1 } {", "s.json:1:16: no JSON: value - unexpected '{'; expected end of input"},
      {"{ \"orlix\": 1 \"fps\" }", "s.json:1:14: no JSON: object - unexpected string literal; expected '}'"},
      {"{ \"orlix\": \"\\q\" }", "s.json:1:14: no JSON: value - invalid string: forbidden character after backslash"},
      {"{ \"orlix\": 1, ", "no JSON: object"},
      {"{ \"orlix\": 1, , }", "no JSON"},
      {std::string(10000, '['), "s.json:1:129: nested deeper than 128"},
  };
  for (const auto& [text, message] : cases) {
    const auto scene = Read(text);
    ASSERT_FALSE(scene.ok()) << text.substr(0, 60);
    EXPECT_EQ(scene.error().kind, ErrorKind::Scene);
    EXPECT_NE(scene.error().text.find(message), std::string::npos) << scene.error().text << "\nwanted: " << message;
  }
}

TEST(SceneReader, LargeTextsAreRefused) {
  EXPECT_NE(MistakesOf(Read(std::string(kMaxSceneBytes + 1, ' '))).find("at most 67108864 are read"),
            std::string::npos);
  std::string values = "{ \"orlix\": 1, \"x\": [0";
  for (int i = 0; i < 1000000; ++i) values += ",0";
  EXPECT_NE(MistakesOf(Read(values + "] }")).find("more than 1000000 values"), std::string::npos);
}

TEST(SceneReader, IncludesAddObjectsAndMovePaths) {
  const auto scene = Read(R"({ "orlix": 1, "include": ["sub/a.json", "sub/b.json"], "objects": [] })", {},
                          {{"sub/a.json", R"({ "orlix": 1, "fps": 25, "include": "c.json",
                                               "objects": [ { "type": "mesh", "name": "m", "file": "m.obj" } ] })"},
                           {"sub/b.json", R"({ "orlix": 1, "include": "c.json" })"},
                           {"sub/c.json", R"({ "orlix": 1, "objects": [ { "type": "mesh", "name": "n" } ] })"}});
  ASSERT_TRUE(scene.ok()) << MistakesOf(scene);
  EXPECT_EQ(scene->document->objects().size(), 2u);  // c.json counts once
  EXPECT_EQ(scene->document->FindByPath("m")->GetString(1001), "sub/m.obj");
  EXPECT_EQ(scene->document->fps, 25);
  EXPECT_EQ(scene->files, (std::vector<std::string>{"s.json", "sub/a.json", "sub/c.json", "sub/b.json"}));
}

TEST(SceneReader, CyclesAndMissingIncludesAreMistakes) {
  const auto cycle = Read(R"({ "orlix": 1, "include": ["a.json"] })", {},
                          {{"a.json", "{ \"orlix\": 1,\n \"include\": [\"s.json\"] }"}});
  EXPECT_EQ(MistakesOf(cycle), "a.json:2:14: a cycle of includes: s.json includes a.json includes s.json");
  EXPECT_EQ(MistakesOf(Read(R"({ "orlix": 1, "include": ["no.json"] })")),
            "s.json:1:27: include: no.json: can't be opened");
}

TEST(SceneReader, OverridesFollowTheSameRules) {
  const auto scene = Read(kPlume, {"Plume.cell_size=0.5", "Lift.density=smoke", "Lift.note=3", "Lift.shape=hard",
                                   "Air.container=[1,2,3]", "Lift.strength=9", "/rabbit.1001=a=b.obj"});
  ASSERT_TRUE(scene.ok()) << MistakesOf(scene);
  BaseDocument& document = *scene->document;
  EXPECT_EQ(document.FindByPath("Plume")->GetDouble(1002), 0.5);
  EXPECT_EQ(document.FindByPath("Air")->GetVector(1001), Vec3D(1, 2, 3));
  EXPECT_EQ(document.FindByPath("rabbit")->GetString(1001), "a=b.obj");
  BaseObject* lift = document.FindByPath("Lift");
  EXPECT_EQ(lift->GetString(1007), "3");
  EXPECT_EQ(lift->GetInt(1003), 1);
  EXPECT_TRUE(document.SetTime(BaseTime::OfFrame(24, 24)).ok());
  EXPECT_EQ(lift->GetDouble(1002), 9);  // the file's keyframes give way
  EXPECT_EQ(MistakesOf(Read(kPlume, {"Plume.cell_size=-3", "Plum.cell_size=1", "Lift.density=Air"})),
            "--set: \"Plume\".cell_size is -3, must be above 0\n"
            "--set: no object is called \"Plum\", did you mean \"Plume\"?\n"
            "--set: \"Plume/Lift\".density is \"Air\", of type fluid (a solver), must be a channel");
  for (const char* malformed : {"", "Plume", "Plume.cell_size", "=3", ".a=3", "Plume.=3"}) {
    const auto bad = Read(kPlume, {malformed});
    ASSERT_FALSE(bad.ok()) << malformed;
    EXPECT_EQ(bad.error().kind, ErrorKind::Usage);
  }
}

TEST(SceneReader, UnnamedSiblingsGetNamesOfTheirOwn) {
  const auto scene =
      Read(SceneWith(R"({ "type": "fluid" }, { "type": "fluid" }, { "type": "fluid", "name": "fluid" })"));
  ASSERT_TRUE(scene.ok()) << MistakesOf(scene);
  EXPECT_TRUE(scene->document->FindByPath("P/fluid.2"));
  EXPECT_TRUE(scene->document->FindByPath("P/fluid.3"));
}

}  // namespace
}  // namespace orlix
