#pragma once
// Runs the program that is built beside the tests and keeps what it said, how it ended and what it took. Between fork
// and exec the child allocates nothing: a thread of the test's (a library's may be one) can hold the allocator's lock
// in the moment of the fork, and the child would wait for it for ever.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Folders.h"
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
    const std::string program = ProgramFolder() + "/orlix";
    std::vector<char*> list = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
      ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
      ::dup2(errorDescriptor >= 0 ? errorDescriptor : ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
             STDERR_FILENO);
      ::execv(list[0], list.data());
      ::_exit(127);
    }
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
};

}  // namespace orlix::test
