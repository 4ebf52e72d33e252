#include "apps/orlix/Program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>
#include <system_error>

#include "apps/orlix/CommandLine.h"
#include "apps/orlix/ExitCode.h"
#include "fluids/grids/GridMemory.h"
#include "globals/ByteSize.h"
#include "run/Interrupt.h"

namespace orlix {

namespace {

Status RunGuarded(const CommandLine& line, const Program& program) {
  try {
    if (!program.options.memory.empty()) {
      const Result<std::int64_t> bytes = ParseByteSize(program.options.memory);
      if (!bytes) return bytes.error();
      SetGridMemoryBudget(*bytes);
    }
    for (const std::string& path : program.options.plugins) {
      Status loaded = program.engine.plugins.Load(path, program.engine.factory);
      if (!loaded.ok()) return loaded;
    }
    return line.command(program);
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

// A closed standard stream is opened on nothing, for reading: otherwise the next file that is opened would get its
// number and what is printed. Writing to it fails, and Finish tells. A limit on file sizes is an error of the write,
// not a kill.
void PrepareProcess() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDONLY));  // takes the lowest free number
  }
  std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace

int RunProgram(int argumentCount, const char* const* arguments) {
  PrepareProcess();
  int exitCode = 0;
  const std::optional<CommandLine> line = ReadCommandLine(argumentCount, arguments, exitCode);
  if (!line) return exitCode;
  Engine engine;
  Console console;
  InstallLog(console, line->options.logLevel);
  return Finish(RunGuarded(*line, Program{engine, console, line->options}), console);
}

}  // namespace orlix
