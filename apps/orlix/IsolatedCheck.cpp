#include "apps/orlix/IsolatedCheck.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

namespace orlix {

namespace {

namespace fs = std::filesystem;

void Limit(int resource, rlim_t most) {
  rlimit limit{};
  if (::getrlimit(resource, &limit) != 0) return;
  limit.rlim_cur = std::min(limit.rlim_max, most);
  ::setrlimit(resource, &limit);
}

[[noreturn]] void RunChild(Status (*check)(const fs::path& path), const fs::path& path, std::uint64_t size, int out) {
  if (const int nowhere = ::open("/dev/null", O_WRONLY); nowhere >= 0) ::dup2(nowhere, STDERR_FILENO);
  Limit(RLIMIT_CORE, 0);
  Limit(RLIMIT_CPU, 5 + size / (20u << 20));
#ifndef ORLIX_SANITIZED  // a sanitizer's own bookkeeping takes terabytes of addresses
  Limit(RLIMIT_AS, (rlim_t(2) << 30) + 16 * size);
#endif
  const Status status = check(path);
  const std::string text = status.ok() ? std::string() : status.error().text;
  const bool told = text.empty() || ::write(out, text.data(), text.size()) > 0;
  ::_exit(status.ok() && told ? 0 : 1);
}

std::string ReadAll(int descriptor) {
  std::string text;
  char piece[1024];
  for (;;) {
    const ssize_t size = ::read(descriptor, piece, sizeof piece);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return text;
    text.append(piece, static_cast<std::size_t>(size));
  }
}

}  // namespace

Status RunIsolated(Status (*check)(const fs::path& path), const fs::path& path) {
  std::error_code error;
  if (fs::exists(path, error) && !fs::is_regular_file(path, error)) {
    return Status::Fail(ErrorKind::InputFile, path.string() + ": not a plain file");
  }
  const std::uint64_t size = fs::file_size(path, error);
  int ends[2];
  if (error || ::pipe2(ends, O_CLOEXEC) != 0) return check(path);
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) RunChild(check, path, size, ends[1]);
  ::close(ends[1]);
  const std::string text = child > 0 ? ReadAll(ends[0]) : std::string();
  ::close(ends[0]);
  if (child < 0) return check(path);
  int outcome = 0;
  while (::waitpid(child, &outcome, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) return {};
  const auto broken = [&](const std::string& reason) { return Status::Fail(ErrorKind::InputFile, reason); };
  if (WIFEXITED(outcome) && !text.empty()) return broken(text);
  const bool slow = WIFSIGNALED(outcome) && (WTERMSIG(outcome) == SIGXCPU || WTERMSIG(outcome) == SIGKILL);
  return broken(path.string() + (slow ? ": damaged: reading it doesn't end" : ": damaged: its reader crashes"));
}

}  // namespace orlix
