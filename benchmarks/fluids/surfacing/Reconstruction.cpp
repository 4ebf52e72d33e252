// A level set from 0.77 million particles, eight a cell of the solver, on twice its resolution, in multiples of t: the
// time in which the triad's bandwidth moves 8 bytes a node. Spheres at most 0.5 s, the anisotropic kind 1.5 s. A value
// is compared with a plain loop before anything is timed.

#include <benchmark/benchmark.h>

#include <random>

#include "benchmarks/Triad.h"
#include "fluids/surfacing/PointsToImplicitGrid.h"

namespace orlix {
namespace {

constexpr int kSide = 92;       // particles
constexpr int kMargin = 6;      // nodes
constexpr float kCell = 0.05f;  // of the level set, m

struct Setting {
  Setting() {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitter(0, 1);
    for (int n = 0; n < kSide * kSide * kSide; ++n) {
      const Vec3D lattice(n % kSide, n / kSide % kSide, n / kSide / kSide);
      places.push_back((lattice + Vec3D(kMargin) + Vec3D(jitter(random), jitter(random), jitter(random))) * kCell);
    }
    std::shuffle(places.begin(), places.end(), random);
    for (const Vec3D& p : places) balls.push_back({p, {}}), ratios.push_back(0.02);
    const int nodes = kSide + 2 * kMargin + 1;
    grid = std::make_unique<ScalarGrid>(VecInt3D(nodes, nodes, nodes), Vec3D((nodes - 1) * kCell), kCell,
                                        kGridNodalLevelset, Vec3D());
  }
  std::vector<Vec3D> places;
  std::vector<StretchedBall> balls;
  std::vector<double> ratios;
  std::unique_ptr<ScalarGrid> grid;
};

// The mean of the nearest, by a sort.
double PlainSphere(const Setting& setting, const ReconstructionSettings& settings, const Vec3D& x) {
  std::vector<std::pair<double, std::size_t>> near;
  for (std::size_t n = 0; n < setting.places.size(); ++n) near.emplace_back(LengthSquared(setting.places[n] - x), n);
  std::sort(near.begin(), near.end());
  double sum = 0;
  Vec3D mean;
  for (int n = 0; n < settings.maxNeighbours; ++n) {
    const double s = near[std::size_t(n)].first / (settings.SearchRadius() * settings.SearchRadius());
    const double w = s < 1 ? std::pow(1 - s * s, 3) : 0;
    sum += w, mean += setting.places[near[std::size_t(n)].second] * w;
  }
  return Length(x - mean / sum) - settings.Radius();
}

// Threads, the method, and whether spheres shrink by density.
void BM_Reconstruction(benchmark::State& state) {
  static Setting setting;
  WorkerPool pool(static_cast<int>(state.range(0)));
  ReconstructionSettings settings;
  settings.method = static_cast<ReconstructionMethod>(state.range(1));
  settings.particleRadius = kCell;
  settings.densityCorrection = state.range(2) != 0;
  const auto run = [&] {
    PointsToImplicitGrid(pool, settings, {setting.places, setting.ratios, setting.balls}, 1e3, *setting.grid);
  };
  run();
  const VecInt3D node(40, 50, 60);
  const double expected = PlainSphere(setting, settings, setting.grid->space.SimOfVoxel(Vec3D(node)));
  if (settings.method == ReconstructionMethod::Spherical && !settings.densityCorrection &&
      std::abs((*setting.grid)(node.x, node.y, node.z) - expected) > 1e-9) {
    state.SkipWithError("not what a plain loop gives");
  }
  for (auto _ : state) run();
  const double t = bench::CellTime(setting.grid->count);
  state.counters["t"] = benchmark::Counter(t * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["particles/s"] = benchmark::Counter(
      static_cast<double>(std::int64_t(setting.places.size()) * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Reconstruction)
    ->ArgsProduct({{1, 2}, {0}, {0, 1}})
    ->ArgsProduct({{1, 2}, {1, 2}, {0}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace orlix
