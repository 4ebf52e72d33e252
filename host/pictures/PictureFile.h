#pragma once
// Pictures on disk, by the ending of their names.

#include <filesystem>
#include <string>

#include "globals/Result.h"
#include "host/pictures/Picture.h"
#include "host/pictures/PictureView.h"

namespace orlix {

// ".exr" or ".png" (through the view), to a temporary name first, so that the path holds the old file, the whole new
// one or nothing. An existing folder is asked for.
Status WritePicture(const std::filesystem::path& path, const Picture& picture, const PictureView& view = {});

// Told apart by the first bytes, not by the name.
Result<Picture> ReadPicture(const std::filesystem::path& path);

struct PictureInfo {
  std::string format;  // "OpenEXR" or "PNG"
  int width = 0, height = 0;
  std::vector<ChannelRange> channels;
  std::string toneMap;  // how light became values; empty where the file doesn't say
};
Result<PictureInfo> DescribePicture(const std::filesystem::path& path);

}  // namespace orlix
