#pragma once
// What can't work in a scene that reads well, by its settings alone: names of files, what pictures refuse.

#include <filesystem>
#include <vector>

#include "host/objects/RowMistake.h"

namespace orlix {

struct SceneCheckOptions {
  std::filesystem::path results;  // the folder of results
  bool allowOutside = false;      // results may leave it
};

// In tree order. Of kind InputFile where a file that the scene names isn't there, otherwise of kind Scene.
std::vector<RowMistake> FindSceneMistakes(const BaseDocument& document, const SceneCheckOptions& options);

}  // namespace orlix
