#include "apps/orlix/Program.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <iostream>
#include <new>
#include <vector>

#include "apps/orlix/Command.h"
#include "apps/orlix/ExitCode.h"
#include "apps/orlix/FrameList.h"
#include "apps/orlix/Interrupt.h"
#include "fluids/grids/GridMemory.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr const char* kVersion = "orlix 0.1.0";

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--threads", options.threads, "Worker threads, all of the machine's without it")
      ->check(CLI::Range(0, WorkerPool::kMaxWorkers));
  app.add_option("--memory", options.memory, "Most memory of all grids together, such as 8G");
  app.add_flag("--quiet", options.quiet, "No progress, no closing line");
  app.add_flag("--json", options.json, "Results on standard output as JSON");
  app.add_option("--log-level", options.logLevel, "What standard error shows")
      ->check(CLI::IsMember({"trace", "debug", "info", "warning", "error", "critical", "off"}));
}

// The arguments with the command first, so that its options may stand before it too.
std::vector<std::string> CommandFirst(int count, const char* const* arguments, const CLI::App& app) {
  std::vector<std::string> list(arguments + std::min(count, 1), arguments + count);
  const std::vector<const CLI::App*> commands = app.get_subcommands([](const CLI::App*) { return true; });
  const auto isCommand = [&](const std::string& word) {
    return std::any_of(commands.begin(), commands.end(), [&](auto* command) { return command->get_name() == word; });
  };
  const auto command = std::find_if(list.begin(), list.end(), isCommand);
  if (command != list.end()) std::rotate(list.begin(), command, command + 1);
  return list;
}

Status RunAction(const Program& program) {
  try {
    if (!program.options.memory.empty()) {
      const Result<std::int64_t> bytes = ParseByteSize(program.options.memory);
      if (!bytes) return bytes.error();
      SetGridMemoryBudget(*bytes);
    }
    return program.action();
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, "memory doesn't suffice");
  } catch (const std::system_error& error) {
    return Status::Fail(ErrorKind::Output, error.what());
  } catch (const std::exception& error) {
    return Status::Fail(ErrorKind::Internal, error.what());
  }
}

int Finish(const Status& status, Console& console) {
  console.ShowProgress({});
  if (!status.ok()) {
    console.Line(status.error().text);
    return ExitCodeOf(status.error().kind);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    console.Line("standard output can't be written");
    return ExitCodeOf(ErrorKind::Output);
  }
  return Interrupt::Signal() ? ExitCodeOfSignal(Interrupt::Signal()) : 0;
}

}  // namespace

int RunProgram(int argumentCount, const char* const* arguments) {
  Engine engine;
  Console console;
  GlobalOptions options;
  Program program{engine, console, options, {}};
  CLI::App app("A fluid and volume effects engine", "orlix");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(1);
  app.fallthrough();
  AddGlobalOptions(app, options);
  for (std::size_t i = 0; i < kCommandCount; ++i) kCommands[i](app, program);

  std::vector<std::string> words = CommandFirst(argumentCount, arguments, app);
  std::reverse(words.begin(), words.end());  // the parser takes them from the back
  try {
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : ExitCodeOf(ErrorKind::Usage);
  }
  InstallLog(console, options.logLevel);
  return Finish(RunAction(program), console);
}

}  // namespace orlix
