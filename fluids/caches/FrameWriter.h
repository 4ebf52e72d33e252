#pragma once
// Writes a frame on a thread of its own while the next one is computed: at most one is in flight.

#include <functional>
#include <future>

#include "globals/Result.h"

namespace orlix {

class FrameWriter {
 public:
  FrameWriter() = default;
  // Waits: what was begun becomes whole.
  ~FrameWriter() { static_cast<void>(Flush()); }
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;

  // After the frame before it is written, whose outcome it gives; job isn't begun when that one failed.
  Status Submit(std::function<Status()> job) {
    if (Status before = Flush(); !before.ok()) return before;
    inFlight_ = std::async(std::launch::async, std::move(job));
    return {};
  }
  // Waits for the frame in flight and gives its outcome.
  Status Flush() { return inFlight_.valid() ? inFlight_.get() : Status(); }

 private:
  std::future<Status> inFlight_;
};

}  // namespace orlix
