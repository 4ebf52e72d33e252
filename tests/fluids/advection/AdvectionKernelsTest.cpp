// The fast kernels against plain loops, and the laws of advection.

#include <gtest/gtest.h>

#include <tuple>

#include "fluids/advection/AdvectionPass.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

using test::AdvectionBench;
using test::SameBits;

struct Case {
  VecInt3D cells;
  std::uint32_t type;
  double speed;  // cells a second
  bool obstacle, walls;
};

const Case kCases[] = {
    {{21, 18, 16}, kGridSmoke, 2.3, true, true},     {{21, 18, 16}, kGridVelocityU, 1.1, true, true},
    {{18, 21, 15}, kGridVelocityV, 3.7, true, true}, {{17, 18, 20}, kGridVelocityW, 0.4, false, true},
    {{70, 6, 7}, kGridSmoke, 1.6, false, true},      {{140, 5, 5}, kGridVelocityU, 8.0, true, true},
    {{5, 9, 9}, kGridSmoke, 2.0, false, true},       {{19, 17, 16}, kGridSmoke, 2.9, false, false},
    {{12, 12, 12}, kGridSmoke, 60.0, true, true},    {{3, 3, 3}, kGridSmoke, 1.0, false, false},
};

class FastAdvection : public testing::TestWithParam<std::tuple<int, int, int>> {
 protected:
  // f(bench, source, label) for each case with the parameter's integrator, sampling and case.
  template <class F>
  void Run(F&& f) {
    const auto [integrator, sampling, index] = GetParam();
    const Case& c = kCases[index];
    AdvectionBench bench(c.cells, test::RoughVelocity(c.speed, 7u + static_cast<unsigned>(index)), 0.1f);
    if (c.obstacle) {
      const Vec3D centre = Vec3D(c.cells) * 0.45;
      bench.SetSolid([&](const Vec3D& p) { return Length(p - centre) - 3.2; });
    }
    if (!c.walls) bench.RemoveSolid();
    bench.field.integrator = static_cast<Integrator>(integrator);
    const auto grid = test::MakeGrid(c.cells, c.type, bench.h);
    test::FillSamples(*grid, test::RoughSource(3));
    f(bench, bench.Source(*grid, static_cast<AdvectionSampling>(sampling)));
  }
};

TEST_P(FastAdvection, GivesTheBitsOfAPlainLoop) {
  Run([](AdvectionBench& bench, const AdvectionSource& source) {
    const VecInt3D n = source.values.dims;
    Grid<double> expected(n, kGridScratch), got(n, kGridScratch);
    WorkerPool pool(3);
    for (const auto& [macCormack, bits] :
         {std::pair(false, 512), std::pair(true, 512), std::pair(true, 256), std::pair(true, 128)}) {
      LimitAdvectionVectors(bits);
      for (std::int64_t c = 0; c < expected.count; ++c) expected[c] = got[c] = static_cast<double>(c % 17);
      if (macCormack) {
        Grid<double> forward(n, kGridScratch);
        Grid<std::int32_t> traced(n, kGridScratch);
        forward.Fill(99);
        test::PlainMacCormack(bench.field, source, 0.7f, expected);
        test::AdvectMacCormack(bench.field, source, {0.7f}, got, {forward, traced}, pool);
      } else {
        test::PlainSemiLagrangian(bench.field, source, expected);
        test::AdvectSemiLagrangian(bench.field, source, got, pool);
      }
      int differing = 0, changed = 0;
      for (std::int64_t c = 0; c < got.count; ++c) {
        if (!SameBits(got[c], expected[c]) && differing++ < 3)
          ADD_FAILURE() << c << ": " << got[c] << " " << expected[c];
        if (got[c] != static_cast<double>(c % 17)) ++changed;
      }
      EXPECT_EQ(differing, 0) << (macCormack ? "MacCormack" : "semi-Lagrangian") << ", " << bits << " bits";
      EXPECT_GT(changed, 0);
    }
    LimitAdvectionVectors(512);
  });
}

INSTANTIATE_TEST_SUITE_P(All, FastAdvection,
                         testing::Combine(testing::Range(0, 4), testing::Range(0, 3),
                                          testing::Range(0, static_cast<int>(std::size(kCases)))));

TEST(AdvectionPass, WorkersGetAllLayersAndAboutAsManyReachedCells) {
  const VecInt3D n(20, 18, 40);
  test::AdvectionBench bench(n, [](const Vec3D&) { return Vec3D(); });
  const auto grid = test::MakeGrid(n, kGridSmoke, bench.h);
  const AdvectionSource source = bench.Source(*grid, AdvectionSampling::Trilinear);
  const auto cellsOf = [&](int k) { return k >= 5 && k < 13 ? 18 : 0; };
  RowSpans reached;
  for (int row = 0; row < n.y * n.z; ++row) reached.push_back({1, 1 + cellsOf(row / n.y)});
  const AdvectionPass pass(bench.field, source, reached);
  for (const int workers : {1, 2, 3, 64}) {
    const std::vector<int> ends = LayerShares({&pass, 1}, workers);
    ASSERT_EQ(ends.size(), static_cast<std::size_t>(workers) + 1);
    EXPECT_TRUE(ends.front() == 1 && ends.back() == n.z - 1 && std::ranges::is_sorted(ends)) << workers;
    for (int w = 0; w < workers; ++w) {
      int cells = 0;
      for (int k = ends[w]; k < ends[w + 1]; ++k) cells += cellsOf(k);
      EXPECT_LE(cells, 8 * 18 / workers + 2 * 18) << "share " << w << " of " << workers;
    }
  }
}

}  // namespace
}  // namespace orlix
