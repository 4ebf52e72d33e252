#pragma once
// How far two names are apart: for "did you mean".

#include <string_view>

namespace orlix {

// Levenshtein distance with early exit: returns a value above limit when the distance is above limit.
int EditDistance(std::string_view a, std::string_view b, int limit);

}  // namespace orlix
