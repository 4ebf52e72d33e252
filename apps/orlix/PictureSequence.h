#pragma once
// The numbered PNG pictures of a folder, of which commands take one sequence.

#include <filesystem>
#include <string>
#include <vector>

#include "globals/Result.h"
#include "host/files/FrameFiles.h"

namespace orlix {

struct PictureSequence {
  std::string name;              // "frame" of "frame.0012.png"
  std::vector<FrameFile> files;  // by frame
};
// The sequence of that name; without one, that with the most pictures, previews last. InputFile, with the names that
// there are, where there is none.
Result<PictureSequence> FindPictures(const std::filesystem::path& folder, const std::string& name);

}  // namespace orlix
