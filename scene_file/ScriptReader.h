#pragma once
// The text of a script in a scene file: "one line", ["the first line", "the second"], or {"file": "wind.txt"}, a name
// relative to the file that names it.

#include "scene_file/ParameterSite.h"
#include "scene_file/ScenePlaces.h"

namespace orlix {

struct ScriptText {
  std::string text;
  std::vector<TextPiece> pieces;
};

// Nothing when a mistake was found; it then stands in the site's list. folder: that of the scene, for a value from the
// command line.
std::optional<ScriptText> ReadScript(const ParameterSite& site, const JsonValue& value, const std::string& folder,
                                     const LoadText& load);

}  // namespace orlix
