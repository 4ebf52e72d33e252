// Values from grids to particles, and from particles to grids, in multiples of t: the time in which the triad's
// bandwidth moves 8 bytes a particle. Two million particles stand eight a cell, in the order of an emitter.

#include <benchmark/benchmark.h>

#include <random>

#include "benchmarks/Triad.h"
#include "fluids/particle_exchange/ParticleGather.h"
#include "fluids/particle_exchange/PointSampler.h"

namespace orlix {
namespace {

constexpr int kSize = 64;
constexpr double kCell = 0.25;

struct Setting {
  Setting() {
    for (int c = 0; c < 3; ++c) {
      VecInt3D dims(kSize, kSize, kSize);
      dims[c] += 1;
      grids[c] = std::make_unique<ScalarGrid>(dims, Vec3D(kSize), static_cast<float>(kCell), std::uint32_t(c), Vec3D());
      for (std::int64_t n = 0; n < grids[c]->count; ++n) (*grids[c])[n] = std::sin(0.01 * static_cast<double>(n % 777));
    }
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitter(0, 0.5);
    list.Append(8 * kSize * kSize * kSize, {});
    for (int n = 0; n < list.count(); ++n) {
      const int edge = 2 * kSize, i = n % edge, j = n / edge % edge, k = n / (edge * edge);
      const Vec3D place = Vec3D(i, j, k) * 0.5 + Vec3D(jitter(random), jitter(random), jitter(random));
      list.ChunkOf(n).positions[n & (kChunkRows - 1)] = place * kCell;
    }
  }
  std::unique_ptr<ScalarGrid> grids[3];
  ParticleList list;
};
Setting& TheSetting() {
  static Setting setting;
  return setting;
}

void Count(benchmark::State& state, std::int64_t particles) {
  state.counters["t"] = benchmark::Counter(bench::CellTime(particles) * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["particles/s"] =
      benchmark::Counter(static_cast<double>(particles * state.iterations()), benchmark::Counter::kIsRate);
}

// A staggered velocity into the particles' own.
void BM_GridToParticles(benchmark::State& state) {
  Setting& setting = TheSetting();
  WorkerPool pool(static_cast<int>(state.range(0)));
  PointSampler sampler;
  sampler.SetVector({setting.grids[0].get(), setting.grids[1].get(), setting.grids[2].get()}, Interpolation::Trilinear);
  const auto run = [&] {
    ParallelRows(pool, setting.list, [&](const ParticleRows& rows, int) {
      SampledPoints points;
      for (std::int32_t row = rows.begin; row < rows.end; row += SampledPoints::kMost) {
        const std::int32_t count = std::min(rows.end - row, SampledPoints::kMost);
        sampler.Sample(rows.positions() + row, count, points);
        PrefetchForWriting(rows.velocities() + row + count, count);
        for (std::int32_t n = 0; n < count; ++n) {
          if (points.inside[n]) rows.EditVelocities()[row + n] = points.vector[n];
        }
      }
    });
  };
  run();
  const int some = 123456;
  const VelocityView view{{*setting.grids[0], *setting.grids[1], *setting.grids[2]}};
  const Vec3D expected = view.At(setting.list.Position(some) / kCell);
  if (Length(setting.list.Velocity(some) - expected) > 1e-12) state.SkipWithError("not what one point gives");
  for (auto _ : state) run();
  Count(state, setting.list.count());
}
BENCHMARK(BM_GridToParticles)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// A mean over 1.4 cells at each cell, sorting included.
void BM_ParticlesToGrid(benchmark::State& state) {
  Setting& setting = TheSetting();
  WorkerPool pool(static_cast<int>(state.range(0)));
  const std::vector<double> weights(static_cast<std::size_t>(setting.list.count()), 1.0);
  const std::vector<Vec3D> values(weights.size(), Vec3D(3, 0, 0));
  GatherInput input;
  input.weights = weights.data(), input.values = values.data();
  input.radius = 1.4 * kCell;
  input.lattice = setting.grids[0]->space;
  input.offset = Vec3D(0.5);
  std::vector<double> means(kSize * kSize * kSize);
  const auto run = [&] {
    ParticleLines lines;
    lines.Build(setting.list, input.lattice, 2, pool);
    input.lines = &lines;
    ParallelRange(pool, 0, kSize, [&](int from, int to, int) {
      GatherRow row;
      for (int k = from; k < to; ++k) {
        for (int j = 0; j < kSize; ++j) {
          GatherParticles(
              input, j, k, row, [](std::int32_t) { return 1.0; },
              [](const ParticleLines::Entry&, double weight) { return weight; });
          for (std::size_t i = 0; i < kSize; ++i) {
            means[static_cast<std::size_t>(k * kSize + j) * kSize + i] =
                row.counts[i] ? row.sums[i].x / row.counts[i] : 0;
          }
        }
      }
    });
  };
  run();
  if (means[12345] != 3) state.SkipWithError("not the mean");
  for (auto _ : state) run();
  Count(state, setting.list.count());
}
BENCHMARK(BM_ParticlesToGrid)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
