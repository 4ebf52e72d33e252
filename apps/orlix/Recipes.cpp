#include "apps/orlix/Recipes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <regex>
#include <utility>
#include <vector>

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

Sides ReadSides(const std::smatch& match) {
  return {std::strtod(match[1].str().c_str(), nullptr), std::strtod(match[2].str().c_str(), nullptr),
          std::strtod(match[3].str().c_str(), nullptr)};
}

constexpr const char* kThreeNumbers = R"re(\[(-?[\d.]+), (-?[\d.]+), (-?[\d.]+)\])re";

// A container, and the rest of its line, where its anchor and its place are.
struct Container {
  Sides sides;
  std::string line;
};
std::vector<Container> ContainersOf(const std::string& text) {
  static const std::regex kContainer(std::string("\"container\": ") + kThreeNumbers + "([^\n]*)");
  std::vector<Container> containers;
  for (std::sregex_iterator match(text.begin(), text.end(), kContainer), end; match != end; ++match) {
    containers.push_back({ReadSides(*match), (*match)[4]});
  }
  return containers;
}

Sides LargestContainer(const std::vector<Container>& containers) {
  Sides largest;
  for (const Container& each : containers) {
    if (each.sides.Volume() > largest.Volume()) largest = each.sides;
  }
  return largest;
}

// The longest length of which all walls are multiples from the origin on, in host units.
double CommonLength(const std::vector<Container>& containers) {
  static const std::regex kPosition(std::string("\"position\": ") + kThreeNumbers);
  constexpr double kFinest = 1e-3;
  std::int64_t common = 0;
  for (const Container& each : containers) {
    std::smatch match;
    const Sides place = std::regex_search(each.line, match, kPosition) ? ReadSides(match) : Sides();
    const double middle = each.line.find(R"("anchor_mode": "bottom")") == std::string::npos ? 0 : 0.5;
    for (const auto& [low, side] :
         {std::pair(place.x - middle * each.sides.x, each.sides.x), std::pair(place.y, each.sides.y),
          std::pair(place.z - middle * each.sides.z, each.sides.z)}) {
      common = std::gcd(common, std::gcd(std::llround(low / kFinest), std::llround((low + side) / kFinest)));
    }
  }
  return static_cast<double>(common) * kFinest;
}

// The part of a length that gives the number of cells which is nearest to the asked one.
double VoxelFor(double volume, double cells, double common) {
  const double wanted = std::cbrt(volume / cells), parts = std::max(1.0, std::floor(common / wanted));
  const auto off = [&](double voxel) { return std::abs(std::log(volume / (voxel * voxel * voxel) / cells)); };
  const double larger = common / parts, smaller = common / (parts + 1);
  const double voxel = off(larger) <= off(smaller) ? larger : smaller;
  constexpr double kMostOff = 0.7;  // half or twice as many
  return off(voxel) <= kMostOff ? voxel : wanted;
}

// Cells are a float of metres: the one that a wall of the longest side's length isn't short of.
float AsVoxel(double voxel, double longest) {
  constexpr double kLeastOff = 5e-7;  // m
  const auto near = static_cast<float>(voxel);
  return (double(near) / voxel - 1) * longest > kLeastOff ? std::nextafter(near, 0.0f) : near;
}

double NumberOf(const std::string& text, const char* key) {
  std::smatch match;
  std::regex_search(text, match, std::regex(fmt::format(R"re("{}": ([\d.]+))re", key)));
  return match.empty() ? 0 : std::strtod(match[1].str().c_str(), nullptr);
}

template <class T>
void SetNumber(std::string& text, const char* key, T value) {
  text = std::regex_replace(text, std::regex(fmt::format(R"re("{}": [\d.]+)re", key)),
                            fmt::format("\"{}\": {}", key, value));
}

double CellsAlong(double metres, double voxel) { return std::max(1.0, std::ceil(metres / voxel * (1 - 1e-6))); }

// Comments that name what was changed.
void MendComments(std::string& text, const Sides& sides, double unitsPerMetre, double voxel) {
  static const std::regex kUnits(R"(100( of them| host units)?( are|: are)? a metre)");
  if (unitsPerMetre != 100) {
    text = std::regex_replace(text, kUnits, fmt::format("{:.4g}$1 are a metre", unitsPerMetre));
  }
  static const std::regex kCells(R"re(("render_voxel_size": [^/\n]*)//[^\n]*)re");
  const auto cells = [&](double side) { return CellsAlong(side / unitsPerMetre, voxel); };
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

Result<SizedScene> SizedRecipe(const Recipe& recipe, const RecipeSize& size) {
  std::string text(recipe.text);
  if (size.metres == 0 && size.cells == 0) return SizedScene{text, {}};
  const std::vector<Container> containers = ContainersOf(text);
  const Sides sides = LargestContainer(containers);
  const double oldScale = NumberOf(text, "scale_metres"), unitsPerScale = NumberOf(text, "scale_units");
  const double oldVoxel = NumberOf(text, "voxel_size"), oldPictures = NumberOf(text, "render_voxel_size");
  if (sides.Volume() == 0 || oldScale == 0 || unitsPerScale == 0 || oldVoxel == 0) {
    return Error{ErrorKind::Usage, fmt::format("{} has no container of its own to size", recipe.name)};
  }
  const double grown = size.metres > 0 ? size.metres / (sides.Longest() / unitsPerScale * oldScale) : 1;
  const double unitsPerMetre = unitsPerScale / (oldScale * grown);
  const double metres = 1 / unitsPerMetre;
  const double longest = sides.Longest() * metres;
  const float voxel = AsVoxel(size.cells > 0 ? VoxelFor(sides.Volume() * metres * metres * metres, size.cells,
                                                        CommonLength(containers) * metres)
                                             : oldVoxel * grown,
                              longest);
  SetNumber(text, "scale_metres", oldScale * grown);
  SetNumber(text, "voxel_size", voxel);
  SetNumber(text, "render_voxel_size", size.cells > 0 ? voxel : AsVoxel(oldPictures * grown, longest));
  MendComments(text, sides, unitsPerMetre, voxel);
  const double x = CellsAlong(sides.x * metres, voxel), y = CellsAlong(sides.y * metres, voxel),
               z = CellsAlong(sides.z * metres, voxel);
  return SizedScene{text, fmt::format("{:.4g} x {:.4g} x {:.4g} m in {} x {} x {} cells of {:.4g} m: {:.0f} cells",
                                      sides.x * metres, sides.y * metres, sides.z * metres, x, y, z, voxel, x * y * z)};
}

}  // namespace orlix
