#pragma once
// The words of the command line. Only the .cpp includes the parser's heavy header.

#include <functional>
#include <optional>

#include "apps/orlix/Command.h"

namespace orlix {

struct CommandLine {
  GlobalOptions options;
  std::function<Status(const Program&)> command;  // the one that was named
};

// Reads the arguments. Without a value there is nothing to run: help or the version was printed, or a mistake was
// said on standard error; `exitCode` tells which.
std::optional<CommandLine> ReadCommandLine(int argumentCount, const char* const* arguments, int& exitCode);

}  // namespace orlix
