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
    for (const std::uint32_t type : {kGridVelocityU, kGridVelocityV, kGridVelocityW, kGridSmoke, kGridTemperature}) {
      forward.emplace_back(kCells + VecInt3D(1, 1, 1), kGridScratch);
      traced.emplace_back(kCells + VecInt3D(1, 1, 1), kGridScratch);
      grids.push_back(test::MakeGrid(kCells, type, advection.h));
      results.push_back(test::MakeGrid(kCells, type, advection.h));
      results.back()->Fill(0);
      if (type > kGridVelocityW) continue;
      std::copy_n(advection.components[type]->data, grids.back()->count, grids.back()->data);
    }
    // Smoke in a sphere of this radius, in cells.
    SetSmoke(1000);
  }
  void SetSmoke(double radius) {
    for (const std::size_t which : {3, 4}) {
      const double phase = static_cast<double>(which);
      test::FillSamples(*grids[which], [&](const Vec3D& p) {
        const double wave = std::sin(0.4 * p.x + 0.3 * p.y + phase) * std::cos(0.35 * p.z);
        return Length(p - kMiddle) < radius ? 1 + 0.5 * wave : 0;
      });
    }
  }
  AdvectionSource Source(std::size_t which) {
    AdvectionSource source = advection.Source(*grids[which], AdvectionSampling::Trilinear);
    // Scalars share one.
    CellMask& mask = masks[std::min<std::size_t>(which, 3)];
    mask = advection.mask;
    source.insideSolid = &mask;
    return source;
  }
  Advected Quantity(std::size_t which) {
    const VecInt3D& n = grids[which]->dims;
    return {Source(which), *results[which], {}, {{forward[which].data, n}, {traced[which].data, n}}};
  }

  test::AdvectionBench advection;
  WorkerPool pool;
  AdvectionField back;
  std::vector<std::unique_ptr<ScalarGrid>> grids, results;
  CellMask masks[4];
  std::vector<Grid<double>> forward;
  std::vector<Grid<std::int32_t>> traced;
};

void Report(benchmark::State& state) {
  const double t = bench::CellTime(CellCount(kCells));
  state.counters["t"] = benchmark::Counter(t * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["cells/s"] =
      benchmark::Counter(static_cast<double>(CellCount(kCells) * state.iterations()), benchmark::Counter::kIsRate);
}

// Grids [first, last): 0 to 3 the velocity's components, 3 and 4 the scalars. Scalars are zero from the radius on, and
// then their content is looked for each time.
void Time(benchmark::State& state, bool macCormack, std::size_t first, std::size_t last, double radius = 0,
          bool smoothed = false) {
  Bench bench(state.range(1) != 0, static_cast<int>(state.range(0)));
  if (radius > 0) bench.SetSmoke(radius);
  std::vector<Advected> quantities;
  for (std::size_t g = first; g < last; ++g) {
    quantities.push_back(bench.Quantity(g));
    quantities.back().correction.smoothed = smoothed;
  }
  const auto run = [&] {
    if (radius > 0) {
      for (Advected& quantity : quantities) quantity.source.content = FindContent(quantity.source.values, bench.pool);
    }
    if (macCormack) {
      AdvectMacCormack(bench.advection.field, quantities, bench.pool);
    } else {
      AdvectSemiLagrangian(bench.back, quantities, bench.pool);
    }
  };
  run();
  for (const Advected& quantity : quantities) {
    if (smoothed) break;
    Grid<double> expected(quantity.result.dims, kGridScratch);
    std::copy_n(quantity.result.data, expected.count, expected.data);
    if (macCormack) {
      test::PlainMacCormack(bench.advection.field, quantity.source, 1, expected);
    } else {
      test::PlainSemiLagrangian(bench.back, quantity.source, expected);
    }
    for (std::int64_t c = 0; c < expected.count; ++c) {
      if (expected[c] != quantity.result[c]) state.SkipWithError("not what the plain loop gives");
    }
  }
  for (auto _ : state) run();
  Report(state);
}

// Threads, and whether an obstacle stands in the flow.
void BM_AdvectScalar(benchmark::State& state) { Time(state, false, 3, 4); }
void BM_AdvectVelocity(benchmark::State& state) { Time(state, false, 0, 3); }
void BM_MacCormackScalar(benchmark::State& state) { Time(state, true, 3, 4); }
void BM_MacCormackTwoScalars(benchmark::State& state) { Time(state, true, 3, 5); }
void BM_MacCormackVelocity(benchmark::State& state) { Time(state, true, 0, 3); }
// With the error term smoothed.
void BM_MacCormackScalarSmoothed(benchmark::State& state) { Time(state, true, 3, 4, 0, true); }

// Threads, whether an obstacle stands in the flow, and the radius of the smoke in cells: 35 are 8.6% of the container.
// Cells that it can't reach aren't traced.
void BM_MacCormackOfAPlume(benchmark::State& state) { Time(state, true, 3, 4, static_cast<double>(state.range(2))); }

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
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackTwoScalars);
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackScalarSmoothed);
ORLIX_ADVECTION_BENCHMARK(BM_MacCormackVelocity);
BENCHMARK(BM_MacCormackOfAPlume)->ArgsProduct({{2}, {0}, {20, 35}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Conservative)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
