#pragma once
// SIGINT, SIGTERM and SIGHUP. The first asks a run to end after the current frame, the second breaks it off at once
// and in order, the third kills: whatever has its final name is whole at any moment.

#include <string_view>

#include "host/threads/WorkerPool.h"

namespace orlix {

class Interrupt {
 public:
  // Handles the signals from here on.
  static void Install();
  // The first signal that came, 0 for none.
  static int Signal();
  // What the engine and the renderer ask whether to stop; broken by the second signal.
  static BaseThread& Thread();
  static bool Broken() { return Thread().TestBreak(); }
  // The line that the first signal writes on standard error. It is kept ready, since a handler can't format it.
  static void Prepare(std::string_view line);
};

}  // namespace orlix
