#include "run/Interrupt.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace orlix {

namespace {

// A signal handler reaches nothing but what is global and free of locks.
struct Line {
  std::array<char, 256> text{};
  std::size_t size = 0;
};
BaseThread thread;
std::atomic<int> received{0};
std::atomic<std::int64_t> lastTime{0};
Line lines[2];
std::atomic<int> line{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);

// One key press or one `timeout` may send a signal to the process and to its group: together they count as one.
constexpr std::int64_t kTogether = 200'000'000;  // ns

void Say(const char* text, std::size_t size) {
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, size);
  errno = saved;
}

extern "C" void OnSignal(int signal) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const std::int64_t time = std::int64_t(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
  int none = 0;
  if (received.compare_exchange_strong(none, signal)) {
    lastTime = time;
    const Line& ready = lines[line.load()];
    Say(ready.text.data(), ready.size);
    return;
  }
  if (time - lastTime.exchange(time) < kTogether) return;
  if (!thread.TestBreak()) {
    thread.Break();
    return;
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

void Interrupt::Install() {
  Prepare("interrupted: ends as soon as it can");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

int Interrupt::Signal() { return received.load(); }

BaseThread& Interrupt::Thread() { return thread; }

void Interrupt::Prepare(std::string_view text) {
  const int next = 1 - line.load();
  Line& prepared = lines[next];
  prepared.size = std::min(text.size(), prepared.text.size() - 1);
  std::copy_n(text.data(), prepared.size, prepared.text.data());
  prepared.text[prepared.size++] = '\n';
  line.store(next);
}

}  // namespace orlix
