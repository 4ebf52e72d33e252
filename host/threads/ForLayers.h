#pragma once
// Passes whose pieces take different times.

#include <algorithm>
#include <cstdint>

#include "host/threads/WorkerPool.h"

namespace orlix {

// Calls f(n) for n of [begin, end) on all workers, in many shares, since a surface fills some layers more than others.
template <class F>
void ForLayers(WorkerPool& pool, int begin, int end, F&& f) {
  const int count = std::max(end - begin, 0);
  pool.Run(std::min(count, WorkerPool::kMaxWorkers), [&](int share) {
    const int shares = std::min(count, WorkerPool::kMaxWorkers);
    const auto from = [&](int s) { return begin + static_cast<int>(static_cast<std::int64_t>(count) * s / shares); };
    for (int n = from(share); n < from(share + 1); ++n) f(n);
  });
}

}  // namespace orlix
