#pragma once
// Runs the program and keeps what it said, how it ended and what it took. Each run is a fork of the test's process,
// whose libraries the loader has bound already: a start of its own took a tenth of a second, half a second with
// sanitizers.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "apps/orlix/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {

struct ProgramOutcome {
  int code = -1;  // the exit code, or 256 plus the signal that killed it
  std::string out, err;
  double seconds = 0;
  long peakKilobytes = 0;
};

// Arguments without spaces of their own.
inline std::vector<std::string> Words(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

class ProgramRunner {
 public:
  TemporaryFolder folder;

  std::string Write(const std::string& name, const std::string& text) {
    WriteText(folder / name, text);
    return (folder / name).string();
  }

  // meanwhile is called with the process while it runs; standard output and error go to the named files if any.
  ProgramOutcome Run(const std::vector<std::string>& arguments, const std::function<void(pid_t)>& meanwhile = {},
                     const std::string& outFile = {}, int errorDescriptor = -1) {
    const std::string out = outFile.empty() ? (folder / "stdout").string() : outFile,
                      err = (folder / "stderr").string();
    const auto start = std::chrono::steady_clock::now();
    std::fflush(nullptr);  // or the child would write what the test has said, too
    const pid_t child = ::fork();
    if (child == 0) RunHere(arguments, out, err, errorDescriptor);
    if (meanwhile) meanwhile(child);
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    ProgramOutcome outcome;
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
    outcome.peakKilobytes = usage.ru_maxrss;
    if (outFile.empty()) outcome.out = ReadText(out);
    if (errorDescriptor < 0) outcome.err = ReadText(err);
    return outcome;
  }

 private:
  [[noreturn]] static void RunHere(const std::vector<std::string>& arguments, const std::string& out,
                                   const std::string& err, int errorDescriptor) {
    std::vector<const char*> list = {"orlix"};
    for (const std::string& argument : arguments) list.push_back(argument.c_str());
    [[maybe_unused]] const int testsOwn = ::dup(STDERR_FILENO);
    ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    ::dup2(errorDescriptor >= 0 ? errorDescriptor : ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
           STDERR_FILENO);
    const int code = RunProgram(static_cast<int>(list.size()), list.data());
    std::fflush(nullptr);
#ifdef __SANITIZE_ADDRESS__
    ::dup2(testsOwn, STDERR_FILENO);
    if (__lsan_do_recoverable_leak_check() != 0) ::_exit(125);
#endif
    // No exit handlers: OpenVDB's logger waits in one for its threads, which a fork doesn't have.
    ::_exit(code);
  }
};

}  // namespace orlix::test
