// The pressure solvers at 128^3 in a container with an open top: in multiples of t, the time in which the triad's
// bandwidth moves 8 bytes a cell.

#include <benchmark/benchmark.h>

#include <cmath>

#include "benchmarks/Triad.h"
#include "fluids/pressure/ClosedRegions.h"
#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/GaussSweeps.h"
#include "fluids/pressure/ModifiedCholesky.h"
#include "fluids/pressure/MultigridCycle.h"
#include "fluids/pressure/PressureAssembly.h"
#include "tests/support/PressureProblem.h"

namespace orlix {
namespace {

using test::PressureProblem;

constexpr int kSize = 128;
const VecInt3D kCells(kSize, kSize, kSize);

enum Solid : std::int64_t { kNoSolid = 0, kKnobbly = 1 };

// A problem with all vectors of a solve.
struct Bench {
  explicit Bench(std::int64_t solid)
      : problem(kCells, test::kOpenTop, solid == kKnobbly ? PressureProblem::Field(test::Knobbly) : nullptr),
        pool(bench::BenchThreads()),
        cellShare(kCells, kGridCustom) {
    problem.FillVelocity();
    cellShare.Fill(1.0f);
    rightSide = problem.RightSide();
    for (auto* vector : {&residual, &result, &search, &product, &inverse}) {
      *vector = scratch.Take<double>(kCells);
      (*vector)->Fill(0, &pool);
    }
  }
  void Restart() {
    std::copy(rightSide.begin(), rightSide.end(), residual->data);
    result->Fill(0, &pool);
  }
  ConjugateGradientVectors Vectors() { return {residual->data, result->data, search->data, product->data}; }
  PreconditionedVector ApplyFactor() {
    ApplyModifiedCholesky(problem.system, inverse->data, residual->data, pool, product->data);
    return {product->data, {}, 0, 0, 1};
  }
  DivergenceInput Input() const {
    DivergenceInput input;
    for (int axis = 0; axis < 3; ++axis) {
      input.share[axis] = problem.system.share[axis];
      input.velocity[std::size_t(axis)] = GridView<const double>(*problem.velocity[axis]);
    }
    input.cellShare = GridView<const float>(cellShare);
    return input;
  }

  PressureProblem problem;
  WorkerPool pool;
  ScratchPool scratch;
  Grid<float> cellShare;
  std::vector<double> rightSide;
  ScratchPool::Lease<double> residual, result, search, product, inverse;
};

// Times of one of `parts` in each iteration, as multiples of t.
void ReportTimes(benchmark::State& state, double parts = 1) {
  const double t = bench::CellTime(CellCount(kCells)) * parts;
  state.counters["t"] = benchmark::Counter(t * static_cast<double>(state.iterations()),
                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
}

constexpr int kIterations = 10;

template <class Precondition>
void TimeIterations(benchmark::State& state, Bench& bench, Precondition&& precondition) {
  double residual = 1;
  for (auto _ : state) {
    bench.Restart();
    const PressureOutcome outcome =
        ConjugateGradients(bench.problem.system, bench.Vectors(), {kIterations, 1e-14}, bench.pool, precondition);
    residual = outcome.iterations == kIterations ? outcome.residual : 1e30;
  }
  if (!(residual < 10)) state.SkipWithError("the residual grows");
  ReportTimes(state, kIterations);
}

void BM_PlainIteration(benchmark::State& state) {
  Bench bench(state.range(0));
  TimeIterations(state, bench, [&](double) { return PreconditionedVector{bench.residual->data, {}, 0, 0, 1}; });
}
BENCHMARK(BM_PlainIteration)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CholeskyIteration(benchmark::State& state) {
  Bench bench(state.range(0));
  FactorModifiedCholesky(bench.problem.system, {}, bench.pool, bench.inverse->data);
  TimeIterations(state, bench, [&](double) { return bench.ApplyFactor(); });
}
BENCHMARK(BM_CholeskyIteration)->Arg(kNoSolid)->Arg(kKnobbly)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CholeskyFactor(benchmark::State& state) {
  Bench bench(state.range(0));
  for (auto _ : state) FactorModifiedCholesky(bench.problem.system, {}, bench.pool, bench.inverse->data);
  if (!((*bench.inverse)(64, 100, 64) > 0)) state.SkipWithError("no factor");
  ReportTimes(state);
}
BENCHMARK(BM_CholeskyFactor)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

// A projection from velocity to velocity: right side, set-up of all levels, the solve from zero to a relative
// 10^-range(1), the gradient.
void BM_MultigridProjection(benchmark::State& state) {
  Bench bench(state.range(0));
  const double tolerance = std::pow(10.0, -static_cast<double>(state.range(1)));
  const DivergenceInput input = bench.Input();
  PressureOutcome outcome;
  double before = 0;
  for (auto _ : state) {
    state.PauseTiming();
    bench.problem.FillVelocity();
    state.ResumeTiming();
    before = AssembleDivergence(input, false, bench.residual->data, bench.pool);
    bench.result->Fill(0, &bench.pool);
    ClosedRegions(bench.problem.system, bench.pool).RemoveMeans(bench.residual->data, bench.pool);
    MultigridCycle cycle(bench.problem.system, bench.pool, bench.scratch);
    outcome = ConjugateGradients(bench.problem.system, bench.Vectors(), {100, tolerance}, bench.pool,
                                 [&](double largest) { return cycle.Apply(bench.residual->data, largest); });
    GridView<double> velocity[3] = {*bench.problem.velocity[0], *bench.problem.velocity[1], *bench.problem.velocity[2]};
    ApplyPressureGradient(input.share, bench.result->data, bench.problem.system.scale, {}, velocity, bench.pool);
  }
  const double after = AssembleDivergence(input, false, nullptr, bench.pool);
  if (!outcome.converged || !(after <= 1.01 * tolerance * before)) state.SkipWithError("not converged");
  state.counters["iterations"] = outcome.iterations;
  ReportTimes(state);
}
BENCHMARK(BM_MultigridProjection)
    ->Args({kNoSolid, 3})
    ->Args({kNoSolid, 6})
    ->Args({kKnobbly, 3})
    ->Args({kKnobbly, 6})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_MultigridSetUp(benchmark::State& state) {
  Bench bench(state.range(0));
  int levels = 0;
  for (auto _ : state) levels = MultigridCycle(bench.problem.system, bench.pool, bench.scratch).levels();
  if (levels < 5) state.SkipWithError("too few levels");
  ReportTimes(state);
}
BENCHMARK(BM_MultigridSetUp)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MultigridCycle(benchmark::State& state) {
  Bench bench(state.range(0));
  bench.Restart();
  MultigridCycle cycle(bench.problem.system, bench.pool, bench.scratch);
  PreconditionedVector z;
  for (auto _ : state) z = cycle.Apply(bench.residual->data, 1);
  if (!std::isfinite(z.floats[0][64 * z.slab + 64 * z.row + 32])) state.SkipWithError("no number");
  ReportTimes(state);
}
BENCHMARK(BM_MultigridCycle)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GaussSweeps(benchmark::State& state) {
  Bench bench(state.range(0));
  constexpr int kSweeps = 200;
  std::int32_t ran = 0;
  for (auto _ : state) {
    GaussSweeps gauss(bench.problem.system, bench.rightSide.data(), bench.pool, bench.scratch);
    ran = gauss.Run(kSweeps);
    gauss.Store(bench.result->data);
  }
  if (ran != kSweeps || (*bench.result)(64, 60, 64) == 0) state.SkipWithError("no pressure");
  ReportTimes(state);
}
BENCHMARK(BM_GaussSweeps)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RightSide(benchmark::State& state) {
  Bench bench(state.range(0));
  const DivergenceInput input = bench.Input();
  for (auto _ : state) AssembleDivergence(input, false, bench.residual->data, bench.pool);
  for (std::size_t c = 0; c < bench.rightSide.size(); c += 1001) {
    if (std::abs(bench.residual->data[c] - bench.rightSide[c]) > 1e-12) state.SkipWithError("a wrong right side");
  }
  ReportTimes(state);
}
BENCHMARK(BM_RightSide)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PressureGradient(benchmark::State& state) {
  Bench bench(state.range(0));
  bench.Restart();
  GridView<double> velocity[3] = {*bench.problem.velocity[0], *bench.problem.velocity[1], *bench.problem.velocity[2]};
  const double before = velocity[0](64, 64, 64);
  for (auto _ : state) {
    ApplyPressureGradient(bench.problem.system.share, bench.residual->data, 1e-9, {}, velocity, bench.pool);
  }
  if (velocity[0](64, 64, 64) == before) state.SkipWithError("no change");
  ReportTimes(state);
}
BENCHMARK(BM_PressureGradient)->Arg(kNoSolid)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
