#pragma once
// A command of the program. Adding one: a file that defines its AddXCommand, and a line in Commands.cpp.

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "apps/orlix/Console.h"
#include "apps/orlix/Engine.h"
#include "globals/Result.h"

namespace orlix {

// Options that stand before or behind any command.
struct GlobalOptions {
  int threads = 0;     // 0: all that the machine offers
  std::string memory;  // "8G"; empty: no limit
  bool quiet = false, json = false;
  std::string logLevel = "info";
};

struct Program {
  Engine& engine;
  Console& console;
  const GlobalOptions& options;
  // Set by the command that was named; run after the whole command line was read.
  std::function<Status()> action;
};

using AddCommand = void (*)(CLI::App& app, Program& program);
extern const AddCommand kCommands[];
extern const std::size_t kCommandCount;

void AddRenderCommand(CLI::App& app, Program& program);
void AddConvertCommand(CLI::App& app, Program& program);
void AddRunCommand(CLI::App& app, Program& program);
void AddValidateCommand(CLI::App& app, Program& program);
void AddParamsCommand(CLI::App& app, Program& program);
void AddInfoCommand(CLI::App& app, Program& program);
void AddVerifyCommand(CLI::App& app, Program& program);

}  // namespace orlix
