// Conservative advection is a matrix: what each cell takes of the others.

#include <gtest/gtest.h>

#include "fluids/advection/ConservativeAdvection.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

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
