// What a solver does for its walls: in each sub-step with a moving obstacle, once with still ones; and the passes on
// the velocity around the projection, which run in each.

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <memory>

#include "benchmarks/Triad.h"
#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/boundary/FractionKernels.h"
#include "fluids/boundary/InsideKernel.h"
#include "fluids/boundary/SolidDistance.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"

namespace orlix {
namespace {

constexpr int kSize = 128;
const VecInt3D kCells(kSize, kSize, kSize);

std::unique_ptr<ScalarGrid> Make(std::uint32_t type) {
  auto grid = std::make_unique<ScalarGrid>(kCells + ExtraCells(type), Vec3D(kSize), 1.0f, type, Vec3D());
  grid->Fill(0.5);
  return grid;
}

// A closed box with a ball of a quarter of its size.
struct Box {
  explicit Box(int threads) : pool(threads), nodes(Make(kGridNodalLevelset)) {
    ball = std::make_unique<ScalarGrid>(VecInt3D(41, 41, 41), Vec3D(40.0), 1.0f, kGridNodalLevelset, Vec3D(44.0));
    for (int k = 0; k < 41; ++k) {
      for (int j = 0; j < 41; ++j) {
        for (int i = 0; i < 41; ++i) (*ball)(i, j, k) = Length(Vec3D(i, j, k) - Vec3D(20.0)) - 16;
      }
    }
    Rebuild();
  }
  void Rebuild() {
    FillWallDistance(*nodes, 1, kAllFacesClosed, pool);
    LowerByLevelSet(*nodes, *ball, pool);
  }
  WorkerPool pool;
  std::unique_ptr<ScalarGrid> nodes, ball;
};

void Report(benchmark::State& state, double bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(static_cast<double>(state.iterations()) * bytes));
  state.SetItemsProcessed(state.iterations() * CellCount(kCells));
  state.counters["of triad"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * bytes / bench::TriadBandwidth(static_cast<int>(state.range(0))),
      benchmark::Counter::kIsRate);
}

void BM_SolidDistance(benchmark::State& state) {
  Box box(static_cast<int>(state.range(0)));
  for (auto _ : state) box.Rebuild();
  if ((*box.nodes)(64, 64, 64) != -16) state.SkipWithError("a wrong distance");
  Report(state, 8.0 * static_cast<double>(box.nodes->count));
}
BENCHMARK(BM_SolidDistance)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FaceFractions(benchmark::State& state) {
  Box box(static_cast<int>(state.range(0)));
  FloatGrid out(kCells + ExtraCells(0), Vec3D(kSize), 1.0f, kGridVelocityU, Vec3D());
  for (auto _ : state) FillFaceFractions(*box.nodes, 0, FractionRule{true}, out, box.pool);
  if (out(20, 20, 20) != 1 || out(64, 64, 64) != 0) state.SkipWithError("a wrong fraction");
  Report(state, 12.0 * static_cast<double>(out.count));
}
BENCHMARK(BM_FaceFractions)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CellFractions(benchmark::State& state) {
  Box box(static_cast<int>(state.range(0)));
  FloatGrid out(kCells, Vec3D(kSize), 1.0f, kGridCustom, Vec3D());
  for (auto _ : state) FillCubeFractions(*box.nodes, Vec3D(0.5), FractionRule{true}, out, box.pool);
  if (out(20, 20, 20) != 1 || out(64, 64, 64) != 0) state.SkipWithError("a wrong fraction");
  Report(state, 12.0 * static_cast<double>(out.count));
}
BENCHMARK(BM_CellFractions)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InsideMask(benchmark::State& state) {
  Box box(static_cast<int>(state.range(0)));
  CellMask mask;
  for (auto _ : state) FindInside(*box.nodes, Vec3D(0.5), kCells, mask, box.pool);
  if (mask(20, 20, 20) || !mask(64, 64, 64)) state.SkipWithError("a wrong mask");
  Report(state, 8.0 * static_cast<double>(box.nodes->count));
}
BENCHMARK(BM_InsideMask)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ContainerVelocity(benchmark::State& state) {
  WorkerPool pool(static_cast<int>(state.range(0)));
  const std::array<std::unique_ptr<ScalarGrid>, 3> v = {Make(0), Make(1), Make(2)};
  for (auto _ : state) ApplyContainerVelocity({*v[0], *v[1], *v[2]}, kAllFacesClosed, 0.5f, pool);
  if ((*v[0])(1, 5, 5) != 0 || (*v[1])(0, 5, 5) != 0.25) state.SkipWithError("a wrong velocity");
  state.SetItemsProcessed(state.iterations() * 18 * kSize * kSize);
}
BENCHMARK(BM_ContainerVelocity)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExtrapolationPlan(benchmark::State& state) {
  Box box(static_cast<int>(state.range(0)));
  FloatGrid open(kCells + ExtraCells(0), Vec3D(kSize), 1.0f, kGridVelocityU, Vec3D());
  FillFaceFractions(*box.nodes, 0, FractionRule{true}, open, box.pool);
  ScratchPool scratch;
  ExtrapolationLayers plan;
  CellMask closed;
  for (auto _ : state) {
    FindZeros(open, closed, box.pool);
    plan.Build(closed, 3, *box.nodes, -2, scratch, box.pool);
  }
  if (plan.layerCount() != 3) state.SkipWithError("a wrong plan");
  Report(state, 6.0 * static_cast<double>(open.count));
}
BENCHMARK(BM_ExtrapolationPlan)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LargestMagnitude(benchmark::State& state) {
  WorkerPool pool(static_cast<int>(state.range(0)));
  const auto grid = Make(0);
  double most = 0;
  for (auto _ : state) benchmark::DoNotOptimize(most = LargestMagnitude(*grid, pool));
  if (most != 0.5) state.SkipWithError("a wrong magnitude");
  Report(state, 8.0 * static_cast<double>(grid->count));
}
BENCHMARK(BM_LargestMagnitude)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
