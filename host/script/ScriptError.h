#pragma once
// What is wrong with a script, and where.

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orlix::script {

struct ScriptError {
  std::string text;        // what was found, what is allowed
  std::size_t offset = 0;  // in bytes from the start of the source
  int line = 1;            // from 1
  int column = 1;          // from 1, in code points
};

// A T, or what was wrong.
template <class T>
using Outcome = std::variant<T, ScriptError>;

// The error at a byte of the source.
ScriptError ErrorAt(std::string_view source, std::size_t offset, std::string text);

// Bytes of a source as a message shows them: in double quotes, at most 40 of them, what isn't printable ASCII escaped.
std::string Shown(std::string_view bytes);

// `, did you mean "floor"?`; nothing when no candidate is near.
std::string DidYouMean(std::string_view name, const std::vector<std::string_view>& candidates);

}  // namespace orlix::script
