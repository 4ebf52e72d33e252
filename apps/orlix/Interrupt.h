#pragma once
// SIGINT and SIGTERM. The first asks the running work to end, the second kills.

#include "host/threads/WorkerPool.h"

namespace orlix {

class Interrupt {
 public:
  // Handles the signals from here on.
  static void Install();
  // What running work asks for a break.
  static const BaseThread& Thread();
  // The signal that came, 0 for none.
  static int Signal();
};

}  // namespace orlix
