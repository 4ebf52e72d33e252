// A million diffuse particles on a dam break of 64^3 cells: what whitewater adds to a frame, births, changes of class
// and motion. At most 0.35 s with two threads.

#include <benchmark/benchmark.h>

#include <chrono>

#include "benchmarks/Triad.h"
#include "fluids/foam/FoamSprayBubbles.h"
#include "tests/support/SceneFileRun.h"

namespace orlix::bench {

namespace {

constexpr std::int32_t kWanted = 1000000;
constexpr int kMostFrames = 40;

// Both rounds, as the stage runs them.
void RunWhitewater(FoamSprayBubbles& node) {
  ProcessData data;
  while (node.NextIteration()) {
    node.Prepare();
    if (node.IsActive()) node.Process(data);
    node.Finish();
  }
}

void BM_WhitewaterFrame(benchmark::State& state) {
  test::SceneFileRun run("benchmarks/scenes/whitewater.json", {}, static_cast<int>(state.range(0)));
  int frame = 0;
  const auto diffuse = [&] { return run.Get<ParticleGroup>("Water").Count(PK_Diffuse); };
  while (frame < kMostFrames && (frame < 2 || diffuse() < kWanted)) run.StepThrough(frame, frame), ++frame;
  double born = 0;
  for (auto _ : state) {
    run.reports.clear();
    run.StepThrough(frame, frame);
    ++frame;
    double seconds = 0;
    for (const SubstepReport& report : run.reports) {
      for (const auto& [name, each] : report.nodeSeconds) seconds += name == "Dam/Drift" ? each : 0;
    }
    run.scene().CheckDirty();
    auto& node = run.Get<FoamSprayBubbles>("Whitewater");
    node.Reread();
    node.ResolveLinks();
    const std::int32_t before = diffuse();
    const auto start = std::chrono::steady_clock::now();
    RunWhitewater(node);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    born += diffuse() - before;
    state.SetIterationTime(seconds);
  }
  if (diffuse() < kWanted || born == 0) return state.SkipWithError("too little whitewater");
  state.counters["diffuse"] = diffuse();
  state.counters["born"] = born / static_cast<double>(state.iterations());
  state.counters["liquid"] = run.Get<ParticleGroup>("Water").Count(PK_Liquid);
  state.counters["triad_GB/s"] = TriadBandwidth(BenchThreads()) / 1e9;
}
BENCHMARK(BM_WhitewaterFrame)->Arg(1)->Arg(2)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace orlix::bench
