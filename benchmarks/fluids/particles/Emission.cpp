// Emission inside a volume, eight particles a voxel into an empty group, as a sub-step runs it, and a second step that
// finds the volume full. Counts are compared before anything is timed.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "fluids/particle_emitters/ObjectParticleGridEmitter.h"
#include "tests/fluids/particle_emitters/EmissionScene.h"

namespace orlix {
namespace {

constexpr int kEdge = 64;  // voxels

void RunEmitter(test::EmissionScene& scene, int threads) {
  auto& node = *scene.NodeOf<ObjectParticleGridEmitter>(scene.emitter);
  node.Prepare();
  node.Setup();
  scene.pool.Run(threads, [&](int worker) {
    ProcessData data;
    data.threadIndex = worker;
    node.Process(data);
  });
  node.Finish();
}

// Threads, and whether the volume is full already.
void BM_ParticleEmission(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const bool full = state.range(1) != 0;
  test::EmissionScene scene("particlegridemitter", kEdge, threads);
  scene.settings.Set(1006, full ? 0.0 : 1.0);
  scene.Step(0);
  // The links of a step, once more.
  scene.scene().SetStage(kStageStart);
  scene.scene().EvaluateStage();
  auto& group = *scene.NodeOf<ParticleGroup>(scene.group);
  const std::int32_t expected = 8 * kEdge * kEdge * kEdge;
  for (auto _ : state) {
    state.PauseTiming();
    if (!full) group.Clear(false);
    state.ResumeTiming();
    RunEmitter(scene, threads);
    if (group.Count(PK_Liquid) != expected) state.SkipWithError("not eight a voxel");
  }
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["particles/s"] =
      benchmark::Counter(static_cast<double>(std::int64_t(expected) * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParticleEmission)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
