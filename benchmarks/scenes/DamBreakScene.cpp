// Whole sub-steps of a dam break: the column fills half the width and three quarters of the height of its box, 0.8
// million particles on 64^3 and 6.4 million on 128^3. After 12 steps, medians of the next ones; the pressure goes to
// 1e-3.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>

#include "benchmarks/Triad.h"
#include "tests/support/SceneFileRun.h"

namespace orlix::bench {

namespace {

constexpr int kSettle = 12, kSteps = 9;

double MiddleOf(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + std::ptrdiff_t(values.size() / 2), values.end());
  return values[values.size() / 2];
}

// Counters: milliseconds of the stages, nanoseconds a particle of their motion, bytes a particle.
void BM_DamBreakSubstep(benchmark::State& state) {
  const double cells = static_cast<double>(state.range(1));
  test::SceneFileRun run("benchmarks/scenes/dam_break.json", {"Dam.voxel_size=" + std::to_string(1 / cells)},
                         static_cast<int>(state.range(0)));
  run.StepThrough(0, kSettle);
  int frame = kSettle;
  std::map<int, std::vector<double>> stages;
  std::vector<double> moving;
  for (auto _ : state) {
    run.reports.clear();
    ++frame;
    run.StepThrough(frame, frame);
    const SubstepReport& report = run.reports.at(0);
    state.SetIterationTime(report.seconds);
    for (const auto& [stage, seconds] : report.stageSeconds) stages[stage].push_back(seconds);
    for (const auto& [name, seconds] : report.nodeSeconds) {
      if (name == "Dam/Flow") moving.push_back(seconds);
    }
  }
  const SubstepReport& last = run.reports.back();
  const LiquidReport& liquid = last.liquids.at(0);
  if (run.scene().failure() || liquid.surfaceVolume < 0.36 || liquid.surfaceVolume > 0.45) {
    return state.SkipWithError("the column is no column");
  }
  const auto particles = static_cast<double>(last.particles);
  const auto ms = [&](int stage) { return 1e3 * MiddleOf(stages[stage]); };
  state.counters["particles"] = particles;
  state.counters["level set ms"] = ms(kStageOperators);
  state.counters["to grid ms"] = ms(kStageFluidDynamics);
  state.counters["pressure ms"] = ms(kStagePressure);
  state.counters["to particles ms"] = ms(kStageFlip);
  state.counters["move ns/p"] = 1e9 * MiddleOf(moving) / particles;
  state.counters["iterations"] = last.solvers.at(0).iterations;
  std::int64_t bytes = last.peakBytes;
  for (const ParticleReport& group : last.groups) bytes += group.bytes;
  state.counters["B/p"] = static_cast<double>(bytes) / particles;
  state.counters["triad_GB/s"] = TriadBandwidth(BenchThreads()) / 1e9;
}
BENCHMARK(BM_DamBreakSubstep)
    ->Args({1, 64})
    ->Args({2, 64})
    ->Args({2, 128})
    ->Iterations(kSteps)
    ->Repetitions(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace orlix::bench
