#pragma once
// The host's worker threads: started once, woken for each run, joined at its end.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

namespace orlix {

// A running piece of work that can be asked to stop.
class BaseThread {
 public:
  void Break() { broken_.store(true, std::memory_order_relaxed); }
  bool TestBreak() const { return broken_.load(std::memory_order_relaxed); }

 private:
  std::atomic<bool> broken_{false};
};

class WorkerPool {
 public:
  static constexpr int kMaxWorkers = 64;  // the size of every table that has an entry for each worker

  // count workers, limited to 1..64 and to the threads that there are. The calling thread of a run is one of them.
  explicit WorkerPool(int count);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // The workers among which passes divide their work: all threads, or fewer while a limit holds.
  int count() const { return limit_; }
  // From here on count() is at most this; below 1 it is all threads again. Not during a run.
  void Limit(int workers);

  // A pass that takes long asks once a layer or an iteration whether it is to stop, and then leaves its result
  // unfinished. watched: whose break counts, null for none. Not during a run.
  void WatchBreak(const BaseThread* watched) { watched_ = watched; }
  bool Broken() const { return watched_ && watched_->TestBreak(); }

  // Calls work(worker) for each worker of [0, workers), each once, and returns when all have ended. workers may exceed
  // the threads: one then takes several in turn. A run from inside a run goes on the calling thread alone. work must
  // not throw.
  template <class F>
  void Run(int workers, F&& work) {
    using Work = std::remove_reference_t<F>;
    RunErased(
        workers, [](void* context, int worker) { (*static_cast<Work*>(context))(worker); },
        const_cast<void*>(static_cast<const void*>(&work)));
  }

 private:
  using Function = void (*)(void* context, int worker);
  void RunErased(int workers, Function function, void* context);
  void ThreadMain(int index);

  int count_;  // threads, the calling one among them
  int limit_;
  const BaseThread* watched_ = nullptr;
  std::mutex mutex_;
  std::condition_variable wake_, done_;
  std::uint64_t generation_ = 0;
  bool ending_ = false;
  Function function_ = nullptr;
  void* context_ = nullptr;
  int workers_ = 0;
  std::atomic<std::uint64_t> published_{0};
  std::atomic<int> unfinished_{0};
  std::mutex runMutex_;  // one run at a time
  std::vector<std::thread> threads_;
};

// The workers that the machine offers: its hardware threads, 1 to 64.
int HostWorkerCount();

// Divides [begin, end) of whole layers among the pool's workers and calls work(layerBegin, layerEnd, worker) on each
// part that isn't empty.
template <class F>
void ParallelRange(WorkerPool& pool, int begin, int end, F&& work) {
  const int size = end - begin;
  if (size <= 0) return;
  const int pieces = size < pool.count() ? size : pool.count();
  pool.Run(pieces, [&](int worker) {
    const int from = begin + static_cast<int>(static_cast<long long>(size) * worker / pieces);
    const int to = begin + static_cast<int>(static_cast<long long>(size) * (worker + 1) / pieces);
    if (from < to) work(from, to, worker);
  });
}

}  // namespace orlix
