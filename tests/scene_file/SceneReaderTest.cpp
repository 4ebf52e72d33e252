#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <map>
#include <regex>
#include <set>

#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"
#include "host/objects/Presets.h"
#include "run/Engine.h"
#include "scene_file/ParameterText.h"
#include "scene_file/SceneReader.h"
#include "scene_file/SceneWriter.h"
#include "scene_file/TypeReference.h"
#include "scene_file/ValueReader.h"
#include "tests/scene_file/RandomValues.h"

namespace orlix {
namespace {

// A registry with one type of each role, and a parameter of each type, for tests of the scene reader.

constexpr Choice kShapes[] = {{0, "soft", "Soft edge"}, {1, "hard", "Hard edge"}, {7, "none", "No edge"}};
constexpr SplineKnot kRamp[] = {{0, 0, KnotInterpolation::Linear, {}, {}}, {1, 1, KnotInterpolation::Linear, {}, {}}};
constexpr GradientKnot kFire[] = {{0, {0, 0, 0}}, {1, {1, 0.5, 0}}};

constexpr Parameter kScene[] = {
    FloatParameter(1002, "cell_size", 0.2, "m", "Cell edge").Above(0),
    IntParameter(1005, "substeps", 2, "", "Sub-steps").Between(0, 254),
    VectorParameter(1012, "gravity", {0, -9.81, 0}, "m/s2", "Gravity"),
};
constexpr Parameter kFluid[] = {
    VectorParameter(1001, "container", {1, 1, 1}, "m", "Edges of the box").Above(0),
    ListParameter(1002, "forces", kLinkForce, "Forces that act"),
    FloatParameter(1003, "accuracy", 0.1, "", "Of the pressure").Between(0, 1),
    BoolParameter(1004, "closed", false, "Walls all round"),
};
constexpr Parameter kForce[] = {
    LinkParameter(1001, "density", kLinkChannel, "What rises"),
    FloatParameter(1002, "strength", 1, "m/s2", "How strongly"),
    ChoiceParameter(1003, "shape", 0, kShapes, "Falloff"),
    SplineParameter(1004, "falloff", kRamp, "Over the distance"),
    GradientParameter(1005, "tint", kFire, "Over the age"),
    IntParameter(1006, "seed", 5, "", "Of the noise"),
    StringParameter(1007, "note", "", "A remark"),
    VectorParameter(1008, "axis", {0, 1, 0}, "", "Direction"),
    ButtonParameter(1009, "add", "Adds one"),
    BoolParameter(1010, "active", true, "Acts at all"),
    ScriptParameter(1011, "script", "main(op) { return 1; }", "A formula"),
};
constexpr Parameter kMesh[] = {FileParameter(1001, "file", "OBJ file")};
constexpr Parameter kLight[] = {FloatParameter(1001, "intensity", 1, "", "Factor").Min(0)};

constexpr TypeInfo MakeType(int id, const char* resource, TypeRole role, std::uint32_t kinds,
                            std::span<const Parameter> rows = {}, std::span<const Parameter> common = {}) {
  return {.id = id,
          .resource = resource,
          .text = "A type.",
          .role = role,
          .kinds = kinds,
          .parameters = rows,
          .common = common};
}

const TypeInfo kTypes[] = {
    MakeType(1300000, "zq_scene", TypeRole::Root, kLinkRoot, kScene),
    MakeType(1300002, "zq_fluid", TypeRole::Node, kLinkSolver, kFluid),
    MakeType(1300027, "zq_channel_scalar", TypeRole::Node, kLinkChannel),
    MakeType(1300015, "zq_force_buoyancy", TypeRole::Node, kLinkForce, kForce),
    MakeType(900, "mesh", TypeRole::Object, kLinkGeometry | kLinkHostObject, kMesh, TransformParameters()),
    MakeType(901, "c4d_obstacle", TypeRole::Tag, kLinkTag),
    MakeType(902, "light", TypeRole::Light, kLinkLight, kLight),
    MakeType(903, "camera", TypeRole::Camera, kLinkCamera),
};

const TypeRegistry& Types() {
  static const TypeRegistry registry = [] {
    TypeRegistry types;
    for (const TypeInfo& type : kTypes) types.Add(type);
    return types;
  }();
  return registry;
}

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
  return ReadSceneText("s.json", text, Types(), options);
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

// A script's text, however it is written, and where each byte of it stands.
TEST(SceneReader, AScriptStandsInAStringInLinesOrInAFile) {
  struct Form {
    const char* value;
    const char* text;
    std::int64_t offset;  // of a byte of the text
    const char* place;
  };
  const Form forms[] = {
      {R"j("one \"two\" three")j", "one \"two\" three", 11, "s.json:2:53"},
      {R"j("a\nb\u00e4\ud83d\ude00c")j",
       "a\nb\xc3\xa4\xf0\x9f\x98\x80"
       "c",
       9, "s.json:2:62"},
      {R"j(["main()", "{ \"x\" }"])j", "main()\n{ \"x\" }", 11, "s.json:2:56"},
      {"[\"main()\",\n\"{\", \"}\"]", "main()\n{\n}", 9, "s.json:3:7"},
      {R"j({"file": "wind.txt"})j", "// \xc3\xa4\nmain()\n", 8, "wind.txt:2:3"},
      {"[]", "", 0, "s.json:2:29"},
  };
  for (const Form& form : forms) {
    const std::string force = R"({ "type": "force_buoyancy", "script": )" + std::string(form.value) + " }";
    const auto scene = Read(SceneWith(force), {}, {{"wind.txt", "// \xc3\xa4\nmain()\n"}});
    ASSERT_TRUE(scene.ok()) << form.value << MistakesOf(scene);
    const BaseObject& object = *scene->document->ObjectsOfType(1300015).at(0);
    EXPECT_EQ(object.GetString(1011), form.text) << form.value;
    Mistakes mistakes;
    const auto place = scene->places.FindInText(object.creationNumber(), 1011, form.offset);
    ASSERT_TRUE(place);
    mistakes.Add(*place, "here");
    EXPECT_EQ(mistakes.Text(), std::string(form.place) + ": here") << form.value;
    // What is written holds the text itself.
    const auto written = WriteScene(*scene->document);
    ASSERT_TRUE(written.ok());
    const auto again = Read(*written);
    ASSERT_TRUE(again.ok()) << *written;
    EXPECT_EQ(again->document->ObjectsOfType(1300015).at(0)->GetString(1011), form.text) << *written;
  }
  const auto set = Read(SceneWith(R"({ "type": "force_buoyancy", "name": "L" })"), {"L.script=main() { return 2; }"});
  ASSERT_TRUE(set.ok()) << MistakesOf(set);
  EXPECT_EQ(set->document->ObjectsOfType(1300015).at(0)->GetString(1011), "main() { return 2; }");
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
    {"ScriptOfNumbers", R"({ "type": "force_buoyancy", "name": "L", "script": ["a", 3] })",
     R"(s.json:2:58: "P/L".script is 3, must be a line of the script in quotes)"},
    {"ScriptInNoFile", R"({ "type": "force_buoyancy", "name": "L", "script": {"file": "w.txt"} })",
     R"(s.json:2:61: "P/L".script is in a file: w.txt: can't be opened)"},
    {"MisspeltType", R"({ "type": "fliud" })", R"(s.json:2:11: there is no type "fliud", did you mean "fluid"?)"},
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
    {"SoSmallThatItIsZero", R"({ "type": "fluid", "container": [1, 1e-320, 1] })",
     R"(s.json:2:33: "P/fluid".container is [1, 1e-320, 1], must be above 0 in each component)"},
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
      {"{ \"orlix\": 1, \"objects\": [ { \"type\": \"scene\", \"substeps\": -2147483649 } ] }", "must be 0 to 254"},
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

// Every type that the program knows, from its table.

const Engine& TheEngine() {
  static const Engine engine;
  return engine;
}

template <class F>
void ForEachRow(F&& f) {
  int rows = 0;
  for (const auto& entry : TheEngine().types.types()) {
    const TypeInfo& type = *entry.second;
    type.ForEachParameter([&](const Parameter& row) {
      SCOPED_TRACE(std::string(type.ShortName()) + "." + row.key);
      f(type, row);
      ++rows;
    });
  }
  EXPECT_GT(rows, 100);
}

TEST(RegisteredTypes, EveryTypeIsNamedAndDescribed) {
  std::set<std::string_view> names;
  for (const auto& [id, type] : TheEngine().types.types()) {
    SCOPED_TRACE(type->resource);
    EXPECT_EQ(id, type->id);
    EXPECT_TRUE(std::regex_match(type->resource, std::regex("[a-z][a-z0-9_]*")));
    EXPECT_TRUE(names.insert(type->ShortName()).second);
    EXPECT_STRNE(type->label, "");
    EXPECT_TRUE(std::string(type->text).ends_with('.')) << type->text;
    EXPECT_NE(type->kinds, 0u);
    EXPECT_EQ(TheEngine().types.FindName(type->resource), type);
    EXPECT_EQ(TheEngine().types.FindName(std::to_string(id)), type);
  }
  EXPECT_GE(names.size(), 10u);
}

TEST(RegisteredTypes, EveryRowHasATextAndAKeyOfItsOwn) {
  const std::regex snake("[a-z][a-z0-9]*(_[a-z0-9]+)*");
  const std::set<std::string> reserved = {"type", "name", "children", "tags"};
  std::map<const TypeInfo*, std::set<int>> ids;
  std::map<const TypeInfo*, std::set<std::string>> keys;
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    EXPECT_STRNE(row.text, "");
    EXPECT_EQ(std::string(row.text).find('\n'), std::string::npos);
    EXPECT_TRUE(std::regex_match(row.key, snake));
    EXPECT_FALSE(reserved.contains(row.key)) << "a key of the scene file itself";
    EXPECT_TRUE(keys[&type].insert(row.key).second) << "a key twice";
    EXPECT_TRUE(ids[&type].insert(row.id).second) << "an id twice";
    EXPECT_NE(row.unit, nullptr);
  });
}

TEST(RegisteredTypes, DefaultsLieInTheirRange) {
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    if (row.type == ParameterType::Bool || row.type == ParameterType::Int || row.type == ParameterType::Float) {
      EXPECT_TRUE(InRange(row, row.number)) << row.number;
    }
    if (row.type == ParameterType::Vector) {
      for (int axis = 0; axis < 3; ++axis) EXPECT_TRUE(InRange(row, row.vector[axis]));
    }
    if (row.type == ParameterType::Choice && !row.choices.empty()) {
      int fitting = 0;
      std::set<std::string> keys;
      for (const Choice& choice : row.choices) {
        fitting += static_cast<double>(choice.value) == row.number;
        EXPECT_TRUE(keys.insert(choice.key).second) << choice.key;
        EXPECT_STRNE(choice.text, "");
      }
      EXPECT_EQ(fitting, 1);
    }
    for (int i = 0; i < row.shownCount; ++i) {
      EXPECT_TRUE(type.Find(row.shownWhen[static_cast<std::size_t>(i)].id)) << "shown by a parameter that isn't there";
    }
  });
}

// An object of each type somewhere in the tree. Names repeat in other branches, so that links need paths.
std::vector<BaseObject*> OneOfEach(BaseDocument& document, test::RandomValues& random) {
  const TypeRegistry& types = TheEngine().types;
  std::vector<BaseObject*> nodes = {&document.AddObject(*types.FindName("scene"))}, others;
  // A scene file has a section for each of the later roles, in their order.
  std::vector<const TypeInfo*> inOrder;
  for (const auto& [id, type] : types.types()) inOrder.push_back(type);
  std::stable_sort(inOrder.begin(), inOrder.end(), [](const auto* a, const auto* b) { return a->role < b->role; });
  for (const TypeInfo* type : inOrder) {
    if (type->role == TypeRole::Root) continue;
    BaseObject& parent = *nodes[static_cast<std::size_t>(random.Int(0, static_cast<int>(nodes.size()) - 1))];
    if (type->role != TypeRole::Node) {
      others.push_back(type->role == TypeRole::Tag ? &document.AddTag(*type, parent) : &document.AddObject(*type));
      continue;
    }
    nodes.push_back(&document.AddObject(*type, &parent));
    nodes.back()->name = "n" + std::to_string(parent.children().size());
  }
  nodes.insert(nodes.end(), others.begin(), others.end());
  return nodes;
}

KeyTrack RandomTrack(const BaseObject& object, const Parameter& row, test::RandomValues& random) {
  KeyTrack track{object.creationNumber(), row.id, {}};
  const int keys = random.Int(1, 4);
  for (int axis = 0; axis < (row.type == ParameterType::Vector ? 3 : 1); ++axis) {
    std::vector<SplineKnot> knots;
    for (int k = 0; k < keys; ++k) {
      const Value value = random.Of(row, object.document());
      const double y = row.type == ParameterType::Vector ? AsVector(value, {})[axis] : AsDouble(value, 0);
      knots.push_back({k * 2.5, y, KnotInterpolation::Cubic, {}, {}});
    }
    track.components.emplace_back(knots);
  }
  return track;
}

TEST(RegisteredTypes, WriteReadWriteIsEqual) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    test::RandomValues random(seed);
    BaseDocument document(TheEngine().types);
    for (BaseObject* object : OneOfEach(document, random)) {
      const auto* presets = dynamic_cast<const Presets*>(object->data());
      object->type().ForEachParameter([&](const Parameter& row) {
        if (presets && presets->PresetRow() == row.id) return;  // never stays set
        if (row.HoldsValue() && random.Int(0, 3) > 0) object->Set(row.id, random.Of(row, document));
        if (CanHaveKeys(row.type) && random.Int(0, 3) == 0) document.AddTrack(RandomTrack(*object, row, random));
      });
    }
    const auto text = WriteScene(document);
    ASSERT_TRUE(text.ok()) << text.error().text;
    const auto scene = ReadSceneText("s.json", *text, TheEngine().types);
    ASSERT_TRUE(scene.ok()) << scene.error().text;
    EXPECT_GT(test::ExpectSameObjects(document, *scene->document), 100);
    EXPECT_GT(document.tracks().size(), 100u);
    EXPECT_EQ(document.tracks().size(), scene->document->tracks().size());
    EXPECT_EQ(*WriteScene(*scene->document), *text);
  }
}

TEST(RegisteredTypes, TheReferenceHoldsEveryRowThatActs) {
  const auto pages = MarkdownPages(TheEngine().types);
  EXPECT_EQ(pages.size(), TheEngine().types.types().size() + 1);
  EXPECT_EQ(pages, MarkdownPages(TheEngine().types));
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    const std::string name(WrittenName(type));
    const std::string page = pages.at(name + ".md"), line = "| " + std::to_string(row.id) + " | `" + row.key + "` |";
    EXPECT_EQ(page.find(line) != std::string::npos, row.HoldsValue() && !row.unread) << name << " " << row.key;
    EXPECT_NE(pages.at("index.md").find("(" + name + ".md)"), std::string::npos);
    EXPECT_NE(TypeTable(type, true).find(row.text), std::string::npos);
  });
  const std::string found = RowsWith(TheEngine().types, "VISCOSITY");
  for (const char* where : {"liquid_viscous", "property_viscosity"})
    EXPECT_NE(found.find(where), std::string::npos) << found;
  EXPECT_EQ(found.find("flip_ratio"), std::string::npos);
  EXPECT_EQ(RowsWith(TheEngine().types, "no such word"), "");
}

TEST(RegisteredTypes, TheSchemaHoldsEveryRow) {
  const auto schema = nlohmann::json::parse(SceneSchema(TheEngine().types));
  const auto data = nlohmann::json::parse(TypesAsJson(TheEngine().types, nullptr));
  EXPECT_EQ(data.size(), TheEngine().types.types().size());
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    if (!row.HoldsValue()) return;
    const auto& properties = schema.at("$defs").at(std::string(WrittenName(type))).at("properties");
    EXPECT_TRUE(properties.contains(row.key));
  });
}

// --- scene writer ---------------------------------------------------------------------------------------------------

TEST(SceneWriter, AValueThatIsNoNumberIsNamed) {
  BaseDocument document(Types());
  document.AddObject(*Types().FindName("scene")).Set(1002, std::nan(""));
  const auto text = WriteScene(document);
  ASSERT_FALSE(text.ok());
  EXPECT_NE(text.error().text.find("/objects/0/cell_size"), std::string::npos) << text.error().text;
}

}  // namespace
}  // namespace orlix
