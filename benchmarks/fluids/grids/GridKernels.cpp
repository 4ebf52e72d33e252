// The kernels of grids: interpolation in samples a second, passes over whole grids in bytes a second beside the triad.

#include <benchmark/benchmark.h>

#include <cmath>

#include "benchmarks/Triad.h"
#include "fluids/grids/EGrid.h"
#include "fluids/grids/Interpolation.h"
#include "host/threads/WorkerPool.h"

namespace orlix {
namespace {

constexpr int kSize = 128;

std::unique_ptr<ScalarGrid> Wave() {
  auto grid = std::make_unique<ScalarGrid>(VecInt3D(kSize, kSize, kSize), Vec3D(kSize), 1.0f, kGridSmoke, Vec3D());
  for (int k = 0; k < kSize; ++k) {
    for (int j = 0; j < kSize; ++j) {
      for (int i = 0; i < kSize; ++i) (*grid)(i, j, k) = 0.5 + 0.4 * std::sin(0.1 * i + 0.07 * j + 0.05 * k);
    }
  }
  return grid;
}

// One sample a cell at a constant offset, in slabs: mode, threads.
void BM_Interpolate(benchmark::State& state) {
  const auto mode = static_cast<Interpolation>(state.range(0));
  WorkerPool pool(static_cast<int>(state.range(1)));
  const auto grid = Wave();
  ScalarGrid out = *grid;
  for (auto _ : state) {
    ParallelRange(pool, 0, kSize, [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        for (int j = 0; j < kSize; ++j) {
          for (int i = 0; i < kSize; ++i) out(i, j, k) = SampleGrid(*grid, i + 0.3, j - 0.2, k + 0.6, mode);
        }
      }
    });
    benchmark::DoNotOptimize(out.data);
  }
  if (std::fabs(out(60, 60, 60) - (*grid)(60, 60, 60)) > 0.1) state.SkipWithError("a wrong sample");
  state.SetItemsProcessed(state.iterations() * grid->count);
  static constexpr const char* kNames[] = {"trilinear", "cosine", "cubic", "monotone cubic", "quadratic B-spline"};
  state.SetLabel(kNames[state.range(0)]);
}
BENCHMARK(BM_Interpolate)->ArgsProduct({{0, 1, 2, 3, 4}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FindActiveBox(benchmark::State& state) {
  WorkerPool pool(static_cast<int>(state.range(0)));
  const auto grid = Wave();
  for (auto _ : state) grid->FindActiveBox(0, 1, false, &pool);
  if (grid->activeMax != VecInt3D(kSize - 1, kSize - 1, kSize - 1)) state.SkipWithError("a wrong box");
  state.SetBytesProcessed(state.iterations() * grid->count * 16);
  state.counters["of triad"] = benchmark::Counter(static_cast<double>(state.iterations() * grid->count * 16) /
                                                      bench::TriadBandwidth(static_cast<int>(state.range(0))),
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FindActiveBox)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Resize(benchmark::State& state) {
  WorkerPool pool(bench::BenchThreads());
  auto grid = Wave();
  GridSpace target = grid->space;
  int side = 0;
  for (auto _ : state) {
    side = 1 - side;
    target.Build({kSize, kSize, kSize}, Vec3D(kSize), 1, Vec3D(side ? 4 : 0, 0, 0));
    if (!ResizeKeepingContent(grid, 0, target.dims, target, &pool)) state.SkipWithError("no memory");
  }
  state.SetBytesProcessed(state.iterations() * grid->count * 24);
  state.counters["of triad"] = benchmark::Counter(
      static_cast<double>(state.iterations() * grid->count * 24) / bench::TriadBandwidth(bench::BenchThreads()),
      benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Resize)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Triad(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(1.0);
  state.counters["GB/s"] = bench::TriadBandwidth(static_cast<int>(state.range(0))) / 1e9;
}
BENCHMARK(BM_Triad)->Arg(1)->Arg(2)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace orlix
