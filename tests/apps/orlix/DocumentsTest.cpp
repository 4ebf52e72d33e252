// What users read and start from: commands of the pages, recipes.

#include <gtest/gtest.h>

#include <iterator>
#include <regex>
#include <sstream>

#include "apps/orlix/CommandLine.h"
#include "apps/orlix/Recipes.h"
#include "tests/apps/orlix/ProgramRunner.h"

namespace orlix {
namespace {

namespace fs = std::filesystem;
using test::ProgramOutcome;
using test::ProgramRunner;

struct Told {
  fs::path page;
  std::vector<std::string> words;  // after "orlix"
};

std::vector<std::string> ShellWords(const std::string& line) {
  static const std::regex kWord(R"re("([^"]*)"|'([^']*)'|#.*|([^\s"']+(?:"[^"]*")?))re");
  std::vector<std::string> words;
  for (std::sregex_iterator word(line.begin(), line.end(), kWord), end; word != end && (*word)[0].str()[0] != '#';
       ++word) {
    std::string text = (*word)[1].matched ? (*word)[1].str() : (*word)[2].matched ? (*word)[2].str() : (*word)[3].str();
    text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
    words.push_back(text);
  }
  return words;
}

// Lines of code blocks, and of the comments that scenes begin with, that call the program.
std::vector<Told> CommandsOfPages() {
  static const std::regex kCommand(R"(^(?:    |//   |\$ )?(?:build/release/bin/)?orlix (?!\[)([a-z-].*)$)");
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
      std::smatch match;
      if ((fenced || line.starts_with("    ") || line.starts_with("//   ")) &&
          std::regex_match(line, match, kCommand)) {
        told.push_back({page, ShellWords(match[1])});
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
  ASSERT_EQ(runner.Run({"new", "smoke", "--size", "50cm", "--cells", "1M", "--out", out}).code, 0);
  // 2.5 x 4 x 2.5 m before: an eighth of each side, and the 0.0488 m^3 in a million cells.
  const std::string text = test::ReadText(out + "/smoke_plume.json");
  EXPECT_NE(text.find("\"scale_metres\": 0.125"), std::string::npos);
  EXPECT_NE(text.find("\"voxel_size\": 0.003655"), std::string::npos);
  EXPECT_NE(text.find("800 of them are a metre"), std::string::npos);
  EXPECT_EQ(runner.Run({"validate", out + "/smoke_plume.json"}).code, 0);
  EXPECT_EQ(runner.Run({"new", "rain", "--size", "2m", "--out", out}).code, 2);
  EXPECT_NE(runner.Run({"new", "smok"}).err.find("Did you mean smoke?"), std::string::npos);
}

}  // namespace
}  // namespace orlix
