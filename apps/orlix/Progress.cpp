#include "apps/orlix/Progress.h"

#include <fmt/format.h>

#include <cmath>

namespace orlix {

namespace {

constexpr double kSecondsBetweenLines = 2, kSecondsBetweenStatus = 0.1;

double Since(std::chrono::steady_clock::time_point then) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - then).count();
}

}  // namespace

std::string DurationText(double seconds) {
  const auto whole = std::isfinite(seconds) ? std::llround(std::min(seconds, 1e9)) : 0;
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

void Progress::OnStatus(const std::string& text) {
  if (!console_.terminal() || Since(lastStatus_) < kSecondsBetweenStatus) return;
  lastStatus_ = Clock::now();
  console_.ShowProgress(text.empty() ? text_ : text_ + "  " + text);
}

Status Progress::BeforeRun(const RunState& state) {
  lastLine_ = Clock::now();
  text_ = fmt::format("frames {} to {}", state.firstFrame, state.lastFrame);
  console_.ShowProgress(text_);
  return {};
}

Status Progress::AfterFrame(const RunState& state) {
  // Before the first frame's results are done, what it took to simulate.
  const double each = state.secondsAFrame > 0 ? state.secondsAFrame : state.seconds;
  const int left = state.framesLeft;
  text_ = fmt::format("frame {} of {}  {:.3g} s a frame  {} left", state.frame, state.lastFrame, each,
                      DurationText(each * left));
  console_.ShowProgress(text_);
  if (!console_.terminal() && (left == 0 || Since(lastLine_) >= kSecondsBetweenLines)) {
    lastLine_ = Clock::now();
    console_.Line(text_);
  }
  return {};
}

Status Progress::AfterRun(const RunState&) {
  console_.ShowProgress({});
  return {};
}

}  // namespace orlix
