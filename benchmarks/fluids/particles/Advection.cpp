// Particles carried by the second-order integrator, with contacts, in multiples of t: the time in which the triad's
// bandwidth moves 8 bytes a particle. Two million stand eight a cell in the order of an emitter, or shuffled, as after
// a long time. A result is compared with the trace of one point before anything is timed.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "tests/fluids/particle_operators/MotionRig.h"

namespace orlix {
namespace {

constexpr int kSize = 64;

Vec3D Swirl(const Vec3D& x) {
  const Vec3D r = x / test::MotionRig::kCell - Vec3D(32);
  return Vec3D(-r.y, r.x, 0) * 0.02 + Vec3D(0, 0, 0.3 * std::sin(0.2 * r.x));
}

void Fill(ParticleList& list, bool shuffled) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> jitter(0, 0.5);
  std::vector<Vec3D> places;
  for (int k = 4; k < 2 * kSize - 4; ++k) {
    for (int j = 4; j < 2 * kSize - 4; ++j) {
      for (int i = 4; i < 2 * kSize - 4; ++i) {
        const Vec3D p = Vec3D(i, j, k) * 0.5 + Vec3D(jitter(random), jitter(random), jitter(random));
        places.push_back(p * test::MotionRig::kCell);
      }
    }
  }
  if (shuffled) std::shuffle(places.begin(), places.end(), random);
  list.Append(static_cast<std::int32_t>(places.size()), BaseParticleData());
  for (int c = 0; c < list.chunkCount(); ++c) {
    const ParticleRows rows = list.Rows(c);
    std::copy_n(places.begin() + rows.first, rows.end, rows.EditPositions());
  }
}

// Threads, and whether the order is shuffled.
void BM_ParticleAdvection(benchmark::State& state) {
  test::MotionRig rig({kSize, kSize, kSize}, Swirl);
  rig.settings.collisions = CollisionMode::Boundary;
  rig.settings.collisionRadius = 0.001f;
  rig.settings.dt = 0.01;
  Fill(rig.own, state.range(1) != 0);
  WorkerPool pool(static_cast<int>(state.range(0)));
  const auto run = [&] {
    ParallelRows(pool, rig.own, [&](const ParticleRows& rows, int worker) {
      MoveParticles(rig.settings, rig.field, {}, rig.context, rows, worker);
    });
  };
  const Vec3D start = rig.own.Position(12345);
  run();
  const Vec3D expected = TracePoint(Integrator::Heun, start, rig.settings.dt, [&](const Vec3D& x) {
    return rig.field.velocity.At(x * (1 / rig.field.cellSize));
  });
  if (!(rig.own.Position(12345) == expected)) state.SkipWithError("not where one point goes");
  for (auto _ : state) run();
  const double t = bench::CellTime(rig.own.count());
  state.counters["t"] = benchmark::Counter(t * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["particles/s"] = benchmark::Counter(
      static_cast<double>(std::int64_t(rig.own.count()) * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParticleAdvection)->ArgsProduct({{1, 2}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
