#pragma once
// Work on rows of a lattice where a row needs the rows below it in y and z: layers are visited in order by all workers
// at once, each owning a band of rows; a band waits for the one before it. The result is that of a serial run.

#include <atomic>
#include <thread>

#include "host/threads/WorkerPool.h"

namespace orlix {

// Waits until a counter that another worker raises has reached a value. A worker only ever waits for workers that were
// started before it, so that a thread may take several in turn.
inline void AwaitProgress(const std::atomic<int>& progress, int value) {
  for (int spin = 0; progress.load(std::memory_order_acquire) < value; ++spin) {
    if (spin > 200) std::this_thread::yield();
  }
}

struct alignas(64) PipelineProgress {
  std::atomic<int> done{0};
};

// Calls work(k, rowBegin, rowEnd) for layers 1 to layers - 2 and bands of the rows 1 to rows - 2. Forward: a call sees
// all rows below its own in this layer and in the layer before finished. Backward: mirrored in y and z.
template <class F>
void PipelineRows(WorkerPool& pool, int rows, int layers, bool backward, F&& work) {
  const int inner = rows - 2, depth = layers - 2;
  if (inner < 1 || depth < 1) return;
  const int pieces = inner < pool.count() ? inner : pool.count();
  PipelineProgress progress[WorkerPool::kMaxWorkers];
  pool.Run(pieces, [&](int worker) {
    const int piece = backward ? pieces - 1 - worker : worker;
    const int from = 1 + static_cast<int>(static_cast<long long>(inner) * piece / pieces);
    const int to = 1 + static_cast<int>(static_cast<long long>(inner) * (piece + 1) / pieces);
    for (int step = 1; step <= depth; ++step) {
      if (worker > 0) AwaitProgress(progress[worker - 1].done, step);
      work(backward ? layers - 1 - step : step, from, to);
      progress[worker].done.store(step, std::memory_order_release);
    }
  });
}

}  // namespace orlix
