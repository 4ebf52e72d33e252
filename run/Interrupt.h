#pragma once
// SIGINT and SIGTERM. The first asks a run to end behind the frame in hand, the second kills: whatever has its final
// name is whole at any moment.

namespace orlix {

class Interrupt {
 public:
  // Handles the signals from here on.
  static void Install();
  // The signal that came, 0 for none.
  static int Signal();
};

}  // namespace orlix
