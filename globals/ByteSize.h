#pragma once
// Sizes of memory as people write them.

#include <cstdint>
#include <string>
#include <string_view>

#include "globals/Result.h"

namespace orlix {

// "8G", "512M", "100000": bytes, with K, M, G and T as powers of 1024. Usage for anything else.
Result<std::int64_t> ParseByteSize(std::string_view text);
// "1.5 GB"
std::string ByteSizeText(double bytes);

}  // namespace orlix
