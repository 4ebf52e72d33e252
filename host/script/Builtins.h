#pragma once
// The functions and constants of the language.

#include <span>
#include <string_view>
#include <vector>

#include "host/script/Program.h"

namespace orlix::script {

enum class BuiltinKind {
  Each,    // of numbers, or by component where some operand is a vector
  Point,   // of three numbers or one vector, gives a number
  Spread,  // of one to three numbers or one vector, gives a number
  MakeVector,
  Dot,
  Cross,
  Length,
  Normalize
};

struct Builtin {
  std::string_view name;
  BuiltinKind kind;
  int operands;       // how many it takes
  Op op = Op::Copy;   // of Each, Point and Spread
  const char* usage;  // as a message shows it
};

std::span<const Builtin> Builtins();
const Builtin* FindBuiltin(std::string_view name);
// The value of PI; null for a name that is no constant.
const double* FindConstant(std::string_view name);

// Whether a script can't give this name to something of its own: keywords, functions, constants.
bool IsReserved(std::string_view name);

}  // namespace orlix::script
