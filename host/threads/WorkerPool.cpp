#include "host/threads/WorkerPool.h"

#include <algorithm>
#include <exception>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace orlix {

namespace {

thread_local bool insideRun = false;

void Pause() {
#if defined(__x86_64__)
  _mm_pause();
#else
  std::this_thread::yield();
#endif
}

// A pass over a grid takes milliseconds and the next one follows soon: a spin of up to some 0.2 ms saves the wake-up,
// which takes half as long. Where spins are in vain, as on cores that others use, they get short. Who spins takes no
// lock: the thread that lets it go on would still hold it.
class Spin {
 public:
  template <class F>
  bool Await(F&& isDone) {
    for (int spin = 0; spin < spins_; ++spin) {
      if (isDone()) {
        spins_ = std::min(2 * spins_, kMost);
        return true;
      }
      Pause();
    }
    spins_ = std::max(spins_ / 2, kLeast);
    return false;
  }

 private:
  static constexpr int kLeast = 500, kMost = 10000;
  int spins_ = kMost;
};
thread_local Spin spinning;

constexpr int kAsleep = 1 << 16;  // in unfinished_: the calling thread is to be woken

}  // namespace

int HostWorkerCount() {
  return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, WorkerPool::kMaxWorkers);
}

WorkerPool::WorkerPool(int count) : count_(std::clamp(count, 1, kMaxWorkers)) {
  // A machine that has no more threads to give, or no memory for them, gives fewer workers: the results are the same.
  try {
    for (int i = 1; i < count_; ++i) threads_.emplace_back([this, i] { ThreadMain(i); });
  } catch (const std::exception&) {
    count_ = static_cast<int>(threads_.size()) + 1;
  }
  limit_ = count_;
}

WorkerPool::~WorkerPool() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    published_.store(++generation_, std::memory_order_release);
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void WorkerPool::Limit(int workers) { limit_ = workers < 1 ? count_ : std::min(workers, count_); }

void WorkerPool::RunErased(int workers, Function function, void* context) {
  if (workers <= 0) return;
  if (workers == 1 || count_ == 1 || insideRun) {
    const bool outer = insideRun;
    insideRun = true;
    for (int worker = 0; worker < workers; ++worker) function(context, worker);
    insideRun = outer;
    return;
  }
  const std::lock_guard run(runMutex_);
  {
    const std::lock_guard lock(mutex_);
    function_ = function;
    context_ = context;
    workers_ = workers;
    unfinished_.store(count_ - 1, std::memory_order_relaxed);
    published_.store(++generation_, std::memory_order_release);
  }
  wake_.notify_all();
  insideRun = true;
  for (int worker = 0; worker < workers; worker += count_) function(context, worker);
  insideRun = false;
  if (spinning.Await([&] { return unfinished_.load(std::memory_order_acquire) == 0; })) return;
  std::unique_lock lock(mutex_);
  if (unfinished_.fetch_add(kAsleep, std::memory_order_acq_rel) == 0) return;
  done_.wait(lock, [&] { return unfinished_.load(std::memory_order_acquire) == kAsleep; });
}

void WorkerPool::ThreadMain(int index) {
  insideRun = true;
  std::uint64_t seen = 0;
  for (;;) {
    if (!spinning.Await([&] { return published_.load(std::memory_order_acquire) != seen; })) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [&] { return published_.load(std::memory_order_relaxed) != seen; });
    }
    seen = published_.load(std::memory_order_acquire);
    if (ending_) return;
    // The run doesn't end before this thread has counted itself out, so that these stay.
    for (int worker = index; worker < workers_; worker += count_) function_(context_, worker);
    if (unfinished_.fetch_sub(1, std::memory_order_acq_rel) == kAsleep + 1) {
      const std::lock_guard lock(mutex_);
      done_.notify_one();
    }
  }
}

}  // namespace orlix
