#pragma once
// What is wrong with a parameter beside others: near beyond far.

#include <string>

#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

struct RowMistake {
  std::uint64_t object = 0;
  int row = 0;
  std::string text;  // behind `"Path".key `
  ErrorKind kind = ErrorKind::Scene;
  std::int64_t textOffset = -1;  // the byte of a script that it is about; -1 for the row itself
};

// `"Path".key ` and the text.
std::string Described(const BaseObject& object, int row, const std::string& text);

}  // namespace orlix
