#pragma once
// Frames named on the command line: "1-100x2,120" is 1, 3, ..., 99 and 120.

#include <string_view>
#include <vector>

#include "globals/Result.h"

namespace orlix {

// Ascending, each once. Usage for anything that is no such list or that names more than a million frames.
Result<std::vector<int>> ParseFrameList(std::string_view text);

}  // namespace orlix
