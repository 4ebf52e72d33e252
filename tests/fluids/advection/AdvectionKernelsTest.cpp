// The fast kernels against plain loops, and the laws of advection.

#include <gtest/gtest.h>

#include <tuple>

#include "fluids/advection/AdvectionPass.h"
#include "fluids/advection/ConservativeAdvection.h"
#include "fluids/advection/VelocityPoints.h"
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

TEST(VelocityPoints, ARunHasTheBitsOfItsPointsAlsoBesideAndBeyondTheLattice) {
  const VecInt3D cells(9, 7, 8);
  std::mt19937 random(5);
  std::uniform_real_distribution<double> any(-1, 1);
  test::AdvectionBench bench(cells, [&](const Vec3D&) { return Vec3D(any(random), any(random), any(random)) * 3.0; });
  const VelocityView& velocity = bench.field.velocity;
  const double h = bench.h, perMetre = 1.0 / h, dt = 0.3;
  const auto velocityAt = [&](const Vec3D& local) { return velocity.At(local * perMetre); };
  int checked = 0;
  for (const int count : {1, 3, 4, 61, 128}) {
    std::vector<Vec3D> points;
    for (int n = 0; n < count; ++n) {
      const Vec3D r(any(random), any(random), any(random));
      points.push_back((r * 0.7 + Vec3D(0.5)) * Vec3D(cells) * h);
    }
    PointRun run, u;
    const Vec3D offset(3, -5, 0.25);
    std::vector<Vec3D> back(points.size());
    run.Load(points.data(), count, offset);
    run.Unload(back.data(), -offset);
    for (int n = 0; n < count; ++n) {
      ASSERT_EQ(run.Get(n), points[n] + offset);
      ASSERT_EQ(back[n], points[n] + offset - offset);
    }
    run.Load(points.data(), count);
    SampleVelocity(velocity, perMetre, run, u);
    double distances[PointRun::kMost];
    SampleNodes(bench.field.solid.nodes(), h, run, distances);
    for (int n = 0; n < count; ++n, ++checked) {
      ASSERT_EQ(u.Get(n), velocityAt(points[n]));
      ASSERT_EQ(distances[n], bench.field.solid.DistanceLocal(points[n]));
    }
    for (int method = -1; method < 5; ++method) {
      const auto integrator = static_cast<Integrator>(method);
      PointRun moved = run;
      TracePoints(velocity, perMetre, integrator, dt, moved);
      for (int n = 0; n < count; ++n, ++checked) {
        ASSERT_EQ(moved.Get(n), TracePoint(integrator, points[n], dt, velocityAt)) << method;
      }
    }
  }
  EXPECT_EQ(checked, 7 * (1 + 3 + 4 + 61 + 128));
}

// Conservative advection is a matrix: what each cell takes of the others.

using test::AdvectionBench;

// Lentine, Gretarsson and Fedkiw 2011: rows of semi-Lagrangian weights; a cell that gives too little gives the rest
// where its content goes; then rows are divided by what their cell takes, and columns by what theirs gives.
class ConservativeMatrix {
 public:
  ConservativeMatrix(const AdvectionField& field, const AdvectionSource& source, const Grid<double>& inGamma)
      : field_(field), source_(source), n_(source.values.dims), count_(inGamma.count) {
    weights_.assign(static_cast<std::size_t>(count_ * count_), 0.0);
    test::ForAll(n_, [&](int i, int j, int k) {
      const std::int64_t cell = inGamma.Index(i, j, k);
      const Vec3D sample = Vec3D(i, j, k) + source_.offset;
      inner_.push_back(i > 0 && j > 0 && k > 0 && i < n_.x - 1 && j < n_.y - 1 && k < n_.z - 1);
      moves_.push_back(inner_.back() && !field_.solid.IsInsideSolid(sample));
      if (!moves_.back()) At(cell, cell) = 1;
      if (moves_.back()) ForStencil(sample, -field_.dt, [&](std::int64_t from, double w) { At(cell, from) += w; });
    });
    const std::vector<double> taken = Times(test::ValuesOf(inGamma)), given = ColumnSums();
    test::ForAll(n_, [&](int i, int j, int k) {
      const std::int64_t cell = inGamma.Index(i, j, k);
      const double rest = 1 - given[static_cast<std::size_t>(cell)];
      if (!moves_[static_cast<std::size_t>(cell)] || !(rest > 0)) return;
      ForStencil(Vec3D(i, j, k) + source_.offset, field_.dt,
                 [&](std::int64_t to, double w) { At(to, cell) += rest * w; });
    });
    for (std::int64_t row = 0; row < count_; ++row) {
      const double gamma = taken[static_cast<std::size_t>(row)];
      for (std::int64_t column = 0; column < count_ && gamma > 0; ++column) At(row, column) /= gamma;
    }
    const std::vector<double> beta = ColumnSums();
    for (std::int64_t column = 0; column < count_; ++column) {
      const bool scaled = inner_[static_cast<std::size_t>(column)] && beta[static_cast<std::size_t>(column)] > 0;
      for (std::int64_t row = 0; row < count_ && scaled; ++row)
        At(row, column) /= beta[static_cast<std::size_t>(column)];
    }
  }
  std::vector<double> Times(const std::vector<double>& v) const {
    std::vector<double> product(v.size(), 0.0);
    for (std::int64_t row = 0; row < count_; ++row) {
      for (std::int64_t column = 0; column < count_; ++column)
        product[static_cast<std::size_t>(row)] += At(row, column) * v[static_cast<std::size_t>(column)];
    }
    return product;
  }
  // What each inner cell takes; 1 on the border.
  std::vector<double> Gamma() const {
    std::vector<double> sums = Times(std::vector<double>(static_cast<std::size_t>(count_), 1.0));
    for (std::size_t cell = 0; cell < sums.size(); ++cell) sums[cell] = inner_[cell] ? sums[cell] : 1;
    return sums;
  }

 private:
  double& At(std::int64_t row, std::int64_t column) {
    return weights_[static_cast<std::size_t>(row * count_ + column)];
  }
  double At(std::int64_t row, std::int64_t column) const {
    return weights_[static_cast<std::size_t>(row * count_ + column)];
  }
  std::vector<double> ColumnSums() const {
    std::vector<double> sums(static_cast<std::size_t>(count_), 0.0);
    for (std::int64_t c = 0; c < count_ * count_; ++c)
      sums[static_cast<std::size_t>(c % count_)] += weights_[static_cast<std::size_t>(c)];
    return sums;
  }
  // f(cell, weight) for the eight cells around where a sample goes; what lies in a solid has none, the others share.
  template <class F>
  void ForStencil(const Vec3D& sample, float dt, F&& f) const {
    AdvectionField moved = field_;
    moved.dt = dt;
    Vec3D p = moved.Trace(sample);
    moved.Resolve(p);
    const std::uint8_t solid = field_.solid.SolidCornerMask(p * static_cast<double>(field_.cellSize));
    const Vec3D at = p - source_.offset, share = at - Vec3D(VecInt3D(at));
    double sum = 0, weight[8];
    for (int n = 0; n < 8; ++n) {
      weight[n] = (n & 4 ? share.x : 1 - share.x) * (n & 2 ? share.y : 1 - share.y) * (n & 1 ? share.z : 1 - share.z);
      if (solid >> n & 1) weight[n] = 0;
      sum += weight[n];
    }
    for (int n = 0; n < 8 && sum > 0; ++n) {
      const VecInt3D c = VecInt3D(at) + VecInt3D(n >> 2, n >> 1 & 1, n & 1);
      f(source_.values.Index(c.x, c.y, c.z), weight[n] / sum);
    }
  }

  const AdvectionField& field_;
  const AdvectionSource& source_;
  const VecInt3D n_;
  const std::int64_t count_;
  std::vector<double> weights_;
  std::vector<bool> inner_, moves_;
};

class ConservativeSteps : public testing::TestWithParam<double> {};

TEST_P(ConservativeSteps, AreTheMatrixAndThenTheDiffusionOfGamma) {
  const VecInt3D cells(10, 9, 8);
  AdvectionBench bench(cells, test::RoughVelocity(GetParam(), 11), 0.1f);
  bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(5, 5, 4)) - 1.9; });
  bench.field.integrator = Integrator::Heun;
  const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  test::FillSamples(*grid, test::RoughSource(12));
  const AdvectionSource source = bench.Source(*grid, AdvectionSampling::Trilinear);
  Grid<double> inGamma(cells, kGridScratch), gamma(cells, kGridScratch), result(cells, kGridScratch);
  inGamma.Fill(1);
  test::ForInner(cells, [&](int i, int j, int k) { inGamma(i, j, k) = 1 + 0.4 * std::sin(i + 2 * j + 5 * k); });
  WorkerPool pool(3);
  ScratchPool scratch;
  AdvectConservative(bench.field, source, {inGamma, gamma, {}, {}}, result, scratch, pool);

  const ConservativeMatrix matrix(bench.field, source, inGamma);
  Grid<double> values(cells, kGridScratch), taken(cells, kGridScratch);
  std::ranges::copy(matrix.Times(test::ValuesOf(*grid)), values.data);
  std::ranges::copy(matrix.Gamma(), taken.data);
  DiffuseGamma(7, values, taken, scratch, pool);
  for (std::int64_t c = 0; c < result.count; ++c) {
    ASSERT_NEAR(result[c], values[c], 1e-12) << c;
    ASSERT_NEAR(gamma[c], taken[c], 1e-12) << c;
  }
}

TEST_P(ConservativeSteps, OfMacCormackTakeHalfTheErrorOffWithinTheSourcesRange) {
  const VecInt3D cells(19, 17, 16);
  AdvectionBench bench(cells, test::RoughVelocity(GetParam(), 11), 0.1f);
  const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  test::FillSamples(*grid, test::RoughSource(12));
  AdvectionSource source = bench.Source(*grid, AdvectionSampling::Trilinear);
  const auto made = [&] { return Grid<double>(cells, kGridScratch); };
  Grid<double> ones = made(), there = made(), back = made(), low = made(), high = made(), result = made();
  Grid<double> thereGamma = made(), backGamma = made(), gamma = made();
  ones.Fill(1);
  WorkerPool pool(2);
  ScratchPool scratch;
  AdvectConservativeMacCormack(bench.field, source, ones, gamma, result, scratch, pool);
  AdvectConservative(bench.field, source, {ones, thereGamma, low, high}, there, scratch, pool);
  source.values = there;
  bench.field.dt = -bench.field.dt;
  AdvectConservative(bench.field, source, {thereGamma, backGamma, {}, {}}, back, scratch, pool);
  int limited = 0;
  for (std::int64_t c = 0; c < result.count; ++c) {
    const double free = ((*grid)[c] - back[c]) * 0.5 + there[c];
    ASSERT_EQ(result[c], std::clamp(free, low[c], high[c]));
    ASSERT_EQ(gamma[c], (1 - backGamma[c]) * 0.5 + thereGamma[c]);
    limited += result[c] != free;
  }
  EXPECT_GT(limited, 0);
}

INSTANTIATE_TEST_SUITE_P(Speeds, ConservativeSteps, testing::Values(0.4, 1.7, 5.0));

}  // namespace
}  // namespace orlix
