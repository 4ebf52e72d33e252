// A closed mesh of 500,000 triangles on 256^3 cells, set-up included.

#include <benchmark/benchmark.h>

#include "benchmarks/Meshes.h"
#include "benchmarks/Triad.h"
#include "fluids/level_sets/VolumeVoxeliser.h"
#include "host/threads/WorkerPool.h"

namespace orlix {
namespace {

constexpr int kCells = 256;

// Threads, and the mesh: a rough ball, or a smooth one, whose triangles are nearly as near as each other at its middle.
void BM_Voxelise(benchmark::State& state) {
  WorkerPool pool(static_cast<int>(state.range(0)));
  const TriMeshSTL mesh = state.range(1) == 0 ? bench::RoughBall() : bench::Ball();
  ScalarGrid grid(VecInt3D(kCells + 1, kCells + 1, kCells + 1), Vec3D(1), 1.0f / kCells, kGridNodalLevelset,
                  Vec3D(-0.5));
  VolumeVoxeliser voxeliser;
  for (auto _ : state) {
    if (!voxeliser.Run(mesh, grid, pool)) state.SkipWithError("refused");
  }
  if (!(grid(128, 128, 128) < 0) || !(grid(1, 1, 1) > 0)) state.SkipWithError("no inside");
  state.SetLabel(state.range(1) == 0 ? "rough ball" : "ball");
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
}
BENCHMARK(BM_Voxelise)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
