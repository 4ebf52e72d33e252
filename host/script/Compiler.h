#pragma once
// A script becomes a program.
//
//   const auto outcome = Compile("main(op) { return cell_velocity * -0.05; }", {{"cell_velocity", Type::Vector}});
//
// Types are found here: a variable has the type of the first value that it gets. A function becomes part of each place
// that calls it, so that it takes numbers and vectors as they come; one that nothing calls is parsed alone. Control
// flow that differs from lane to lane becomes masks: a lane that leaves (return, break, continue) is taken from the
// mask of the statements that follow.

#include <string_view>
#include <vector>

#include "host/script/Program.h"
#include "host/script/ScriptError.h"

namespace orlix::script {

inline constexpr std::size_t kMaxSourceBytes = std::size_t(1) << 18;
inline constexpr int kMaxInstructions = 20000;
inline constexpr int kMaxRegisters = 1024;  // a kilobyte each, for every worker
inline constexpr int kMaxCallDepth = 16;

struct InputDeclaration {
  std::string name;
  Type type = Type::Number;
};

// Names of inputs are no reserved ones, and differ. wanted: what main must return; nothing for either.
Outcome<Program> Compile(std::string_view source, const std::vector<InputDeclaration>& inputs,
                         std::optional<Type> wanted = {});

}  // namespace orlix::script
