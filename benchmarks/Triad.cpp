#include "benchmarks/Triad.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>

#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix::bench {

namespace {

constexpr std::int64_t kElements = 1 << 25;  // 256 MB an array

ORLIX_MULTIVERSION void Triad(double* a, const double* b, const double* c, std::int64_t from, std::int64_t to) {
  for (std::int64_t i = from; i < to; ++i) a[i] = b[i] + 3.0 * c[i];
}

double Measure(int threads) {
  WorkerPool pool(threads);
  const std::unique_ptr<double[]> a(new double[kElements]), b(new double[kElements]), c(new double[kElements]);
  const auto parts = [&](auto&& work) {
    pool.Run(threads, [&](int w) { work(kElements * w / threads, kElements * (w + 1) / threads); });
  };
  parts([&](std::int64_t from, std::int64_t to) {
    std::fill(&a[from], &a[0] + to, 0.0), std::fill(&b[from], &b[0] + to, 1.0), std::fill(&c[from], &c[0] + to, 2.0);
  });
  double best = 1e30;
  for (int pass = 0; pass < 8; ++pass) {
    const auto start = std::chrono::steady_clock::now();
    parts([&](std::int64_t from, std::int64_t to) { Triad(a.get(), b.get(), c.get(), from, to); });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (pass > 0) best = std::min(best, seconds);
  }
  return a[kElements - 1] == 7.0 ? 24.0 * kElements / best : 0;
}

}  // namespace

int BenchThreads() { return HostWorkerCount(); }

double TriadBandwidth(int threads) {
  static std::map<int, double> measured;
  const auto found = measured.find(threads);
  return found != measured.end() ? found->second : measured[threads] = Measure(threads);
}

double CellTime(std::int64_t cells) { return static_cast<double>(cells) * 8 / TriadBandwidth(BenchThreads()); }

}  // namespace orlix::bench
