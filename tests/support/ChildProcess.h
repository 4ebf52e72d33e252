#pragma once
// Work in a forked process, for what a test can't do to itself: limits, mounts, kills.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orlix::test {

// Forks; the child does the work and ends with its result as exit code.
template <class Work>
pid_t StartChild(const Work& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(work());
  }
  return child;
}
// The exit code, or 256 plus the signal that ended it.
inline int WaitFor(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}
template <class Work>
int RunInChild(const Work& work) {
  return WaitFor(StartChild(work));
}

}  // namespace orlix::test
