// Pictures and runs from caches that play back.

#include <gtest/gtest.h>

#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/run/PlumeScene.h"

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
        runner.Run({"render", scene, "--preview", "--frames", frames, "--out", out, "--quiet"});
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
      arguments.emplace_back("--quiet");
      const ProgramOutcome outcome = recorded.runner.Run(arguments);
      EXPECT_EQ(outcome.code, 4) << outcome.err;
      EXPECT_NE(outcome.err.find(file.string()), std::string::npos) << outcome.err;
      arguments.emplace_back("--allow-missing");
      EXPECT_EQ(recorded.runner.Run(arguments).code, 0);
    }
  }
  test::WriteText(file, whole);
}

}  // namespace
}  // namespace orlix
