// Ten rounds of each flow over the narrow band of a ball of a quarter million surface cells in 256^3 nodes, in
// multiples of t: the time in which the triad's bandwidth moves 8 bytes a node of the whole grid. Laplacian rounds: at
// most 0.25 s.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "fluids/surfacing/LevelSetSmoothing.h"

namespace orlix {
namespace {

constexpr int kNodes = 256;

// Threads, and whether the flow is the biharmonic one, which makes distances anew first.
void BM_Smoothing(benchmark::State& state) {
  WorkerPool pool(static_cast<int>(state.range(0)));
  ScratchPool scratch;
  ScalarGrid grid(VecInt3D(kNodes, kNodes, kNodes), Vec3D(kNodes - 1), 1.0f, kGridNodalLevelset, Vec3D());
  for (std::int64_t c = 0; c < grid.count; ++c) {
    const VecInt3D at(int(c % kNodes), int(c / kNodes % kNodes), int(c / grid.slab));
    grid[c] = Length(Vec3D(at) - Vec3D(127.3)) - 115 + 0.2 * std::sin(at.x * 0.9 + at.y * 0.7);
  }
  SmoothingSettings settings;
  settings.laplacianRounds = state.range(1) ? 0 : 10;
  settings.biharmonicRounds = state.range(1) ? 10 : 0;
  settings.above = 0.43, settings.below = -0.43;
  for (auto _ : state) SmoothLevelSet(pool, scratch, settings, grid);
  if (!(grid(127, 127, 127) < -50) || !(grid(127, 127, 3) > 0)) state.SkipWithError("not a ball");
  state.counters["t"] = benchmark::Counter(bench::CellTime(grid.count) * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
}
BENCHMARK(BM_Smoothing)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
