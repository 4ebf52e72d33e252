#pragma once
// What a rendering leaves on disk so that another one can go on: a mark that names the scene and its settings, and the
// unfinished picture of a frame that was broken off. Both are hidden files in the folder of results.

#include <cstdint>
#include <filesystem>

#include "globals/Result.h"
#include "host/pictures/Picture.h"

namespace orlix {

class BaseDocument;

class PictureWork {
 public:
  // hash: of all that pictures depend on.
  PictureWork(std::filesystem::path folder, std::uint64_t hash) : folder_(std::move(folder)), hash_(hash) {}

  // A new work: marks and unfinished pictures of others go. Pictures stay until they are made anew.
  Status Start() const;
  // True where the mark of this work is there, false where there is none. An error for another work's.
  Result<bool> Continue() const;
  // Whether this work has made the frame's pictures, in all of the folders.
  bool HasMade(const BaseDocument& document, int frame) const;

  Status KeepUnfinished(const Picture& picture, int frame) const;
  // An empty picture when there is none that can be read.
  Picture Unfinished(int frame) const;
  void ForgetUnfinished(int frame) const;

 private:
  std::filesystem::path MarkPath() const;
  std::filesystem::path UnfinishedPath(int frame) const;

  std::filesystem::path folder_;
  std::uint64_t hash_;
};

// The files of a frame's picture.
std::vector<std::filesystem::path> PicturePaths(const BaseDocument& document, const std::string& outputFolder,
                                                int frame);

}  // namespace orlix
