#include "run/Interrupt.h"

#include <atomic>
#include <csignal>

namespace orlix {

namespace {

// A signal handler reaches nothing but what is global.
std::atomic<int> received{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void OnSignal(int signal) {
  if (received.exchange(signal) != 0) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }
}

}  // namespace

void Interrupt::Install() {
  for (const int signal : {SIGINT, SIGTERM}) {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

int Interrupt::Signal() { return received.load(); }

}  // namespace orlix
