// What bodies add to a liquid: sub-steps of the dam break on 64^3 with 200 spheres of 2,000 triangles, and without, in
// turns of one run. Half of them swim in the column, half lie on the ground beside it.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "benchmarks/Triad.h"
#include "tests/support/SceneFileRun.h"

namespace orlix::bench {

namespace {

constexpr int kWarm = 6, kTurns = 7;

std::string TextOf(const std::string& file) {
  std::ifstream in(std::filesystem::path(SourceFolder()) / file);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string WithBodies(std::string text, int count, bool driven) {
  std::string objects, names;
  for (int n = 0; n < count; ++n) {
    const int layer = n / 50, cell = n % 50;
    const double x = layer < 2 ? 8 + 8.0 * (cell % 5) : 56 + 8.0 * (cell % 5), z = 6 + 9.5 * (cell / 5);
    const double y = layer < 2 ? 20 + 25.0 * layer : 4 + 8.0 * (layer - 2);
    const std::string name = "Ball " + std::to_string(n);
    objects += R"({"type": "sphere", "name": ")" + name + R"(", "segments": 46, "radius": 3, "position": [)" +
               std::to_string(x) + ", " + std::to_string(y) + ", " + std::to_string(z) + "]},\n";
    names += (n ? ", \"" : "\"") + name + "\"";
  }
  const std::string at = R"({ "type": "scene")";
  text.insert(text.find(at), objects);
  const std::string children = R"("children": [)";
  text.insert(text.find(children) + children.size(),
              R"({"type": "volume_multi", "name": "Balls", "objects": [)" + names +
                  R"(], "tags": [{"type": "c4d_obstacle", "driven": )" + (driven ? "true" : "false") +
                  R"(, "mass_mode": "density", "density": 500, "margin": 0.001, "inertia": "solid"}]},)");
  const std::string scene = R"("name": "Dam",)";
  return text.insert(text.find(scene) + scene.size(), R"("rigid_walls": true, "rigid_slop": 0.001,)");
}

double MiddleOfTimes(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + std::ptrdiff_t(values.size() / 2), values.end());
  return values[values.size() / 2];
}

// Counters: milliseconds of a sub-step without and with bodies, and the ratio; stages of the one with them. The second
// argument says whether they stand still.
void BM_BodiesInDamBreak(benchmark::State& state) {
  const auto page = std::filesystem::temp_directory_path() / ("orlix_bodies_" + std::to_string(getpid()) + ".json");
  const std::string plain = TextOf("benchmarks/scenes/dam_break.json");
  std::ofstream(page) << WithBodies(plain, 200, state.range(1) != 0);
  test::SceneFileRun without("benchmarks/scenes/dam_break.json", {}, static_cast<int>(state.range(0)));
  test::SceneFileRun with(page.string(), {}, static_cast<int>(state.range(0)));
  std::filesystem::remove(page);
  without.StepThrough(0, kWarm), with.StepThrough(0, kWarm);
  std::vector<double> bare, loaded, ratios, volumes, pressure, surface, boundary;
  int frame = kWarm;
  for (auto _ : state) {
    ++frame;
    without.StepThrough(frame, frame), with.StepThrough(frame, frame);
    bare.push_back(without.reports.back().seconds), loaded.push_back(with.reports.back().seconds);
    ratios.push_back(loaded.back() / bare.back());
    for (const auto& [stage, seconds] : with.reports.back().stageSeconds) {
      if (stage == kStageVolumes) volumes.push_back(seconds);
      if (stage == kStagePressure) pressure.push_back(seconds);
      if (stage == kStageOperators) surface.push_back(seconds);
      if (stage == kStageEmitters) boundary.push_back(seconds);
    }
    state.SetIterationTime(loaded.back());
  }
  state.counters["without ms"] = 1e3 * MiddleOfTimes(bare);
  state.counters["with ms"] = 1e3 * MiddleOfTimes(loaded);
  state.counters["ratio"] = MiddleOfTimes(ratios);
  state.counters["volumes ms"] = 1e3 * MiddleOfTimes(volumes);
  state.counters["boundary ms"] = 1e3 * MiddleOfTimes(boundary);
  state.counters["pressure ms"] = 1e3 * MiddleOfTimes(pressure);
  state.counters["iterations"] = with.reports.back().solvers.at(0).iterations;
  state.counters["level set ms"] = 1e3 * MiddleOfTimes(surface);
}
BENCHMARK(BM_BodiesInDamBreak)
    ->Args({2, 0})
    ->Args({2, 1})
    ->Iterations(kTurns)
    ->Repetitions(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace orlix::bench
