#pragma once
// Parameters set from the command line: "Plume/Air.cell_size=0.1". The path is that of a link, the key that of a scene
// file, the value JSON; a text may stand without its quotes.

#include <string>
#include <vector>

#include "globals/Result.h"
#include "scene_file/ParameterReader.h"
#include "scene_file/SwitchedOff.h"

namespace orlix {

// Mistakes of the values join those of the file. Usage for an override that has no path, key or "=".
Status ApplyOverrides(BaseDocument& document, const std::vector<std::string>& overrides, const ObjectIndex& index,
                      ParameterReader& parameters, SwitchedOff& off, Mistakes& mistakes);

}  // namespace orlix
