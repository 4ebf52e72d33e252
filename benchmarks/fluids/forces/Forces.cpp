// Forces on a full box, preparation included, beside the machine's bandwidth: "t" counts the times that 8 bytes a cell
// take to move.

#include <benchmark/benchmark.h>

#include <cmath>

#include "benchmarks/Triad.h"
#include "fluids/forces/Force_Buoyancy.h"
#include "fluids/forces/VorticityKernels.h"
#include "host/threads/WorkerPool.h"

namespace orlix {
namespace {

constexpr int kSize = 128;
constexpr VecInt3D kCells{kSize, kSize, kSize};
constexpr double kInverseCellSize = 32, kAmount = 1e-3;

template <class F>
void ForEachRow(WorkerPool& pool, F&& f) {
  ParallelRange(pool, 1, kSize - 1, [&](int first, int last, int) {
    for (int k = first; k < last; ++k) {
      for (int j = 1; j < kSize - 1; ++j) f(j, k);
    }
  });
}

Grid<double> Made(const VecInt3D& dims, double a, double b, double c) {
  Grid<double> grid(dims, kGridScratch);
  for (int k = 0; k < dims.z; ++k) {
    for (int j = 0; j < dims.y; ++j) {
      for (int i = 0; i < dims.x; ++i) grid(i, j, k) = std::sin(a * i) * std::cos(b * j) + std::sin(c * k);
    }
  }
  return grid;
}

void Report(benchmark::State& state, int threads) {
  const std::int64_t cells = CellCount(kCells);
  state.SetItemsProcessed(state.iterations() * cells);
  state.counters["t"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * (static_cast<double>(cells) * 8 / bench::TriadBandwidth(threads)),
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

struct ForceGrids {
  Grid<double> x{kCells, kGridCustom}, y{kCells, kGridCustom}, z{kCells, kGridCustom};
  ForceGrids() { x.Fill(0), y.Fill(0), z.Fill(0); }
  double* row(int axis, int j, int k) {
    Grid<double>& grid = axis == 0 ? x : axis == 1 ? y : z;
    return grid.data + grid.Index(0, j, k);
  }
};

void BM_Swirling(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  WorkerPool pool(threads);
  const Grid<double> u = Made({kSize + 1, kSize, kSize}, 0.11, 0.23, 0.07),
                     v = Made({kSize, kSize + 1, kSize}, 0.19, 0.05, 0.13),
                     w = Made({kSize, kSize, kSize + 1}, 0.07, 0.17, 0.21);
  const MacComponents velocity{u, v, w};
  Grid<double> magnitude(kCells, kGridVorticity);
  ForceGrids force;
  const std::vector<double> amounts(kSize, kAmount);
  const auto run = [&] {
    const Vec3D mean = MeanCurl(velocity, kInverseCellSize, pool);
    CurlMagnitude(velocity, kInverseCellSize, mean, magnitude, pool);
    const Confinement terms{kInverseCellSize, mean, 1e-17, false};
    ForEachRow(pool, [&](int j, int k) {
      AddConfinement(
          velocity, magnitude, terms,
          {1, kSize - 1, j, k, amounts.data(), {force.row(0, j, k), force.row(1, j, k), force.row(2, j, k)}});
    });
  };
  run();
  // n x w is at right angles to w, and no longer than it.
  double x, y, z;
  CurlRow(velocity, kInverseCellSize, MeanCurl(velocity, kInverseCellSize, pool), 40, 50, 60, 61, &x, &y, &z);
  const Vec3D f(force.x(60, 40, 50), force.y(60, 40, 50), force.z(60, 40, 50)), curl(x, y, z);
  if (Length(f) == 0 || std::abs(Dot(f, curl)) > 1e-9 || Length(f) > kAmount * Length(curl)) {
    state.SkipWithError("a wrong force");
  }
  for (auto _ : state) run();
  Report(state, threads);
}
BENCHMARK(BM_Swirling)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Threads, and whether there are density and fuel besides the temperature.
void BM_Buoyancy(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const bool all = state.range(1) != 0;
  WorkerPool pool(threads);
  const Grid<double> temperature = Made(kCells, 0.11, 0.23, 0.07), density = Made(kCells, 0.19, 0.05, 0.13),
                     fuel = Made(kCells, 0.07, 0.17, 0.21);
  ForceGrids force;
  const std::vector<double> amounts(kSize, 1.0);
  BuoyancyTerms terms;
  terms.temperatureFactor = 0.5, terms.densityFactor = -0.25, terms.direction = {0, kAmount, 0};
  const auto run = [&] {
    ForEachRow(pool, [&](int j, int k) {
      const std::int64_t row = temperature.Index(0, j, k);
      AddBuoyancy(terms, {1,
                          kSize - 1,
                          temperature.data + row,
                          density.data + row,
                          all ? fuel.data + row : nullptr,
                          amounts.data(),
                          {force.row(0, j, k), force.row(1, j, k), force.row(2, j, k)}});
    });
  };
  run();
  const double t = temperature(60, 40, 50), d = density(60, 40, 50), g = all ? fuel(60, 40, 50) : 0;
  const double expected = t > 0 || d > 0 ? (t * 0.5 - (d + g) * 0.25) * kAmount : 0;
  if (std::abs(force.y(60, 40, 50) - expected) > 1e-15 || expected == 0) state.SkipWithError("a wrong force");
  for (auto _ : state) run();
  state.SetLabel(all ? "temperature, density, fuel" : "temperature, density");
  Report(state, threads);
}
BENCHMARK(BM_Buoyancy)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
