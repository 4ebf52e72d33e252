// Plug-ins as a user has them: the option, the scene file, the reference, and runs that are resumed.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/support/Folders.h"
#include "tests/support/Sanitized.h"

namespace orlix {
namespace {

using test::ProgramOutcome;
using test::ProgramRunner;

std::string Library(const std::string& name) { return ProgramFolder() + "/plugins/" + name + ".so"; }

// A gas with a wind in a band of height, particles in it that are coloured, and a channel that counts sub-steps.
std::string Scene(const std::string& wind = "example_wind") {
  return R"({ "orlix": 1, "fps": 24, "frames": [0, 8], "objects": [
    { "type": "sphere", "name": "ball", "radius": 30, "position": [100, 100, 100] },
    { "type": "scene", "name": "Plume", "voxel_size": 0.2, "max_substeps": 2, "children": [
      { "type": "fluid", "name": "Air", "container": [200, 200, 200], "forces": ["Wind"] },
      { "type": "channel_scalar", "name": "count", "bounds": true },
      { "type": "volume", "name": "Source", "object": "ball", "extends_container": true },
      { "type": ")" +
         wind + R"(", "name": "Wind", "constraints": ["Band"] },
      { "type": "example_height_band", "name": "Band", "low": -1, "high": 1 },
      { "type": "test_count", "name": "Count", "target": "count", "passes": 2 },
      { "type": "particlegroup", "name": "Dust" },
      { "type": "example_speed_colour", "name": "Colour", "group": "Dust", "patience": 3 }
    ] } ] })";
}

std::vector<std::string> With(std::vector<std::string> words) {
  words.insert(words.begin(), {"--plugins", Library("example_plugin"), "--plugins", Library("test_plugin_good")});
  return words;
}

std::vector<std::string> Hashes(const std::string& statistics) {
  std::vector<std::string> hashes;
  std::istringstream in(test::ReadText(statistics));
  for (std::string line; std::getline(in, line);) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    if (json.is_object() && json.value("kind", "") == "frame") hashes.push_back(json["hash"]);
  }
  return hashes;
}

TEST(Plugins, ASceneNamesTheirTypesOnlyWhereTheyAreLoaded) {
  ProgramRunner runner;
  const std::string scene = runner.Write("wind.json", Scene());
  const ProgramOutcome without = runner.Run({"validate", scene});
  EXPECT_EQ(without.code, 3);
  EXPECT_NE(without.err.find("there is no type \"example_wind\", nor has a loaded plug-in one; --plugins loads one"),
            std::string::npos)
      << without.err;
  const ProgramOutcome with = runner.Run(With({"validate", scene}));
  EXPECT_EQ(with.code, 0) << with.err;
  const ProgramOutcome wrong = runner.Run(With({"validate", scene, "--set", "Plume/Wind.drag=-1"}));
  EXPECT_EQ(wrong.code, 3);
  EXPECT_NE(wrong.err.find("\"Plume/Wind\".drag is -1, must be"), std::string::npos) << wrong.err;
  const ProgramOutcome broken = runner.Run({"--plugins", scene, "validate", scene});
  EXPECT_EQ(broken.code, 4);
  EXPECT_NE(broken.err.find("it can't be loaded"), std::string::npos) << broken.err;
}

TEST(Plugins, TheReferenceAndTheSchemaKnowTheirTypes) {
  ProgramRunner runner;
  const ProgramOutcome rows = runner.Run(With({"params", "example_wind"}));
  EXPECT_EQ(rows.code, 0) << rows.err;
  EXPECT_NE(rows.out.find("How fast what is blown at takes the wind's speed"), std::string::npos) << rows.out;
  EXPECT_NE(rows.out.find("When the node acts"), std::string::npos) << "the common rows";
  EXPECT_NE(runner.Run(With({"params", "--schema"})).out.find("example_speed_colour"), std::string::npos);
}

TEST(Plugins, AResumedRunHasTheBitsOfOneThatNeverStopped) {
  ProgramRunner runner;
  const std::string scene = runner.Write("wind.json", Scene());
  const auto run = [&](const std::string& out, std::vector<std::string> more) {
    std::vector<std::string> words = With({"run", scene, "--out", (runner.folder / out).string(), "--stats",
                                           (runner.folder / (out + ".jsonl")).string(), "--checkpoint-every", "2"});
    words.insert(words.end(), more.begin(), more.end());
    return runner.Run(words);
  };
  const ProgramOutcome whole = run("whole", {"--threads", "1"});
  ASSERT_EQ(whole.code, 0) << whole.err;
  const auto expected = Hashes((runner.folder / "whole.jsonl").string());
  ASSERT_EQ(expected.size(), 9u);
  EXPECT_NE(expected[7], expected[8]) << "it goes on counting";
  ASSERT_EQ(run("half", {"--threads", "2", "--frames", "0-4"}).code, 0);
  const ProgramOutcome rest = run("half", {"--threads", "3", "--resume"});
  ASSERT_EQ(rest.code, 0) << rest.err;
  EXPECT_EQ(Hashes((runner.folder / "half.jsonl").string()), expected);
}

TEST(Plugins, WhatKeepsMoreThanItSavesIsntResumed) {
  ProgramRunner runner;
  const std::string scene = runner.Write("wind.json", Scene("test_forgetful")), out = (runner.folder / "out").string();
  const ProgramOutcome first =
      runner.Run(With({"run", scene, "--out", out, "--checkpoint-every", "2", "--frames", "0-4"}));
  ASSERT_EQ(first.code, 0) << first.err;
  EXPECT_NE(first.err.find("can't be resumed"), std::string::npos) << first.err;
  const ProgramOutcome rest = runner.Run(With({"run", scene, "--out", out, "--resume"}));
  EXPECT_NE(rest.code, 0);
  EXPECT_NE(rest.err.find("\"Plume/Wind\" can't go on: its plug-in \"test\" keeps what isn't saved"), std::string::npos)
      << rest.err;
}

}  // namespace
}  // namespace orlix
