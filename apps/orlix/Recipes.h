#pragma once
// The shipped scenes, which `orlix new` starts from. They are built into the program, so that it needs no folder of
// its own; the source is generated from scenes/.

#include <span>
#include <string>
#include <string_view>

#include "globals/Result.h"

namespace orlix {

struct RecipeFile {
  std::string_view name, text;
};

struct Recipe {
  std::string_view name;  // the scene file's, without its extension
  std::string_view text;
  std::span<const RecipeFile> files;  // beside it

  std::string FirstSentence() const;
};

std::span<const Recipe> Recipes();

// By name, with - for _ and the short names ("smoke"); Usage with the nearest name otherwise.
Result<const Recipe*> FindRecipe(std::string_view name);

// What a new scene asks of its recipe; 0 leaves it as it is.
struct RecipeSize {
  double metres = 0;  // of the longest side of its container
  double cells = 0;   // of its container
};

struct SizedScene {
  std::string text;
  std::string chosen;  // container and cells; empty where nothing was asked for
};
// A recipe's scene file with its container scaled, shape kept, and with cells of the size that gives about as many and
// divides the container into whole ones where one of half to twice as many does. Objects stay where they are in host
// units: what changes is how many metres a unit has. Usage where the recipe has nothing to scale.
Result<SizedScene> SizedRecipe(const Recipe& recipe, const RecipeSize& size);

}  // namespace orlix
