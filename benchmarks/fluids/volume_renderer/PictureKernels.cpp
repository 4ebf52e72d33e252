// What pictures are made of: noise in points a second, rays of surfaces a second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "host/noise/Noise.h"
#include "host/render/Renderer.h"

namespace orlix {
namespace {

// Rows of 128 points, three octaves; time between two layers of the lattice: type in the list.
void BM_NoiseRow(benchmark::State& state) {
  const NoiseTypeInfo& type = kNoiseTypes[static_cast<std::size_t>(state.range(0))];
  const Noise noise(3);
  std::vector<double> row(128);
  int line = 0;
  for (auto _ : state) {
    noise.SampleRow(type.type, {0, 0.1 * line++, 0.3}, {0.05, 0, 0}, {.time = 0.5}, row);
    benchmark::DoNotOptimize(row.data());
  }
  for (const double v : row) {
    if (!(v >= 0 && v <= 1)) state.SkipWithError("a value out of range");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(row.size()));
  state.SetLabel(type.key);
}
BENCHMARK(BM_NoiseRow)->DenseRange(0, static_cast<int>(kNoiseTypes.size()) - 1);

// A wavy sheet of 2 x 256 x 256 triangles under one light with shadows, 640 x 480, one sample a pixel: threads.
void BM_SurfacePicture(benchmark::State& state) {
  constexpr int kSide = 257;
  PolygonObject sheet;
  for (int j = 0; j < kSide; ++j) {
    for (int i = 0; i < kSide; ++i) {
      sheet.points.push_back({i / 32.0 - 4, 0.2 * std::sin(0.15 * i) * std::cos(0.11 * j), j / 32.0 - 4});
    }
  }
  for (int j = 0; j + 1 < kSide; ++j) {
    for (int i = 0; i + 1 < kSide; ++i) {
      const int a = j * kSide + i;
      sheet.polygons.push_back({a, a + kSide, a + kSide + 1, a + 1});
    }
  }
  RenderWorld world;
  world.settings.width = 640, world.settings.height = 480, world.settings.samples = 1, world.settings.skySamples = 2;
  Surface surface;
  surface.polygons = &sheet;
  if (!world.surfaces.Build({surface})) return state.SkipWithError("no surfaces");
  world.camera.position = {0, 4, 7};
  world.camera.LookAt({0, 0, 0}, {0, 1, 0});
  Light sun;
  sun.kind = LightKind::Distant, sun.direction = Normalized(Vec3D{1, -0.5, 0});
  world.lights.push_back(sun);
  WorkerPool pool(static_cast<int>(state.range(0)));
  RenderReport report;
  std::uint64_t rays = 0;
  for (auto _ : state) {
    if (!RenderPicture(world, pool, {}, &report) || report.shadowRays == 0) state.SkipWithError("no picture");
    rays += report.cameraRays + report.shadowRays + report.gatherRays;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(rays));
}
BENCHMARK(BM_SurfacePicture)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
