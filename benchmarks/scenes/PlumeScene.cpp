// Whole sub-steps of a plume, stage by stage as a user's scene runs them: after 40 frames, medians of the next ones.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "benchmarks/Triad.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/volume_renderer/GasMaterial.h"
#include "host/render/GatherRenderWorld.h"
#include "host/render/Renderer.h"
#include "tests/support/SceneFileRun.h"

namespace orlix::bench {

namespace {

constexpr int kStart = 40, kFrames = 9;
constexpr double kContainerCells = 128 * 128 * 128;
constexpr const char* kScene = "benchmarks/scenes/plume.json";

double MedianOf(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Smoke is somewhere, and no value is negative or beyond its channel's limit.
bool LooksRight(test::SceneFileRun& run) {
  const ScalarGrid& smoke = *run.Get<ScalarGridChannel>("Plume/smoke").grid;
  double least = 0, most = 0;
  for (std::int64_t i = 0; i < smoke.count; ++i) least = std::min(least, smoke[i]), most = std::max(most, smoke[i]);
  return least >= 0 && most > 0.1 && most <= 10;
}

// Sub-steps of the frames after `start`. The time is the mean. Counters: medians of what each node took, in t, and of
// the whole sub-step; the share of the container that is in the box, on average; bytes a cell.
void Substep(benchmark::State& state, const std::vector<std::string>& overrides, int start = kStart) {
  test::SceneFileRun run(kScene, overrides, static_cast<int>(state.range(0)));
  run.StepThrough(0, start);
  int frame = start;
  std::map<std::string, std::vector<double>> nodes;
  std::vector<double> totals;
  double boxes = 0;
  for (auto _ : state) {
    run.reports.clear();
    ++frame;
    run.StepThrough(frame, frame);
    double seconds = 0;
    for (const SubstepReport& report : run.reports) {
      seconds += report.seconds;
      totals.push_back(report.seconds);
      boxes += static_cast<double>(report.cells);
      std::map<std::string, double> sums;
      for (const auto& [name, took] : report.nodeSeconds) sums[name] += took;
      for (const auto& [name, took] : sums) nodes[name].push_back(took);
    }
    state.SetIterationTime(seconds / static_cast<double>(run.reports.size()));
  }
  if (run.scene().failure() || !LooksRight(run)) return state.SkipWithError("the plume is no plume");
  const SubstepReport& last = run.reports.back();
  const double t = CellTime(last.cells);
  for (const auto& [name, seconds] : nodes) {
    const double median = MedianOf(seconds) / t;
    if (median >= 0.5) state.counters[name.substr(name.find('/') + 1) + " t"] = median;
  }
  state.counters["sub-step t"] = MedianOf(totals) / t;
  state.counters["cells"] = static_cast<double>(last.cells);
  state.counters["in the box"] = boxes / static_cast<double>(totals.size()) / kContainerCells;
  state.counters["peak B/cell"] = static_cast<double>(last.peakBytes) / static_cast<double>(last.cells);
  for (const SolverReport& solver : last.solvers) state.counters["iterations"] = solver.iterations;
}

void BM_PlumeSubstep(benchmark::State& state) { Substep(state, {}); }
void BM_PlumeSubstepTo1e6(benchmark::State& state) { Substep(state, {"Plume/Air.pressure_accuracy=0.35"}); }
// The same container, of which the tenth around the smoke is computed. Threads, and the frame from which on: a tenth of
// the container is in the box on average from 35 on, 11% from 40 on.
void BM_PlumeSubstepOfATenth(benchmark::State& state) {
  Substep(state, {"Plume/Air.margin=5"}, static_cast<int>(state.range(1)));
}

// A picture of the plume, 640 x 480, steps of one cell. Counters: seconds of what is made before the first ray and of
// the march apart, rays and samples of the gas a second.
void PictureOfPlume(benchmark::State& state, int workers, const std::vector<std::string>& overrides, int lights,
                    int samples) {
  test::SceneFileRun run(kScene, overrides, workers);
  run.StepThrough(0, kStart);
  const auto materials = CollectGasMaterials(*run.document, run.hook);
  RenderWorld world;
  if (materials.size() != 1 || !GatherRenderWorld(*run.document, {}, world).ok() || world.lights.empty()) {
    return state.SkipWithError("the scene shows no gas");
  }
  world.volumes.push_back(materials[0].get());
  world.settings.samples = samples;
  for (int n = 1; n < lights; ++n) {
    Light light = world.lights.front();
    light.kind = LightKind::Distant;
    light.direction = Normalized(Vec3D(std::cos(0.8 * n), -0.7, std::sin(0.8 * n)));
    world.lights.push_back(light);
  }
  RenderReport report;
  std::vector<double> maps, rays;
  for (auto _ : state) {
    const Result<Picture> picture = RenderPicture(world, run.pool, {}, &report);
    state.SetIterationTime(report.startSeconds + report.raySeconds);
    maps.push_back(report.startSeconds);
    rays.push_back(report.raySeconds);
    if (!picture.ok() || report.volumeCalls == 0) return state.SkipWithError("no picture");
  }
  state.counters["map s"] = MedianOf(maps);
  state.counters["march s"] = MedianOf(rays);
  state.counters["samples/s"] = static_cast<double>(report.volumeSamples) / MedianOf(rays);
  state.counters["rays/s"] = static_cast<double>(report.cameraRays) / MedianOf(rays);
}

// One light and its shadows, one sample a pixel: threads.
void BM_PlumePicture(benchmark::State& state) { PictureOfPlume(state, static_cast<int>(state.range(0)), {}, 1, 1); }

// The same with light that scatters many times; lights and samples in the list. Eight lights: fire lights the smoke,
// too.
void BM_ScatteringPicture(benchmark::State& state) {
  const int lights = static_cast<int>(state.range(0));
  std::vector<std::string> overrides = {"Smoke look.multiple_scattering=true", "Smoke look.scatter_use_phase=false",
                                        "Smoke look.scatter_length_scale=0.001"};
  if (lights > 1) {
    overrides.insert(overrides.end(), {"Smoke look.temperature=Plume/temperature", "Smoke look.flame_threshold=500",
                                       "Smoke look.fire_light_strength=1", "Smoke look.glow_on_surfaces=true"});
  }
  PictureOfPlume(state, 2, overrides, lights, static_cast<int>(state.range(1)));
}

// Medians are taken within: once is enough.
void Once(benchmark::internal::Benchmark* bench) {
  bench->Iterations(kFrames)->Repetitions(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_PlumeSubstep)->Arg(1)->Arg(2)->Apply(Once);
BENCHMARK(BM_PlumeSubstepTo1e6)->Arg(2)->Apply(Once);
BENCHMARK(BM_PlumeSubstepOfATenth)->Args({2, 35})->Args({2, 40})->Apply(Once);
BENCHMARK(BM_PlumePicture)->Arg(1)->Arg(2)->Apply(Once);
BENCHMARK(BM_ScatteringPicture)->Args({1, 1})->Args({1, 4})->Args({8, 1})->Apply(Once);

}  // namespace

}  // namespace orlix::bench
