#pragma once
// Frames done, seconds a frame and time left: a line that is drawn over itself on a terminal, otherwise a plain line
// every few seconds.

#include <chrono>
#include <string>

#include "apps/orlix/Console.h"
#include "run/FrameListener.h"

namespace orlix {

class Progress : public FrameListener {
 public:
  explicit Progress(Console& console) : console_(console) {}

  // What the engine's status line says.
  void OnStatus(const std::string& text);
  Status BeforeRun(const RunState& state) override;
  Status AfterFrame(const RunState& state) override;
  Status AfterRun(const RunState& state) override;

 private:
  using Clock = std::chrono::steady_clock;
  Console& console_;
  std::string text_;
  Clock::time_point lastLine_ = Clock::now(), lastStatus_ = Clock::now();
};

// "0:07", "12:30", "3:05:00"
std::string DurationText(double seconds);

}  // namespace orlix
