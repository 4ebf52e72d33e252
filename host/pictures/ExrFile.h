#pragma once
// OpenEXR pictures: scan lines with lossless ZIP compression; 16 bits a number but for channels that ask for 32.

#include <cstddef>
#include <ostream>
#include <span>

#include "globals/Result.h"
#include "host/pictures/Picture.h"

namespace orlix {

// Writes all channels. A finite value beyond what 16 bits hold becomes the largest that they do; a value that is no
// number becomes 0. The stream must be able to seek.
Status WriteExr(const Picture& picture, std::ostream& stream);

// Reads every channel of the first part of a flat picture. Files of more than kMaxPicturePixels, or with sampled or
// more than kMaxExrChannels channels, are refused.
inline constexpr int kMaxExrChannels = 256;
Result<Picture> ReadExr(std::span<const std::byte> file);

}  // namespace orlix
