#include "apps/orlix/Recipes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <regex>
#include <utility>

#include "host/description/TypeRegistry.h"

namespace orlix {

namespace {

constexpr std::pair<std::string_view, std::string_view> kShortNames[] = {{"smoke", "smoke_plume"},
                                                                         {"wind", "wind_moving_obstacle"},
                                                                         {"ring", "smoke_ring"},
                                                                         {"wave", "dam_break"},
                                                                         {"dam", "dam_break"}};

// The sides of a container as the file has them, in host units; the largest of several containers.
struct Sides {
  double x = 0, y = 0, z = 0;
  double Volume() const { return x * y * z; }
  double Longest() const { return std::max({x, y, z}); }
};

Sides LargestContainer(const std::string& text) {
  static const std::regex kContainer(R"re("container": \[([\d.]+), ([\d.]+), ([\d.]+)\])re");
  Sides largest;
  for (std::sregex_iterator match(text.begin(), text.end(), kContainer), end; match != end; ++match) {
    const Sides sides{std::strtod((*match)[1].str().c_str(), nullptr), std::strtod((*match)[2].str().c_str(), nullptr),
                      std::strtod((*match)[3].str().c_str(), nullptr)};
    if (sides.Volume() > largest.Volume()) largest = sides;
  }
  return largest;
}

double NumberOf(const std::string& text, const char* key) {
  std::smatch match;
  std::regex_search(text, match, std::regex(fmt::format(R"re("{}": ([\d.]+))re", key)));
  return match.empty() ? 0 : std::strtod(match[1].str().c_str(), nullptr);
}

void SetNumber(std::string& text, const char* key, double value) {
  text = std::regex_replace(text, std::regex(fmt::format(R"re("{}": [\d.]+)re", key)),
                            fmt::format("\"{}\": {:.4g}", key, value));
}

// Comments that name what was changed.
void MendComments(std::string& text, const Sides& sides, double unitsPerMetre, double voxel) {
  static const std::regex kUnits(R"(100( of them| host units)?( are|: are)? a metre)");
  if (unitsPerMetre != 100) {
    text = std::regex_replace(text, kUnits, fmt::format("{:.4g}$1 are a metre", unitsPerMetre));
  }
  static const std::regex kCells(R"re(("render_voxel_size": [^/\n]*)//[^\n]*)re");
  const auto cells = [&](double side) { return std::max(1.0, std::ceil(side / unitsPerMetre / voxel - 1e-9)); };
  text = std::regex_replace(
      text, kCells,
      fmt::format("$1// m: the container is {} x {} x {} cells", cells(sides.x), cells(sides.y), cells(sides.z)));
}

}  // namespace

std::string Recipe::FirstSentence() const {
  std::string words;
  for (std::size_t at = 0; text.substr(at).starts_with("//");) {
    const std::size_t end = text.find('\n', at);
    std::string_view line = text.substr(at + 2, end - at - 2);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    if (line.empty()) break;
    if (!words.empty()) words += ' ';
    words += line;
    at = end + 1;
  }
  const std::size_t stop = words.find(". ");
  return stop == std::string::npos ? words : words.substr(0, stop + 1);
}

Result<const Recipe*> FindRecipe(std::string_view asked) {
  std::string name(asked);
  std::replace(name.begin(), name.end(), '-', '_');
  for (const auto& [shortName, whole] : kShortNames) {
    if (name == shortName) name = whole;
  }
  std::string_view nearest;
  int least = 4;
  const auto compare = [&](std::string_view known) {
    if (const int edits = EditDistance(name, known, least); edits < least) least = edits, nearest = known;
  };
  for (const auto& [shortName, whole] : kShortNames) compare(shortName);
  for (const Recipe& recipe : Recipes()) {
    if (recipe.name == name) return &recipe;
    compare(recipe.name);
  }
  std::string text = fmt::format("there is no recipe \"{}\"; orlix new lists them", asked);
  if (!nearest.empty()) text += fmt::format(". Did you mean {}?", nearest);
  return Error{ErrorKind::Usage, text};
}

Result<std::string> SizedRecipe(const Recipe& recipe, const RecipeSize& size) {
  std::string text(recipe.text);
  if (size.metres == 0 && size.cells == 0) return text;
  const Sides sides = LargestContainer(text);
  const double oldScale = NumberOf(text, "scale_metres"), unitsPerScale = NumberOf(text, "scale_units");
  const double oldVoxel = NumberOf(text, "voxel_size"), oldPictures = NumberOf(text, "render_voxel_size");
  if (sides.Volume() == 0 || oldScale == 0 || unitsPerScale == 0 || oldVoxel == 0) {
    return Error{ErrorKind::Usage, fmt::format("{} has no container of its own to size", recipe.name)};
  }
  const double grown = size.metres > 0 ? size.metres / (sides.Longest() / unitsPerScale * oldScale) : 1;
  const double unitsPerMetre = unitsPerScale / (oldScale * grown);
  const double metres = 1 / unitsPerMetre;
  const double voxel =
      size.cells > 0 ? std::cbrt(sides.Volume() * metres * metres * metres / size.cells) : oldVoxel * grown;
  SetNumber(text, "scale_metres", oldScale * grown);
  SetNumber(text, "voxel_size", voxel);
  SetNumber(text, "render_voxel_size", size.cells > 0 ? voxel : oldPictures * grown);
  MendComments(text, sides, unitsPerMetre, NumberOf(text, "voxel_size"));
  return text;
}

}  // namespace orlix
