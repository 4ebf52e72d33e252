// The built program, as a user calls it.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <nlohmann/json.hpp>

#include <iterator>
#include <sstream>

#include "apps/orlix/CommandLine.h"
#include "apps/orlix/Recipes.h"
#include "run/Engine.h"
#include "scene_file/SceneHash.h"
#include "scene_file/SceneReader.h"
#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/run/PlumeScene.h"
#include "tests/support/Folders.h"
#include "tests/support/Sanitized.h"

namespace orlix {
namespace {

using test::PlumeScene;
using test::ProgramOutcome;
using test::ProgramRunner;

constexpr const char* kScene = R"({
  "orlix": 1, "fps": 24, "frames": [0, 10],
  "objects": [ { "type": "scene", "name": "Plume", "voxel_size": 0.1, "children": [
    { "type": "channel_scalar", "name": "smoke" } ] } ]
})";

std::vector<nlohmann::json> Lines(const std::string& text) {
  std::vector<nlohmann::json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

TEST(Program, MistakesOfASceneEndWithThreeQuickly) {
  const std::string deep = R"({ "orlix": 1, "objects": )" + std::string(10000, '[');
  std::string many = R"({ "orlix": 1, "objects": [)";
  for (int i = 0; i < 50000; ++i) many += "{ \"typ\": \"x\" },\n";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"empty.json", "", "empty.json:1:1: the text is empty"},
      {"deep.json", deep, "deep.json:1:153: nested deeper than 128"},
      {"utf.json", "{ \"orlix\": 1,\n \"objects\": \"\xFF\" }", "utf.json:2:14: the byte 0xFF is no UTF-8"},
      {"large.json", std::string(100 << 20, ' '), "large.json:1:1: the file has 104857600 bytes"},
      {"cycle.json", R"({ "orlix": 1, "include": "cycle.json" })", "cycle.json:1:26: a cycle of includes"},
      {"many.json", many + "] }", "more"},
      {"range.json", R"({ "orlix": 1, "objects": [ { "type": "scene", "name": "P", "voxel_size": -3 } ] })",
       R"(range.json:1:74: "P".voxel_size is -3, must be 1e-09 to 1000000000)"},
  };
  ProgramRunner runner;
  for (const auto& [name, text, message] : cases) {
    const ProgramOutcome outcome = runner.Run({"run", runner.Write(name, text)});
    EXPECT_EQ(outcome.code, 3) << name << "\n" << outcome.err;
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err.substr(0, 500);
    EXPECT_EQ(outcome.out, "");
    if (test::kSanitized) continue;  // their own memory and time
    EXPECT_LT(outcome.seconds, 1) << name;
    EXPECT_LT(outcome.peakKilobytes, 200 << 10) << name;
  }
}

TEST(Program, OutcomesHaveTheirExitCodes) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", kScene);
  const std::pair<int, std::vector<std::string>> cases[] = {
      {0, {"run", scene}},
      {0, {"--threads", "2", "--frames", "2-4", "--quiet", "run", "--set", "Plume.voxel_size=0.2", scene}},
      {0, {"--help"}},
      {0, {"run", "--help"}},
      {0, {"--version"}},
      {0, {"params", "1300027"}},
      {2, {}},
      {2, {"simulate", scene}},
      {2, {"run"}},
      {2, {"run", scene, "--no-such-option"}},
      {2, {"run", scene, "--frames", "3-1"}},
      {2, {"run", scene, "--frames=-5"}},
      {2, {"run", scene, "--out", ""}},
      {2, {"run", scene, "--memory", "lots"}},
      {2, {"run", scene, "--threads", "65"}},
      {2, {"run", scene, "--set", "Plume"}},
      {2, {"params", "chanel_scalar"}},
      {2, {"info", "picture.tiff"}},
      {3, {"run", scene, "--set", "Plume.voxel_size=0"}},
      {4, {"validate", (runner.folder / "none.json").string()}},
      {4, {"validate", runner.folder.path().string()}},
      {5, {"run", scene, "--stats", "/dev/full"}},
      {5, {"run", scene, "--stats", (runner.folder / "none/s.jsonl").string()}},
      {5, {"params", "--markdown", scene}},
  };
  for (const auto& [code, arguments] : cases) {
    const ProgramOutcome outcome = runner.Run(arguments);
    EXPECT_EQ(outcome.code, code) << testing::PrintToString(arguments) << "\n" << outcome.err;
    EXPECT_EQ(outcome.err.empty(),
              code == 0 && (arguments.empty() || arguments[0] != "run" || arguments[1] == "--help"));
  }
  EXPECT_EQ(runner.Run({"params"}, {}, "/dev/full").code, 5);
  const std::pair<std::vector<std::string>, const char*> slips[] = {
      {{"rendr", scene}, "rendr: did you mean render?"},
      {{"run", scene, "--frame=3"}, "--frame: did you mean --frames?"},
      {{"convert", "a", "b", "--exposur", "1"}, "--exposur: did you mean --exposure?"},
  };
  for (const auto& [arguments, hint] : slips) {
    EXPECT_NE(runner.Run(arguments).err.find(hint), std::string::npos) << hint;
  }
}

// The order in the text is that of the run: a larger priority comes later, a stage of the user's replaces the class's.
TEST(Program, PipelineShowsTheOrderThatPrioritiesAndStagesMake) {
  ProgramRunner runner;
  const auto emitters = [&](const std::vector<std::string>& settings) {
    std::vector<std::string> arguments = {"pipeline", SourceFolder() + "/scenes/dam_break.json", "--json"};
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    const auto json = nlohmann::json::parse(runner.Run(arguments).out);
    std::vector<std::string> names;
    for (const auto& stage : json["scenes"][0]["stages"]) {
      if (stage["stage"] != 5) continue;
      for (const auto& node : stage["nodes"]) names.push_back(node["node"]);
    }
    return names;
  };
  using Names = std::vector<std::string>;
  EXPECT_EQ(emitters({}), (Names{"Dam/Fill", "Dam/Tank"}));
  EXPECT_EQ(emitters({"--set", "Dam/Fill.priority=26"}), (Names{"Dam/Tank", "Dam/Fill"}));
  EXPECT_EQ(emitters({"--set", "Dam/Fill.stage=13"}), (Names{"Dam/Tank"}));
}

// What is off is checked, left out, and another scene to checkpoints; a list of it is not the empty one that means all.
TEST(Program, AnObjectIsSwitchedOffByItsFileOrFromTheCommandLine) {
  ProgramRunner runner;
  const std::string forces =
      R"({ "orlix": 1, "frames": [0, 2], "objects": [{ "type": "scene", "name": "S", "children": [
      { "type": "liquid", "name": "Tank", "forces": ["Fall"] },
      { "type": "force_gravity", "name": "Fall" OFF }, { "type": "force_gravity", "name": "Other" } ] }] })";
  const auto with = [&](const std::string& text) {
    std::string scene = forces;
    return runner.Write("s.json", scene.replace(scene.find("OFF"), 3, text));
  };
  const auto off = [&](const std::string& scene, const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"validate", scene, "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return nlohmann::json::parse(runner.Run(arguments).out)["off"].dump();
  };
  EXPECT_EQ(off(with(R"(, "enabled": false)"), {}), R"(["S/Fall"])");
  EXPECT_EQ(off(with(R"(, "enabled": false)"), {"--set", "Fall.enabled=true"}), "[]");
  EXPECT_EQ(off(with(""), {"--set", "S.enabled=false", "--set", "Fall.enabled=false"}), R"(["S"])");
  const ProgramOutcome wrong = runner.Run({"validate", with(R"(, "enabled": false, "strenght": 1)")});
  EXPECT_EQ(wrong.code, 3);
  EXPECT_NE(wrong.err.find("strenght"), std::string::npos);
  const auto hash = [&](const std::string& name, const std::vector<std::string>& lists) {
    Engine engine;
    SceneReadOptions options;
    options.overrides = lists;
    return *HashScene(*ReadSceneFile(name, engine.types, options)->document);
  };
  const std::string scene = with("");
  EXPECT_NE(hash(scene, {"Fall.enabled=false"}), hash(scene, {}));
  EXPECT_NE(hash(scene, {"Fall.enabled=false"}), hash(scene, {"Fall.enabled=false", "Tank.forces=[]"}));
}

// Standard streams that are closed, files that must not grow, pipes for files: an exit code, never a kill or a wait.
TEST(Program, FaultsOfTheMachineHaveTheirExitCodes) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", PlumeScene({.cells = 8, .lastFrame = 1}));
  const auto shell = [&](const std::string& command) {
    const int status = std::system(fmt::format("cd {} && {}", runner.folder.path().string(), command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
  };
  const std::string orlix = ProgramFolder() + "/orlix ";
  EXPECT_EQ(shell(orlix + "run s.json >&- 2>err"), 5);
  EXPECT_EQ(test::ReadText(runner.folder / "err").find("standard output can't be written") == std::string::npos, false);
  EXPECT_EQ(shell(orlix + "run s.json --overwrite --json <&- >out 2>&-"), 0);
  EXPECT_TRUE(nlohmann::json::accept(test::ReadText(runner.folder / "out")));
  EXPECT_EQ(shell("ulimit -f 8; " + orlix + "run s.json --overwrite >out 2>err"), 5);
  EXPECT_EQ(shell("mkfifo p.json p.vdb p.obj p.cache p.exr"), 0);
  for (const char* command : {"validate p.json", "info p.vdb", "info p.obj", "info p.cache", "info p.exr",
                              "verify p.vdb", "convert p.obj o.ply", "convert p.cache o.vdb"}) {
    EXPECT_EQ(shell("timeout 5 " + orlix + command + " >out 2>err"), 4) << command;
  }
  for (const std::string& name : test::NamesIn(runner.folder.path())) {
    EXPECT_FALSE(name.ends_with(".part") || name == ".orlix.lock") << name;
  }
}

TEST(Program, MemoryBeyondTheBudgetIsRefusedBeforeTheFirstFrame) {
  ProgramRunner runner;
  const std::string scene = SourceFolder() + "/scenes/smoke_plume.json";
  const auto run = [&](std::vector<std::string> more) {
    std::vector<std::string> arguments =
        test::Words("run --memory 10M --set Plume.voxel_size=0.0625 --set Air.container=[200,400,200] --out " +
                    runner.folder.path().string() + " " + scene);
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runner.Run(arguments);
  };
  const std::string voxel = "A voxel_size of ";
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--dry-run"}}) {
    const ProgramOutcome refused = run(more);
    EXPECT_EQ(refused.code, 6);
    for (const std::string text :
         {"\"Plume\"", "76296 cells", "take about 18.6 MB", "the memory budget is 10 MB", voxel.c_str()}) {
      EXPECT_NE(refused.err.find(text), std::string::npos) << text << "\n" << refused.err;
    }
    EXPECT_EQ(refused.out, "");
    const ProgramOutcome vast = runner.Run({"run", scene, "--dry-run", "--json", "--set", "Plume.voxel_size=1e-7"});
    EXPECT_GT(nlohmann::json::parse(vast.out).at("most_bytes").get<double>(), 1e20);
    // What the message proposes fits.
    const std::string rest = refused.err.substr(std::min(refused.err.size(), refused.err.find(voxel) + voxel.size()));
    const ProgramOutcome proposed = run({"--dry-run", "--set", "Plume.voxel_size=" + rest.substr(0, rest.find(' '))});
    EXPECT_EQ(proposed.code, 0) << proposed.err;
  }
}

TEST(Program, StatisticsHaveALineForEachFrame) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", kScene), stats = (runner.folder / "s.jsonl").string();
  ASSERT_EQ(runner.Run({"run", scene, "--stats", stats, "--quiet"}).code, 0);
  int frame = 0;
  for (const auto& line : Lines(test::ReadText(stats))) {
    EXPECT_EQ(line.at("scene"), "Plume");
    EXPECT_EQ(line.at("hash").get<std::string>().size(), 16u);
    EXPECT_TRUE(line.at("seconds").at("total").is_number());
    EXPECT_EQ(line.at("frame"), frame);
    EXPECT_EQ(line.at("kind") == "frame", line.at("kind") != "substep");
    frame += line.at("kind") == "frame";
  }
  EXPECT_EQ(frame, 11);

  const std::string plume = SourceFolder() + "/scenes/smoke_plume.json";
  ASSERT_EQ(runner.Run({"run", plume, "--frames", "2", "--stats", stats, "--out", runner.folder.path().string()}).code,
            0);
  const auto frames = Lines(test::ReadText(stats));
  const auto grid = [&](const char* name, int fromEnd) {
    return frames.at(frames.size() - fromEnd).at("grids").at(name).get<std::string>();
  };
  EXPECT_NE(grid("Plume/smoke:1300027/grid", 1), grid("Plume/smoke:1300027/previous", 1));
  EXPECT_NE(grid("Plume/Air:1300002/velocity/grid1", 1), grid("Plume/Air:1300002/velocity/grid1", 3)) << "it moves";
}

TEST(Program, ReportsAreJsonWhenAskedFor) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", kScene);
  const std::string bad = runner.Write("bad.json", R"({ "orlix": 1, "fps": 0, "frames": 3 })");
  EXPECT_TRUE(nlohmann::json::parse(runner.Run({"validate", scene, "--json"}).out).at("valid"));
  const ProgramOutcome outcome = runner.Run({"validate", bad, "--json"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(nlohmann::json::parse(outcome.out).at("mistakes").size(), 2u);
  EXPECT_EQ(nlohmann::json::parse(runner.Run({"run", scene, "--dry-run", "--json"}).out).at("last"), 10);
  EXPECT_EQ(nlohmann::json::parse(runner.Run({"params", "scene", "--json"}).out).at(0).at("id"), 1300000);
  const ProgramOutcome info = runner.Run({"info", scene, "--json"});
  EXPECT_EQ(runner.Run({"validate", runner.Write("again.json", info.out)}).code, 0) << info.out;
}

TEST(Program, MistakesOfScriptsAreThoseOfTheScene) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", R"json({ "orlix": 1, "objects": [ { "type": "scene", "name": "P",
"children": [
  { "type": "force_coffee", "name": "Wind", "script": ["main(op)", "{ return cell_velocty; }"] },
  { "type": "constraint_coffee", "name": "Part", "script": {"file": "part.txt"} } ] } ] })json");
  const std::string file = runner.Write("part.txt", "main(op)\n{\n  return 1\n}\n");
  for (const char* command : {"validate", "run"}) {
    const ProgramOutcome outcome = runner.Run({command, scene});
    EXPECT_EQ(outcome.code, 3);
    for (const std::string& mistake :
         {scene + R"(:3:78: "P/Wind".script in line 2, column 10: there is no variable "cell_velocty")",
          file + R"(:4:1: "P/Part".script in line 4, column 1: "}" stands here, must be ";")"}) {
      EXPECT_NE(outcome.err.find(mistake), std::string::npos) << outcome.err;
    }
  }
  const ProgramOutcome mended =
      runner.Run({"validate", scene, "--set", "P/Wind.script=main(op) { return cell_velocity; }", "--set",
                  "P/Part.script=main(op) { return 1; }"});
  EXPECT_EQ(mended.code, 0) << mended.err;
}

TEST(Program, ProgressIsPlainLinesWithoutATerminal) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", kScene);
  const ProgramOutcome plain = runner.Run({"run", scene});
  EXPECT_NE(plain.err.find("frame 10 of 10"), std::string::npos) << plain.err;
  EXPECT_EQ(plain.err.find_first_of("\r\x1b"), std::string::npos);
  const ProgramOutcome quiet = runner.Run({"run", scene, "--quiet"});
  EXPECT_EQ(quiet.err + quiet.out, "");
}

TEST(Program, ProgressDrawsOverItselfOnATerminal) {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  ASSERT_GE(master, 0);
  ASSERT_EQ(::grantpt(master) | ::unlockpt(master), 0);
  const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  ::setenv("NO_COLOR", "1", 1);
  ::setenv("TERM", "xterm", 1);
  ProgramRunner runner;
  const ProgramOutcome outcome = runner.Run({"run", runner.Write("s.json", kScene)}, {}, {}, slave);
  EXPECT_EQ(outcome.code, 0);
  std::string shown(65536, '\0');
  shown.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(master, shown.data(), shown.size()), 0)));
  EXPECT_NE(shown.find("\rframe 10 of 10"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("\x1b[3"), std::string::npos) << "a colour in spite of NO_COLOR";
  ::close(slave);
  ::close(master);
}

// What users read and start from: commands of the pages, recipes.

namespace fs = std::filesystem;
using test::ProgramOutcome;
using test::ProgramRunner;

struct Told {
  fs::path page;
  std::vector<std::string> words;  // after "orlix"
};

// Up to a comment; what is quoted is one word or a part of one.
std::vector<std::string> ShellWords(const std::string& line) {
  std::vector<std::string> words;
  char quote = 0;
  bool open = false;
  for (const char c : line) {
    if (!open && c == '#') break;
    if (quote ? c == quote : c == '"' || c == '\'') {
      quote = quote ? 0 : c;
    } else if (!quote && (c == ' ' || c == '\t')) {
      open = false;
      continue;
    } else {
      if (!open) words.emplace_back();
      words.back() += c;
      open = true;
    }
  }
  return words;
}

// Lines of code blocks, and of the comments that scenes begin with, that call the program.
std::vector<Told> CommandsOfPages() {
  std::vector<fs::path> pages = {SourceFolder() + "/README.md"};
  for (const char* folder : {"/docs", "/scenes"}) {
    for (const auto& entry : fs::directory_iterator(SourceFolder() + folder)) {
      if (entry.path().extension() == ".md" || entry.path().extension() == ".json") pages.push_back(entry.path());
    }
  }
  std::vector<Told> told;
  for (const fs::path& page : pages) {
    std::istringstream text(test::ReadText(page));
    bool fenced = false;
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with("```")) fenced = !fenced;
      if (!fenced && !line.starts_with("    ") && !line.starts_with("//   ")) continue;
      std::vector<std::string> words = ShellWords(line);
      while (!words.empty() && (words[0] == "//" || words[0] == "$")) words.erase(words.begin());
      if (words.size() < 2 || !(words[0] == "orlix" || words[0].ends_with("/bin/orlix"))) continue;
      words.erase(words.begin());
      if (words[0] == "-" || std::islower(static_cast<unsigned char>(words[0][0])) || words[0].starts_with("--")) {
        told.push_back({page, words});
      }
    }
  }
  return told;
}

TEST(Documents, CommandsAreOnesThatTheProgramTakes) {
  const std::vector<Told> told = CommandsOfPages();
  EXPECT_GT(told.size(), 60u);
  ProgramRunner runner;
  for (const Told& command : told) {
    std::vector<const char*> arguments = {"orlix"};
    std::string line;
    for (const std::string& word : command.words) arguments.push_back(word.c_str()), line += " " + word;
    int code = 0;
    EXPECT_TRUE(ReadCommandLine(static_cast<int>(arguments.size()), arguments.data(), code) || code == 0)
        << command.page << ":" << line;

    std::vector<std::string> check = {"validate"};
    for (std::size_t i = 0; i < command.words.size(); ++i) {
      if (command.words[i].starts_with("scenes/")) check.push_back(SourceFolder() + "/" + command.words[i]);
      // The tutorial's own scenes begin as this one.
      if (command.words[i].starts_with("shot/") && i == 1) check.push_back(SourceFolder() + "/scenes/smoke_plume.json");
      if (command.words[i] == "--set") check.insert(check.end(), {command.words[i], command.words[i + 1]});
    }
    if (check.size() > 2 && check[1].ends_with(".json")) {
      const ProgramOutcome outcome = runner.Run(check);
      EXPECT_EQ(outcome.code, 0) << command.page << ":" << line << "\n" << outcome.err;
    } else if (check.size() > 1 && check[1] != "--set") {  // of a scene that the reader has
      EXPECT_TRUE(fs::exists(check[1])) << command.page << ":" << line;
    }
  }
}

TEST(Documents, RecipesBecomeScenesOfTheSizeAskedFor) {
  ProgramRunner runner;
  for (const char* name : {"pouring", "jet"}) {  // one of them with a mesh beside it
    const std::string folder = (runner.folder / name).string();
    EXPECT_EQ(runner.Run({"new", name, "--out", folder}).code, 0) << name;
    const ProgramOutcome outcome = runner.Run({"validate", folder + "/" + name + ".json"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(runner.Run({"new", name, "--out", folder}).code, 5) << "an older scene stays";
  }
  const std::string out = (runner.folder / "sized").string();
  const ProgramOutcome made = runner.Run({"new", "smoke", "--size", "50cm", "--cells", "1M", "--out", out});
  ASSERT_EQ(made.code, 0);
  // 2.5 x 4 x 2.5 m before: an eighth of each side, and the cells that divide half of the narrow side and are nearest
  // to a million.
  EXPECT_NE(made.err.find("in 90 x 144 x 90 cells"), std::string::npos) << made.err;
  const std::string text = test::ReadText(out + "/smoke_plume.json");
  EXPECT_NE(text.find("\"scale_metres\": 0.125"), std::string::npos);
  EXPECT_NE(text.find("\"voxel_size\": 0.00347222"), std::string::npos);
  EXPECT_NE(text.find("800 of them are a metre"), std::string::npos);
  EXPECT_EQ(runner.Run({"validate", out + "/smoke_plume.json"}).code, 0);
  EXPECT_EQ(runner.Run({"new", "rain", "--size", "2m", "--out", out}).code, 2);
  EXPECT_NE(runner.Run({"new", "smok"}).err.find("Did you mean smoke?"), std::string::npos);
}

}  // namespace
}  // namespace orlix
