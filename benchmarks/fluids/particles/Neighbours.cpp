// Sorting by cells and finding neighbours, eight particles a cell. The sort in t8, the time in which the triad moves 8
// bytes a particle; at most 12. 32 neighbours of each of a million particles, tree included: at most 0.35 s.

#include <benchmark/benchmark.h>

#include <random>

#include "benchmarks/Triad.h"
#include "fluids/particles/NeighbourWalk.h"
#include "fluids/particles/ParticleSort.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

constexpr double kCell = 0.1;

// n particles at eight a cell in a cube, in the order of an emitter or in none.
struct Cloud {
  Cloud(std::int32_t n, bool shuffled) : scene(bench::BenchThreads()) {
    scene.root->Set(1002, kCell);
    const BaseObject& object = scene.Add("particlegroup", "Drops");
    scene.Step(0);
    group = scene.NodeOf<ParticleGroup>(object);
    const auto side = static_cast<std::int32_t>(std::ceil(std::cbrt(n)));
    std::vector<Vec3D> places;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitter(-0.4, 0.4);
    for (std::int32_t i = 0; i < n; ++i) {
      const Vec3D lattice(i % side, i / side % side, i / side / side);
      places.push_back((lattice + Vec3D(0.5) + Vec3D(jitter(random), jitter(random), jitter(random))) * (kCell / 2));
    }
    if (shuffled) std::shuffle(places.begin(), places.end(), random);
    ParticleList& list = *group->list(PK_Liquid);
    list.Append(n, {}, &scene.pool);
    list.ForEachChunk(0, n, [&](const ParticleRows& rows) {
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        rows.EditPositions()[r] = places[static_cast<std::size_t>(rows.first + r)];
      }
    });
    const std::int32_t cells = side / 2 + 1;
    space.Build({cells, cells, cells}, Vec3D(cells * kCell), static_cast<float>(kCell), Vec3D());
  }
  test::TestScene scene;
  ParticleGroup* group = nullptr;
  GridSpace space;
};

void BM_SortByCells(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  Cloud cloud(n, state.range(1) != 0);
  ParticleSort sort;
  sort.Configure(PK_Liquid, cloud.space, 16);
  ParticleGroup* groups[] = {cloud.group};
  for (auto _ : state) {
    OrlixParticle(cloud.group->list(PK_Liquid), 0).SetPosition({kCell, kCell, kCell});
    sort.Sort(groups, false, cloud.scene.pool);
  }
  if (sort.sortedCount() != n || sort.AllEntries().size() != static_cast<std::size_t>(n)) {
    state.SkipWithError("particles are missing");
  }
  state.SetItemsProcessed(state.iterations() * n);
  state.counters["t8"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * n * 8 / bench::TriadBandwidth(bench::BenchThreads()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetLabel(state.range(1) ? "shuffled" : "as emitted");
}
BENCHMARK(BM_SortByCells)->Args({5000000, 0})->Args({5000000, 1})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BuildTree(benchmark::State& state) {
  Cloud cloud(static_cast<std::int32_t>(state.range(0)), state.range(1) != 0);
  for (auto _ : state) cloud.group->EnsureTree(PK_Liquid, true, 32);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_BuildTree)->Args({1000000, 0})->Args({1000000, 1})->Unit(benchmark::kMillisecond)->UseRealTime();

// One cell's edge around each holds 33.5.
void BM_Neighbours(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  Cloud cloud(n, state.range(1) != 0);
  WorkerPool& pool = cloud.scene.pool;
  std::int64_t found = 0;
  for (auto _ : state) {
    cloud.group->EnsureTree(PK_Liquid, true, 32);
    std::int64_t sums[WorkerPool::kMaxWorkers][8] = {};
    if (state.range(2) != 0) {
      ForEachNeighbourhood(*cloud.group->Tree(PK_Liquid), pool, kCell,
                           [&](std::int32_t, std::span<const Neighbour> near, std::int32_t thread) {
                             sums[thread][0] += static_cast<std::int64_t>(near.size());
                           });
    } else {
      const ParticleList& list = *cloud.group->list(PK_Liquid);
      ForEachNeighbourhoodAt(
          *cloud.group->Tree(PK_Liquid), pool, kCell, [&](std::int32_t index) { return &list.Position(index); },
          [&](std::int32_t, std::span<const Neighbour> near, std::int32_t thread) {
            sums[thread][0] += static_cast<std::int64_t>(near.size());
          });
    }
    found = 0;
    for (const auto& sum : sums) found += sum[0];
  }
  if (found < 28 * std::int64_t(n) || found > 32 * std::int64_t(n)) state.SkipWithError("a wrong count");
  state.SetItemsProcessed(state.iterations() * n);
  state.SetLabel(std::string(state.range(1) ? "shuffled" : "as emitted") +
                 (state.range(2) ? ", in the tree's order" : ", by index"));
}
BENCHMARK(BM_Neighbours)->ArgsProduct({{1000000}, {0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
