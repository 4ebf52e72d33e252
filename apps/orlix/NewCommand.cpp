// orlix new: a scene to start from, in a folder of its own.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "apps/orlix/Command.h"
#include "apps/orlix/Recipes.h"
#include "host/files/AtomicFile.h"
#include "host/files/FrameFiles.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

struct Unit {
  std::string_view word;
  double value;
};

// "2m", "50cm", "2M": a number above 0 and one of the units.
Result<double> Measure(const std::string& text, std::initializer_list<Unit> units, const char* option,
                       const char* example) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  for (const Unit& unit : units) {
    if (end != text.c_str() && unit.word == end && number > 0 && std::isfinite(number)) return number * unit.value;
  }
  return Error{ErrorKind::Usage,
               fmt::format("{} {}: a number above 0 with its unit, such as {}", option, text, example)};
}

void ListRecipes() {
  std::size_t width = 0;
  for (const Recipe& recipe : Recipes()) width = std::max(width, recipe.name.size());
  for (const Recipe& recipe : Recipes()) fmt::print("{:<{}}  {}\n", recipe.name, width, recipe.FirstSentence());
}

Result<RecipeSize> SizeOf(const NewOptions& options) {
  RecipeSize size;
  if (!options.size.empty()) {
    const auto metres =
        Measure(options.size, {{"", 1}, {"m", 1}, {"cm", 0.01}, {"mm", 0.001}, {"km", 1000}}, "--size", "2m or 50cm");
    if (!metres) return metres.error();
    size.metres = *metres;
  }
  if (!options.cells.empty()) {
    const auto cells = Measure(options.cells, {{"", 1}, {"k", 1e3}, {"M", 1e6}, {"G", 1e9}}, "--cells", "2M or 500k");
    if (!cells) return cells.error();
    size.cells = *cells;
  }
  return size;
}

// Names of the scene's own file in its comments, which the reader types.
std::string WithPaths(std::string text, std::string_view recipe, const std::string& path) {
  const std::string shipped = fmt::format("scenes/{}.json", recipe);
  for (std::size_t at = 0; (at = text.find(shipped, at)) != std::string::npos; at += path.size()) {
    text.replace(at, shipped.size(), path);
  }
  return text;
}

}  // namespace

Status NewCommand(const Program& program, const NewOptions& options) {
  if (options.recipe.empty()) {
    ListRecipes();
    return {};
  }
  const Result<const Recipe*> found = FindRecipe(options.recipe);
  if (!found) return found.error();
  const Recipe& recipe = **found;
  const Result<RecipeSize> size = SizeOf(options);
  if (!size) return size.error();
  const Result<SizedScene> sized = SizedRecipe(recipe, *size);
  if (!sized) return sized.error();

  const fs::path folder = options.out.empty() ? fs::path(recipe.name) : fs::path(options.out);
  if (Status created = CreateFolders(folder); !created.ok()) return created;
  const fs::path scene = folder / (std::string(recipe.name) + ".json");
  std::vector<std::pair<fs::path, std::string>> files = {{scene, WithPaths(sized->text, recipe.name, scene.string())}};
  for (const RecipeFile& file : recipe.files) files.emplace_back(folder / file.name, file.text);
  for (const auto& [path, content] : files) {
    if (fs::exists(path)) {
      return Status::Fail(ErrorKind::Output, fmt::format("{} exists; --out names another folder", path.string()));
    }
  }
  for (const auto& [path, content] : files) {
    if (Status written = WriteFileAtomically(path, content); !written.ok()) return written;
  }
  if (program.options.quiet) return {};
  if (!sized->chosen.empty()) program.console.Line(sized->chosen);
  program.console.Line(
      fmt::format("{0}\norlix render {0} --frames 1-24 --preview   # a first look\norlix run {0}", scene.string()));
  return {};
}

}  // namespace orlix
