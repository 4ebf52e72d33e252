// The surface of a level set of 256^3 nodes that passes through a quarter of a million cells, normals and weld
// included.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "fluids/surfacing/SurfaceExtractor.h"

namespace orlix {
namespace {

// A ball with waves on it, about 250,000 cells of surface.
std::unique_ptr<ScalarGrid> WavyBall() {
  constexpr int kCells = 255;
  auto grid = std::make_unique<ScalarGrid>(VecInt3D(kCells + 1, kCells + 1, kCells + 1), Vec3D(1), 1.0f / kCells,
                                           kGridNodalLevelset, Vec3D(-0.5));
  for (int k = 0; k <= kCells; ++k) {
    for (int j = 0; j <= kCells; ++j) {
      for (int i = 0; i <= kCells; ++i) {
        const Vec3D p = Vec3D(i, j, k) / kCells - Vec3D(0.5);
        (*grid)(i, j, k) = Length(p) - 0.4 + 0.01 * std::sin(40 * p.x) * std::sin(40 * p.y) * std::sin(40 * p.z);
      }
    }
  }
  return grid;
}

// Method, threads.
void BM_SurfaceExtraction(benchmark::State& state) {
  static const auto grid = WavyBall();
  WorkerPool pool(static_cast<int>(state.range(1)));
  TriMeshSTL mesh;
  const SurfaceExtractor extractor(*grid, {.method = static_cast<ExtractionMethod>(state.range(0)),
                                           .tolerance = 1e-4 * grid->space.cellSize,
                                           .normals = true});
  for (auto _ : state) {
    if (!extractor.Build(pool, mesh)) state.SkipWithError("too large");
  }
  state.counters["triangles"] = mesh.TriangleCount();
  state.counters["triad GB/s"] = bench::TriadBandwidth(static_cast<int>(state.range(1))) * 1e-9;
}
BENCHMARK(BM_SurfaceExtraction)->ArgsProduct({{0, 1, 2}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
