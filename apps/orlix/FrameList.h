#pragma once
// Frames named on the command line: "1-100x2,120" is 1, 3, ..., 99 and 120.

#include <string_view>
#include <vector>

#include "globals/Result.h"

namespace orlix {

// Ascending, each once. Usage for anything that is no such list or that names more than a million frames.
Result<std::vector<int>> ParseFrameList(std::string_view text);

// "8G", "512M", "100000": bytes, with K, M, G and T as powers of 1024. Usage for anything else.
Result<std::int64_t> ParseByteSize(std::string_view text);
// "1.5 GB"
std::string ByteSizeText(std::int64_t bytes);

}  // namespace orlix
