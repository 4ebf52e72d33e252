// Laws of the kernels: what stays, what shifts, how errors shrink.

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/advection/ConservativeAdvection.h"
#include "tests/fluids/advection/AdvectionFixture.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::AdvectionBench;

enum class Scheme { SemiLagrangian, MacCormack, Conservative, ConservativeMacCormack };
constexpr Scheme kSchemes[] = {Scheme::SemiLagrangian, Scheme::MacCormack, Scheme::Conservative,
                               Scheme::ConservativeMacCormack};

// One step of a scheme from grid into result; gamma takes what a cell takes.
void Advect(AdvectionBench& bench, Scheme scheme, const ScalarGrid& grid, AdvectionSampling sampling,
            ScalarGrid& result, WorkerPool& pool, ScalarGrid* gammaOut = nullptr) {
  const AdvectionSource source = bench.Source(grid, sampling);
  ScratchPool scratch;
  Grid<double> ones(grid.dims, kGridScratch), gamma(grid.dims, kGridScratch);
  ones.Fill(1), gamma.Fill(-1);
  const GridView<double> out = gammaOut ? GridView<double>(*gammaOut) : GridView<double>(gamma);
  AdvectionField back = bench.field;
  back.dt = -bench.field.dt;
  Grid<double> forward(grid.dims, kGridScratch);
  Grid<std::int32_t> traced(grid.dims, kGridScratch);
  switch (scheme) {
    case Scheme::SemiLagrangian:
      return test::AdvectSemiLagrangian(back, source, result, pool);
    case Scheme::MacCormack:
      return test::AdvectMacCormack(bench.field, source, {}, result, {forward, traced}, pool);
    case Scheme::Conservative:
      return AdvectConservative(bench.field, source, {ones, out, {}, {}}, result, scratch, pool);
    case Scheme::ConservativeMacCormack:
      return AdvectConservativeMacCormack(bench.field, source, ones, out, result, scratch, pool);
  }
}

TEST(Advection, AUniformVelocityOfWholeCellsShifts) {
  const VecInt3D cells(52, 50, 49), shift(3, -2, 1);
  AdvectionBench bench(cells, [&](const Vec3D&) { return Vec3D(shift); });
  WorkerPool pool(2);
  int checked = 0;
  for (const Scheme scheme : kSchemes) {
    for (const AdvectionSampling sampling : {AdvectionSampling::Trilinear, AdvectionSampling::MonotoneCubic}) {
      const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
      grid->Fill(0);
      // A blob far from the walls, so that also the conservative schemes only shift it.
      test::FillSamples(*grid,
                        [](const Vec3D& p) { return Length(p - Vec3D(25, 25, 24)) < 2.6 ? 1 + p.x * 0.125 : 0; });
      ScalarGrid result = *grid;
      result.Fill(0);
      Advect(bench, scheme, *grid, sampling, result, pool);
      test::ForInner(cells, [&](int i, int j, int k) {
        if (i < 22 || j < 19 || k < 19 || i > 31 || j > 28 || k > 28) return;
        EXPECT_EQ(result(i, j, k), (*grid)(i - shift.x, j - shift.y, k - shift.z)) << i << " " << j << " " << k;
        ++checked;
      });
      EXPECT_GT(test::SumOf(result), 10);
    }
  }
  EXPECT_EQ(checked, 8 * 10 * 10 * 10);
}

TEST(ConservativeAdvection, DiffusionOfGammaKeepsBothSumsAndEvensOut) {
  const VecInt3D cells(9, 10, 11);
  Grid<double> gamma(cells, kGridScratch), values(cells, kGridScratch);
  std::mt19937 random(2);
  std::uniform_real_distribution<double> uniform(0, 2);
  for (std::int64_t c = 0; c < gamma.count; ++c) gamma[c] = uniform(random), values[c] = uniform(random);
  const double gammaSum = test::SumOf(gamma), valueSum = test::SumOf(values);
  const auto spread = [&] {
    double most = 0;
    test::ForInner(cells, [&](int i, int j, int k) { most = std::max(most, std::fabs(gamma(i, j, k) - 1)); });
    return most;
  };
  const double before = spread();
  ScratchPool scratch;
  WorkerPool pool(2);
  DiffuseGamma(7, values, gamma, scratch, pool);
  EXPECT_NEAR(test::SumOf(gamma), gammaSum, 1e-11);
  EXPECT_NEAR(test::SumOf(values), valueSum, 1e-11);
  EXPECT_LT(spread(), 0.5 * before);
  // Half of a difference goes to the smaller side, and values with it; nothing goes between equal rows.
  test::FillCells(gamma, [](int i, int, int) { return i == 1 ? 3 : 1; });
  test::FillCells(values, [](int i, int, int) { return i == 1 ? 6 : 1; });
  DiffuseGamma(1, values, gamma, scratch, pool);
  EXPECT_EQ(Vec2D(gamma(1, 4, 4), gamma(2, 4, 4)), Vec2D(2, 2));
  EXPECT_EQ(Vec2D(values(1, 4, 4), values(2, 4, 4)), Vec2D(4, 3));
}

// --- orders of convergence -------------------------------------------------------------------------------------------

TEST(Trace, IntegratorsHaveTheirOrders) {
  const VecInt3D cells(32, 32, 32);
  const Vec3D centre(16, 16, 16), start(22, 17, 14);
  AdvectionBench bench(cells, [&](const Vec3D& p) { return Cross(Vec3D(0.2, 0.4, 1.0), p - centre); });
  const Vec3D axis = Vec3D(0.2, 0.4, 1.0);
  const double rate = Length(axis), time = 1.5;
  const Vec3D unit = axis / rate, r = start - centre;
  const Vec3D exact = centre + r * std::cos(rate * time) + Cross(unit, r) * std::sin(rate * time) +
                      unit * (Dot(unit, r) * (1 - std::cos(rate * time)));
  for (int integrator = 0; integrator < 4; ++integrator) {
    bench.field.integrator = static_cast<Integrator>(integrator);
    double errors[2];
    for (int level = 0; level < 2; ++level) {
      const int steps = 24 << level;
      bench.field.dt = static_cast<float>(time / steps);  // exact in single precision
      ASSERT_EQ(static_cast<double>(bench.field.dt) * steps, time);
      Vec3D p = start;
      for (int step = 0; step < steps; ++step) p = bench.field.Trace(p);
      errors[level] = Length(p - exact);
    }
    const double order = std::log2(errors[0] / errors[1]);
    std::printf("integrator %d: errors %.3g %.3g cells, observed order %.2f\n", integrator, errors[0], errors[1],
                order);
    EXPECT_NEAR(order, integrator + 1, 0.2);
  }
}

// A scalar in a steady Taylor-Green vortex against the value at the foot of its characteristic, traced finely.
double TaylorGreenError(int n, Scheme scheme, WorkerPool& pool) {
  const VecInt3D cells(n + 2, n + 2, 5);
  const double pi = 3.14159265358979323846;
  // One vortex in the unit square inside the outer cells; speed in units a second.
  const auto speed = [&](double x, double y) {
    return Vec3D(std::sin(pi * x) * std::cos(pi * y), -std::cos(pi * x) * std::sin(pi * y), 0);
  };
  AdvectionBench bench(
      cells, [&](const Vec3D& p) { return speed((p.x - 1) / n, (p.y - 1) / n) * n; }, 1.0f / 64);
  bench.field.integrator = Integrator::RungeKutta4;
  const int steps = n / 4;
  const double time = 0.25;
  bench.field.dt = static_cast<float>(time / steps);
  const auto initial = [](double x, double y) {
    return std::exp(-30 * ((x - 0.5) * (x - 0.5) + (y - 0.7) * (y - 0.7)));
  };
  auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  test::FillSamples(*grid, [&](const Vec3D& p) { return initial((p.x - 1) / n, (p.y - 1) / n); });
  ScalarGrid result = *grid;
  for (int step = 0; step < steps; ++step) {
    Advect(bench, scheme, *grid, AdvectionSampling::Trilinear, result, pool);
    std::swap(grid->data, result.data);
  }
  double sum = 0;
  int count = 0;
  for (int j = 2; j < n; ++j) {
    for (int i = 2; i < n; ++i) {
      Vec3D p((i - 0.5) / n, (j - 0.5) / n, 0);
      for (int step = 0; step < 32; ++step) {
        p = TracePoint(Integrator::RungeKutta4, p, -time / 32, [&](const Vec3D& q) { return speed(q.x, q.y); });
      }
      const double error = (*grid)(i, j, 2) - initial(p.x, p.y);
      sum += error * error, ++count;
    }
  }
  return std::sqrt(sum / count);
}

TEST(Advection, ConvergesInATaylorGreenVortex) {
  WorkerPool pool(2);
  for (const auto& [scheme, least] : {std::pair(Scheme::SemiLagrangian, 0.75), std::pair(Scheme::MacCormack, 1.5)}) {
    const double coarse = TaylorGreenError(32, scheme, pool), fine = TaylorGreenError(64, scheme, pool);
    const double order = std::log2(coarse / fine);
    std::printf("%s: errors %.3g %.3g, observed order %.2f\n",
                scheme == Scheme::MacCormack ? "MacCormack" : "semi-Lagrangian", coarse, fine, order);
    EXPECT_GT(order, least);
    EXPECT_LT(fine, 0.05);
  }
}

TEST(Resolve, PutsAPointJustInsideTheSurfaceOfASolid) {
  AdvectionBench bench({20, 20, 20}, [](const Vec3D&) { return Vec3D(); });
  bench.SetSolid([](const Vec3D& p) { return (p.x + 2 * p.y - 2 * p.z - 7.5) / 3; });
  for (Vec3D p : {Vec3D(9.3, 7.1, 8.2), Vec3D(10, 9, 10)}) {
    const double before = bench.field.solid.DistanceIndex(p);
    EXPECT_EQ(bench.field.Resolve(p), before < 0);
    EXPECT_NEAR(bench.field.solid.DistanceIndex(p), before < 0 ? -AdvectionField::kMargin : before, 1e-9);
  }
}

// --- what may be left out --------------------------------------------------------------------------------------------

// A ball that a shear draws out until its layers are a cell thin: there MacCormack keeps waves of the grid's own length
// along the flow, which look like a comb.
TEST(Advection, ASmoothedCorrectionLeavesNoFringes) {
  const VecInt3D cells(66, 66, 12);
  AdvectionBench bench(cells, [](const Vec3D& p) {
    return Vec3D(0.25 * std::sin(std::numbers::pi * (p.y - 1) / 32), 2 * std::sin(std::numbers::pi * (p.x - 1) / 32),
                 0);
  });
  WorkerPool pool(2);
  struct Outcome {
    double fringes = 0, energy = 0;
  };
  const auto carry = [&](MacCormackCorrection correction) {
    auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
    test::FillSamples(*grid, [](const Vec3D& p) { return std::hypot(p.x - 32, p.y - 24) < 9 ? 1.0 : 0.0; });
    ScalarGrid result = *grid;
    Grid<double> forward(cells, kGridScratch);
    Grid<std::int32_t> traced(cells, kGridScratch);
    for (int step = 0; step < 50; ++step) {
      AdvectionSource source = bench.Source(*grid, AdvectionSampling::Trilinear);
      source.content = FindContent(*grid, pool);
      test::AdvectMacCormack(bench.field, source, correction, result, {forward, traced}, pool);
      std::swap(grid->data, result.data);
    }
    Outcome outcome;
    for (int j = 2; j < cells.y - 2; ++j) {
      for (int i = 2; i < cells.x - 2; ++i) {
        const auto at = [&](int x) { return (*grid)(x, j, 6); };
        const double fringe = (at(i - 2) - 4 * at(i - 1) + 6 * at(i) - 4 * at(i + 1) + at(i + 2)) / 16;
        outcome.fringes += fringe * fringe, outcome.energy += at(i) * at(i);
      }
    }
    return outcome;
  };
  const Outcome plain = carry({}), smoothed = carry({1, true}), none = carry({0});
  EXPECT_LT(smoothed.fringes, 0.4 * plain.fringes);
  EXPECT_GT(smoothed.energy - none.energy, 0.33 * (plain.energy - none.energy));
}

TEST(Advection, CellsThatOnlyZerosCanReachNeedNoTrace) {
  const VecInt3D cells(40, 38, 36);
  // Around a solid; and where each cell is reached from as far as the top speed tells.
  AdvectionBench rough(cells, test::RoughVelocity(2.2, 3)), uniform(cells, [](const Vec3D&) { return Vec3D(1.5); }),
      free(cells, test::RoughVelocity(0.7, 4));
  rough.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(20, 15, 18)) - 4; });
  WorkerPool pool(2);
  for (auto [bench, radius] :
       {std::pair(&rough, 0.0), std::pair(&rough, 3.0), std::pair(&uniform, 3.0), std::pair(&free, 3.0)}) {
    bench->field.integrator = Integrator::Heun;
    const auto grid = test::MakeGrid(cells, kGridSmoke, bench->h);
    grid->Fill(0);
    test::FillSamples(*grid, [&](const Vec3D& p) { return Length(p - Vec3D(14, 15, 18)) < radius ? p.x : 0; });
    for (int sampling = 0; sampling < 3; ++sampling) {
      AdvectionSource whole = bench->Source(*grid, static_cast<AdvectionSampling>(sampling)), part = whole;
      part.content = FindContent(*grid, pool);
      EXPECT_EQ(std::ranges::all_of(part.content, &RowSpan::IsEmpty), radius == 0);
      for (const bool macCormack : {false, true}) {
        ScalarGrid a = *grid, b = *grid;
        a.Fill(5), b.Fill(5);
        Grid<double> forward(cells, kGridScratch);
        Grid<std::int32_t> traced(cells, kGridScratch);
        if (macCormack) {
          const MacCormackCorrection correction{1, sampling == 0};
          test::AdvectMacCormack(bench->field, whole, correction, a, {forward, traced}, pool);
          forward.Fill(3), traced.Fill(12345);
          test::AdvectMacCormack(bench->field, part, correction, b, {forward, traced}, pool);
        } else {
          test::AdvectSemiLagrangian(bench->field, whole, a, pool);
          test::AdvectSemiLagrangian(bench->field, part, b, pool);
        }
        for (std::int64_t c = 0; c < a.count; ++c) ASSERT_EQ(a[c], b[c]) << c;
      }
    }
  }
}

// Components of a velocity and two scalars of which one is a blob, with strengths of their own.
TEST(Advection, QuantitiesTogetherGetTheBitsOfEachAlone) {
  const VecInt3D cells(70, 15, 14);
  AdvectionBench bench(cells, test::RoughVelocity(1.8, 5));
  bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(30, 7, 7)) - 3; });
  bench.field.integrator = Integrator::Heun;
  WorkerPool pool(3);
  constexpr std::uint32_t kTypes[] = {kGridVelocityU, kGridVelocityV, kGridVelocityW, kGridSmoke, kGridTemperature};
  std::vector<std::unique_ptr<ScalarGrid>> grids;
  std::vector<CellMask> masks(5);
  std::vector<std::unique_ptr<Grid<double>>> forward, together, alone;
  std::vector<std::unique_ptr<Grid<std::int32_t>>> traced;
  std::vector<Advected> quantities;
  for (std::size_t q = 0; q < 5; ++q) {
    grids.push_back(test::MakeGrid(cells, kTypes[q], bench.h));
    const auto rough = test::RoughSource(static_cast<unsigned>(q));
    test::FillSamples(*grids[q],
                      [&](const Vec3D& p) { return q == 4 && Length(p - Vec3D(20, 8, 6)) > 3 ? 0.0 : rough(p); });
    for (auto* some : {&forward, &together, &alone}) {
      some->push_back(std::make_unique<Grid<double>>(grids[q]->dims, kGridScratch));
      some->back()->Fill(7);
    }
    traced.push_back(std::make_unique<Grid<std::int32_t>>(grids[q]->dims, kGridScratch));
    Advected quantity{bench.Source(*grids[q], AdvectionSampling::Trilinear), *together[q]};
    masks[q] = bench.mask;
    quantity.source.insideSolid = &masks[std::min<std::size_t>(q, 3)];
    quantity.source.content = q >= 3 ? FindContent(*grids[q], pool) : RowSpans();
    quantity.correction = {0.3f + 0.2f * static_cast<float>(q), q == 4};
    quantity.scratch = {*forward[q], *traced[q]};
    quantities.push_back(quantity);
  }
  EXPECT_TRUE(quantities[3].SharesTraceWith(quantities[4]) && !quantities[2].SharesTraceWith(quantities[3]));
  for (const bool macCormack : {true, false}) {
    const auto advect = [&](std::span<const Advected> some) {
      macCormack ? AdvectMacCormack(bench.field, some, pool) : AdvectSemiLagrangian(bench.field, some, pool);
    };
    advect(quantities);
    for (std::size_t q = 0; q < 5; ++q) {
      Advected single = quantities[q];
      single.result = *alone[q];
      advect({&single, 1});
      EXPECT_EQ(test::ValuesOf(*together[q]), test::ValuesOf(*alone[q])) << "quantity " << q;
      EXPECT_NE((*alone[q])(20, 8, 6), 7);
    }
  }
}

TEST(Advection, NumbersThatAreNoneDoNoHarm) {
  const VecInt3D cells(12, 12, 12);
  AdvectionBench bench(cells, test::RoughVelocity(1, 2));
  bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(6, 6, 6)) - 2; });
  (*bench.components[0])(5, 5, 5) = std::nan("");
  (*bench.components[1])(7, 5, 5) = 1e300;
  (*bench.components[2])(3, 8, 5) = -std::numeric_limits<double>::infinity();
  WorkerPool pool(2);
  const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  grid->Fill(1);
  for (const Scheme scheme : kSchemes) {
    for (int integrator = 0; integrator < 5; ++integrator) {  // one that doesn't exist, too
      bench.field.integrator = static_cast<Integrator>(integrator);
      ScalarGrid result = *grid;
      Advect(bench, scheme, *grid, AdvectionSampling::MonotoneCubic, result, pool);
      EXPECT_NEAR(result(2, 2, 2), 1, 0.6);
    }
  }
}

// --- workers ---------------------------------------------------------------------------------------------------------

TEST(AdvectionThreads, AnyNumberOfWorkersGivesTheSameBits) {
  const VecInt3D cells(22, 20, 19);
  AdvectionBench bench(cells, test::RoughVelocity(2.4, 6));
  bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(9, 10, 9)) - 3; });
  bench.field.integrator = Integrator::Ralston;
  const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  test::FillSamples(*grid, test::RoughSource(9));
  for (const Scheme scheme : kSchemes) {
    const auto advected = test::SameForAnyWorkers([&](int workers) {
      WorkerPool pool(workers);
      ScalarGrid result = *grid, gamma = *grid;
      result.Fill(4), gamma.Fill(4);
      Advect(bench, scheme, *grid, AdvectionSampling::Trilinear, result, pool, &gamma);
      return std::pair(test::ValuesOf(result), test::ValuesOf(gamma));
    });
    EXPECT_NE(advected.first[static_cast<std::size_t>(grid->Index(5, 5, 5))], 4);
  }
}

}  // namespace
}  // namespace orlix
