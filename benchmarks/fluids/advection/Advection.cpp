// Advection at 128^3 in a plume-like flow, in multiples of t, the time in which the triad's bandwidth moves 8 bytes a
// cell. Each result is compared with a plain loop before anything is timed.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "fluids/advection/ConservativeAdvection.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

constexpr int kSize = 128;
const VecInt3D kCells(kSize, kSize, kSize);
constexpr Vec3D kMiddle(64, 50, 64);

// Rises in the middle, turns over at the sides, with eddies of a few cells; up to two cells a sub-step.
Vec3D Plume(const Vec3D& p) {
  const Vec3D r = (p - kMiddle) * (1.0 / 40);
  const double rise = std::exp(-(r.x * r.x + r.z * r.z));
  return Vec3D(-r.x * rise * 0.6 + 0.3 * std::sin(0.31 * p.y + 0.17 * p.z),
               1.6 * rise - 0.4 + 0.3 * std::sin(0.23 * p.x),
               -r.z * rise * 0.6 + 0.3 * std::sin(0.27 * p.x - 0.2 * p.y));
}

struct Bench {
  explicit Bench(bool obstacle, int threads) : advection(kCells, Plume, 1.0f / 32), pool(threads) {
    if (obstacle) advection.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(64, 70, 64)) - 18; });
    advection.field.integrator = Integrator::Heun;
    back = advection.field;
    back.dt = -back.dt;
    for (const std::uint32_t type : {kGridVelocityU, kGridVelocityV, kGridVelocityW, kGridSmoke}) {
      grids.push_back(test::MakeGrid(kCells, type, advection.h));
      results.push_back(test::MakeGrid(kCells, type, advection.h));
      results.back()->Fill(0);
      if (type == kGridSmoke) continue;
      std::copy_n(advection.components[type]->data, grids.back()->count, grids.back()->data);
    }
    // Smoke in a sphere of this radius, in cells.
    SetSmoke(1000);
  }
  void SetSmoke(double radius) {
    test::FillSamples(*grids[3], [&](const Vec3D& p) {
      return Length(p - kMiddle) < radius ? 1 + 0.5 * std::sin(0.4 * p.x + 0.3 * p.y) * std::cos(0.35 * p.z) : 0;
    });
  }
  AdvectionSource Source(std::size_t which) {
    AdvectionSource source = advection.Source(*grids[which], AdvectionSampling::Trilinear);
    masks[which] = advection.mask;
    source.insideSolid = &masks[which];
    return source;
  }
  MacCormackScratch Scratch(std::size_t which) {
    return {{forward.data, grids[which]->dims}, {traced.data, grids[which]->dims}};
  }

  test::AdvectionBench advection;
  WorkerPool pool;
  AdvectionField back;
  std::vector<std::unique_ptr<ScalarGrid>> grids, results;
  CellMask masks[4];
  Grid<double> forward{{kSize + 1, kSize + 1, kSize + 1}, kGridScratch};
  Grid<std::int32_t> traced{{kSize + 1, kSize + 1, kSize + 1}, kGridScratch};
};

void Report(benchmark::State& state) {
  const double t = bench::CellTime(CellCount(kCells));
  state.counters["t"] = benchmark::Counter(t * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["cells/s"] =
      benchmark::Counter(static_cast<double>(CellCount(kCells) * state.iterations()), benchmark::Counter::kIsRate);
}

bool Same(const Grid<double>& a, const Grid<double>& b) {
  return std::memcmp(a.data, b.data, static_cast<std::size_t>(a.count) * sizeof(double)) == 0;
}

// Grids [first, last): 0 to 3 the velocity's components, 3 the smoke.
void Time(benchmark::State& state, bool macCormack, std::size_t first, std::size_t last) {
  Bench bench(state.range(1) != 0, static_cast<int>(state.range(0)));
  std::vector<AdvectionSource> sources;
  for (std::size_t g = first; g < last; ++g) sources.push_back(bench.Source(g));
  const auto run = [&] {
    for (std::size_t g = first; g < last; ++g) {
      if (macCormack) {
        AdvectMacCormack(bench.advection.field, sources[g - first], {}, *bench.results[g], bench.Scratch(g),
                         bench.pool);
      } else {
        AdvectSemiLagrangian(bench.back, sources[g - first], *bench.results[g], bench.pool);
      }
    }
  };
  run();
  ScalarGrid expected = *bench.results[last - 1];
  if (macCormack) {
    test::PlainMacCormack(bench.advection.field, sources.back(), 1, expected);
  } else {
    test::PlainSemiLagrangian(bench.back, sources.back(), expected);
  }
  if (!Same(*bench.results[last - 1], expected)) state.SkipWithError("not the plain loop's bits");
  for (auto _ : state) run();
  Report(state);
}

// Threads, and whether an obstacle stands in the flow.
void BM_AdvectScalar(benchmark::State& state) { Time(state, false, 3, 4); }
void BM_AdvectVelocity(benchmark::State& state) { Time(state, false, 0, 3); }
void BM_MacCormackScalar(benchmark::State& state) { Time(state, true, 3, 4); }
void BM_MacCormackVelocity(benchmark::State& state) { Time(state, true, 0, 3); }

// With the error term smoothed.
void BM_MacCormackScalarSmoothed(benchmark::State& state) {
  Bench bench(state.range(1) != 0, static_cast<int>(state.range(0)));
  const AdvectionSource source = bench.Source(3);
  for (auto _ : state) {
    AdvectMacCormack(bench.advection.field, source, {1, true}, *bench.results[3], bench.Scratch(3), bench.pool);
  }
  Report(state);
}

// Threads, and the radius of the smoke in cells: cells that it can't reach aren't traced.
void BM_MacCormackOfAPlume(benchmark::State& state) {
  Bench bench(false, static_cast<int>(state.range(0)));
  bench.SetSmoke(static_cast<double>(state.range(1)));
  AdvectionSource source = bench.Source(3);
  const auto run = [&] {
    source.content = FindContent(*bench.grids[3], bench.pool);
    AdvectMacCormack(bench.advection.field, source, {}, *bench.results[3], bench.Scratch(3), bench.pool);
  };
  run();
  ScalarGrid expected = *bench.results[3];
  test::PlainMacCormack(bench.advection.field, source, 1, expected);
  for (std::int64_t c = 0; c < expected.count; ++c) {
    if (expected[c] != (*bench.results[3])[c]) state.SkipWithError("not what the plain loop gives");
  }
  for (auto _ : state) run();
  Report(state);
}

void BM_Conservative(benchmark::State& state) {
  Bench bench(false, static_cast<int>(state.range(0)));
  const AdvectionSource source = bench.Source(3);
  ScratchPool scratch;
  Grid<double> ones(kCells, kGridScratch), gamma(kCells, kGridScratch);
  ones.Fill(1);
  const auto run = [&] {
    AdvectConservative(bench.advection.field, source, {ones, gamma, {}, {}}, *bench.results[3], scratch, bench.pool);
  };
  run();
  if (!((*bench.results[3])(64, 64, 64) > 0.3)) state.SkipWithError("no smoke where it was carried");
  for (auto _ : state) run();
  Report(state);
}

#define ORLIX_ADVECTION_BENCHMARK(name) \
  BENCHMARK(name)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime()
ORLIX_ADVECTION_BENCHMARK(BM_AdvectScalar);
ORLIX_ADVECTION_BENCHMARK(BM_AdvectVelocity);
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackScalar);
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackScalarSmoothed);
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackVelocity);
BENCHMARK(BM_MacCormackOfAPlume)->ArgsProduct({{2}, {20, 35}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Conservative)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
