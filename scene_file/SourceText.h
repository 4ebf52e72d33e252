#pragma once
// The text of one scene file, with what a message needs to name a place in it.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "globals/Result.h"

namespace orlix {

// Scene files beyond this are refused before they are read.
inline constexpr std::size_t kMaxSceneBytes = std::size_t(64) << 20;

struct SourceText {
  std::string name;    // as a message shows it: a path, or "--set"
  std::string folder;  // files named in the text are relative to it
  std::string text;
  // What stands before a file name of this text to make it relative to the document's folder; empty for the main file.
  std::string filePrefix;
  bool hasLines = true;  // false for a text from the command line: its places have no line and column
};

// A place in a source: the byte at offset.
struct Place {
  std::shared_ptr<const SourceText> source;
  std::uint32_t offset = 0;
};

struct LineColumn {
  int line = 1, column = 1;  // from 1; columns count code points
};
LineColumn LineColumnAt(std::string_view text, std::size_t offset);

// Gives the content of a file, or why it can't be had.
using LoadText = std::function<Result<std::string>(const std::string& path)>;

// Reads a file from disk: InputFile when it can't be read, Scene when it is beyond kMaxSceneBytes.
Result<std::string> LoadTextFile(const std::string& path);

}  // namespace orlix
