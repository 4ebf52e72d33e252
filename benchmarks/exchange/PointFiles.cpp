// Five million particles with velocities and ids, to a proven file on disk and back. The count is compared before
// anything is timed.

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "exchange/points/PointFormats.h"

namespace orlix {
namespace {

constexpr std::uint64_t kParticles = 5'000'000;

const PointSet& Splash() {
  static const PointSet set = [] {
    PointSet made;
    made.count = kParticles;
    float* position = made.Add("position", PointType::Vector, 3, NumberType::Float32).Data<float>();
    float* velocity = made.Add("velocity", PointType::Vector, 3, NumberType::Float32).Data<float>();
    auto* id = made.Add("id", PointType::Int, 1, NumberType::Int32).Data<std::int32_t>();
    std::mt19937 random(1);
    std::uniform_real_distribution<float> jitter(0, 0.5f);
    for (std::uint64_t n = 0; n < kParticles; ++n) {
      const float place[] = {static_cast<float>(n % 400), static_cast<float>(n / 400 % 100),
                             static_cast<float>(n / 40000)};
      for (std::uint64_t c = 0; c < 3; ++c) position[3 * n + c] = 0.5f * place[c] + jitter(random);
      for (std::uint64_t c = 0; c < 3; ++c) velocity[3 * n + c] = std::sin(0.1f * position[3 * n + (c + 1) % 3]);
      id[n] = static_cast<std::int32_t>(n);
    }
    return made;
  }();
  return set;
}

constexpr const char* kNames[] = {"bench.bgeo", "bench.prt", "bench.bgeo.gz", "bench.ply"};

void BM_WritePoints(benchmark::State& state) {
  const auto path = std::filesystem::temp_directory_path() / kNames[state.range(0)];
  WorkerPool pool(HostWorkerCount());
  for (auto _ : state) {
    if (!WritePoints(path, Splash(), false, &pool).ok()) state.SkipWithError("not written");
  }
  const Result<PointSet> back = ReadPoints(path, true);
  if (!back || back->count != kParticles) state.SkipWithError("another count");
  state.SetLabel(kNames[state.range(0)]);
  state.counters["MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
  std::filesystem::remove(path);
}
BENCHMARK(BM_WritePoints)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_ReadPoints(benchmark::State& state) {
  const auto path = std::filesystem::temp_directory_path() / kNames[state.range(0)];
  if (!WritePoints(path, Splash()).ok()) state.SkipWithError("not written");
  for (auto _ : state) {
    const Result<PointSet> set = ReadPoints(path);
    if (!set || set->count != kParticles) state.SkipWithError("another count");
  }
  state.SetLabel(kNames[state.range(0)]);
  std::filesystem::remove(path);
}
BENCHMARK(BM_ReadPoints)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
}  // namespace orlix
