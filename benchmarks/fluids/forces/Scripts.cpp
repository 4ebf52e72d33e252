// A force whose formula is a script, on a full box: what a cell takes, with the reading of its velocity and the writing
// of the force, beside the machine's bandwidth ("t" counts the times that 8 bytes a cell take to move).

#include <benchmark/benchmark.h>

#include <cmath>

#include "benchmarks/Triad.h"
#include "fluids/forces/Force_Coffee.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

constexpr int kSize = 128;

struct Formula {
  const char* label;
  const char* script;  // null for the default
};

constexpr Formula kFormulas[] = {
    {"the default: a drag", nullptr},
    {"a vortex in a column",
     "main(op) { var r = vector(physical_pos.x - 16, 0, physical_pos.z - 16), d = length(r);"
     "if (d > 12) return vector(0, 0, 0);"
     "return cross(vector(0, 1, 0), r) * (intensity * smoothstep(12, 4, d)) - cell_velocity * (intensity * exp(-d)); "
     "}"},
    {"three octaves of noise",
     "main(op) { var sum = 0, size = 1, p = physical_pos;"
     "for (var i = 0; i < 3; i++) { sum += (Noise(p) - 0.5) * size; p = p * 2; size /= 2; }"
     "return vector(sum, 0, 0) * intensity; }"},
};

void BM_ScriptForce(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const Formula& formula = kFormulas[state.range(1)];
  test::ForceRig rig("force_coffee", {kSize, kSize, kSize}, threads);
  if (formula.script) rig.object.Set(C4D_CoffeeGui::kScriptId, std::string(formula.script));
  rig.Ready();
  rig.SetVelocity([](const Vec3D& p) { return Vec3D(std::sin(p.y), std::cos(p.z), std::sin(p.x)); });
  if (!rig.Run() || Length(rig.At(60, 40, 50)) == 0) state.SkipWithError("the script doesn't run");
  auto& node = rig.Get<Force>(rig.object);
  const GridSpace& space = rig.velocity.grids[0]->space;
  alignas(16) static char boundary[16];  // nothing of it is asked
  for (auto _ : state) {
    node.AttachVelocity(&rig.velocity, reinterpret_cast<GridBoundary*>(boundary));
    node.Prepare();
    ParallelRange(rig.pool, 1, kSize - 1, [&](int begin, int end, int worker) {
      for (int k = begin; k < end; ++k) {
        for (int j = 1; j < kSize - 1; ++j) {
          const auto row = [&](Grid<double>& grid) { return grid.data + grid.Index(0, j, k); };
          node.ProcessRow(
              {1, kSize - 1, j, k, worker, &space, row(*rig.force[0]), row(*rig.force[1]), row(*rig.force[2])});
        }
      }
    });
    node.Finish();
  }
  constexpr double kCellCount = double(kSize - 2) * (kSize - 2) * (kSize - 2);
  state.SetLabel(formula.label);
  state.counters["ns_a_cell"] = benchmark::Counter(double(state.iterations()) * kCellCount * 1e-9,
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["t"] =
      benchmark::Counter(double(state.iterations()) * (kCellCount * 8 / bench::TriadBandwidth(threads)),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ScriptForce)->ArgsProduct({{1, 2}, {0, 1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
