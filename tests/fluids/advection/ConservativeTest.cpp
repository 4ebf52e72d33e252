// Conservative advection against the same steps as plain loops over plain arrays.

#include <gtest/gtest.h>

#include <optional>

#include "fluids/advection/ConservativeAdvection.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

using test::AdvectionBench;

struct Stencil {
  VecInt3D low;
  double weights[8] = {1, 0, 0, 0, 0, 0, 0, 0};
};

VecInt3D Corner(const Stencil& s, int n) { return s.low + VecInt3D(n >> 2, n >> 1 & 1, n & 1); }

class PlainConservative {
 public:
  PlainConservative(const AdvectionField& field, const AdvectionSource& source, const Grid<double>& inGamma)
      : field_(field),
        source_(source),
        n_(source.values.dims),
        records_(static_cast<std::size_t>(CellCount(n_))),
        forward_(records_.size()),
        gamma(n_, kGridScratch),
        result(n_, kGridScratch),
        minima(n_, kGridScratch),
        maxima(n_, kGridScratch) {
    Record();
    Apply(inGamma, gamma);
    Grid<double> beta(n_, kGridScratch);
    Beta(beta);
    ForAll([&](int i, int j, int k) {
      const Vec3D sample = Vec3D(i, j, k) + source_.offset;
      if (Border(i, j, k) || !(beta(i, j, k) < 1) || field_.solid.IsInsideSolid(sample)) return;
      forward_[At(i, j, k)] = TracedStencil(sample, field_.dt, 1 - beta(i, j, k));
    });
    ForAll([&](int i, int j, int k) {
      if (Border(i, j, k)) return;
      for (double& w : records_[At(i, j, k)].weights) {
        if (gamma(i, j, k) > 0) w *= 1 / gamma(i, j, k);
      }
      if (forward_[At(i, j, k)]) Divide(*forward_[At(i, j, k)], gamma);
    });
    Beta(beta);
    ForAll([&](int i, int j, int k) {
      if (Border(i, j, k)) return;
      Divide(records_[At(i, j, k)], beta);
      if (!forward_[At(i, j, k)] || !(beta(i, j, k) > 0)) return;
      for (double& w : forward_[At(i, j, k)]->weights) w *= 1 / beta(i, j, k);
    });
    Gamma();
    Apply(source_.values, result);
    ForAll([&](int i, int j, int k) {
      if (forward_[At(i, j, k)]) Scatter(*forward_[At(i, j, k)], source_.values(i, j, k), result);
    });
    Diffuse();
  }

 private:
  template <class F>
  void ForAll(F&& f) const {
    for (int k = 0; k < n_.z; ++k) {
      for (int j = 0; j < n_.y; ++j) {
        for (int i = 0; i < n_.x; ++i) f(i, j, k);
      }
    }
  }
  std::size_t At(int i, int j, int k) const { return static_cast<std::size_t>(source_.values.Index(i, j, k)); }
  bool Border(int i, int j, int k) const {
    return i < 1 || j < 1 || k < 1 || i >= n_.x - 1 || j >= n_.y - 1 || k >= n_.z - 1;
  }
  Stencil TracedStencil(const Vec3D& sample, float dt, double total) const {
    AdvectionField moved = field_;
    moved.dt = dt;
    Vec3D p = moved.Trace(sample);
    moved.Resolve(p);
    const std::uint8_t mask = field_.solid.SolidCornerMask(p * static_cast<double>(field_.cellSize));
    Vec3D c;
    for (int axis = 0; axis < 3; ++axis)
      c[axis] = std::min(std::max(p[axis], 1.0), n_[axis] - 1.0) - source_.offset[axis];
    Stencil s;
    s.low = VecInt3D(c);
    const Vec3D f = c - Vec3D(s.low);
    double sum = 0;
    for (int n = 0; n < 8; ++n) {
      const double w = total * (n & 4 ? f.x : 1 - f.x) * (n & 2 ? f.y : 1 - f.y) * (n & 1 ? f.z : 1 - f.z);
      s.weights[n] = mask >> n & 1 ? 0 : w;
      sum += s.weights[n];
    }
    for (double& w : s.weights) w = sum > 0 ? w * (total / sum) : 0;
    return s;
  }
  void Record() {
    ForAll([&](int i, int j, int k) {
      const Vec3D sample = Vec3D(i, j, k) + source_.offset;
      Stencil& s = records_[At(i, j, k)];
      s.low = {i, j, k};
      minima(i, j, k) = maxima(i, j, k) = source_.values(i, j, k);
      if (Border(i, j, k) || field_.solid.IsInsideSolid(sample)) return;
      s = TracedStencil(sample, -field_.dt, 1);
      minima(i, j, k) = 1e300, maxima(i, j, k) = -1e300;
      for (int n = 0; n < 8; ++n) {
        const VecInt3D c = Corner(s, n);
        minima(i, j, k) = std::min(minima(i, j, k), source_.values(c.x, c.y, c.z));
        maxima(i, j, k) = std::max(maxima(i, j, k), source_.values(c.x, c.y, c.z));
      }
    });
  }
  void Apply(const GridView<const double>& from, Grid<double>& to) const {
    ForAll([&](int i, int j, int k) {
      to(i, j, k) = from(i, j, k);
      if (Border(i, j, k)) return;
      double sum = 0;
      for (int n = 0; n < 8; ++n) {
        const VecInt3D c = Corner(records_[At(i, j, k)], n);
        sum += records_[At(i, j, k)].weights[n] * from(c.x, c.y, c.z);
      }
      to(i, j, k) = sum;
    });
  }
  static void Scatter(const Stencil& s, double factor, Grid<double>& to) {
    for (int n = 0; n < 8; ++n) {
      if (s.weights[n] != 0) to(Corner(s, n).x, Corner(s, n).y, Corner(s, n).z) += factor * s.weights[n];
    }
  }
  static void Divide(Stencil& s, const Grid<double>& by) {
    for (int n = 0; n < 8; ++n) {
      const VecInt3D c = Corner(s, n);
      if (s.weights[n] != 0 && by(c.x, c.y, c.z) > 0) s.weights[n] /= by(c.x, c.y, c.z);
    }
  }
  double ForwardSum(int i, int j, int k) const {
    double sum = 0;
    if (forward_[At(i, j, k)]) {
      for (const double w : forward_[At(i, j, k)]->weights) sum += w;
    }
    return sum;
  }
  void Beta(Grid<double>& beta) const {
    ForAll([&](int i, int j, int k) { beta(i, j, k) = Border(i, j, k) ? 0 : ForwardSum(i, j, k); });
    ForAll([&](int i, int j, int k) {
      if (!Border(i, j, k)) Scatter(records_[At(i, j, k)], 1, beta);
    });
    ForAll([&](int i, int j, int k) {
      if (Border(i, j, k)) beta(i, j, k) = 1;
    });
  }
  void Gamma() {
    ForAll([&](int i, int j, int k) {
      if (Border(i, j, k)) return;
      gamma(i, j, k) = 0;
      for (const double w : records_[At(i, j, k)].weights) gamma(i, j, k) += w;
    });
    ForAll([&](int i, int j, int k) {
      if (forward_[At(i, j, k)]) Scatter(*forward_[At(i, j, k)], 1, gamma);
    });
    ForAll([&](int i, int j, int k) {
      if (Border(i, j, k)) gamma(i, j, k) = 1;
    });
  }
  void Diffuse() {
    for (int iteration = 0; iteration < 7; ++iteration) {
      for (int axis = 0; axis < 3; ++axis) {
        const Grid<double> in = gamma;
        ForAll([&](int i, int j, int k) {
          if (Border(i, j, k)) return;
          VecInt3D n(i, j, k);
          ++n[axis];
          const double a = in(i, j, k), b = in(n.x, n.y, n.z);
          double &va = result(i, j, k), &vb = result(n.x, n.y, n.z);
          if (!(b > a) && a > 0) {
            const double d = (a - b) * 0.5, m = va * d / a;
            gamma(i, j, k) -= d, gamma(n.x, n.y, n.z) += d, va -= m, vb += m;
          } else if (b > a && b > 0) {
            const double d = (b - a) * 0.5, m = vb * d / b;
            gamma(n.x, n.y, n.z) -= d, gamma(i, j, k) += d, vb -= m, va += m;
          }
        });
      }
    }
  }

  const AdvectionField& field_;
  const AdvectionSource& source_;
  VecInt3D n_;
  std::vector<Stencil> records_;
  std::vector<std::optional<Stencil>> forward_;

 public:
  Grid<double> gamma, result, minima, maxima;
};

class ConservativeSteps : public testing::TestWithParam<double> {};

void ExpectSame(const Grid<double>& got, const Grid<double>& expected, const char* what) {
  int differing = 0;
  for (std::int64_t c = 0; c < got.count; ++c) differing += got[c] != expected[c];
  EXPECT_EQ(differing, 0) << what;
}

TEST_P(ConservativeSteps, GiveWhatPlainLoopsGive) {
  const VecInt3D cells(19, 17, 16);
  AdvectionBench bench(cells, test::RoughVelocity(GetParam(), 11), 0.1f);
  bench.SetSolid([](const Vec3D& p) { return Length(p - Vec3D(8, 9, 7)) - 3.3; });
  bench.field.integrator = Integrator::Heun;
  const auto grid = test::MakeGrid(cells, kGridSmoke, bench.h);
  test::FillSamples(*grid, test::RoughSource(12));
  const AdvectionSource source = bench.Source(*grid, AdvectionSampling::Trilinear);
  Grid<double> inGamma(cells, kGridScratch);
  test::FillSamples(*grid, test::RoughSource(12));
  std::mt19937 random(4);
  for (std::int64_t c = 0; c < inGamma.count; ++c)
    inGamma[c] = std::uniform_real_distribution<double>(0.5, 1.5)(random);
  WorkerPool pool(3);
  ScratchPool scratch;
  Grid<double> gamma(cells, kGridScratch), result(cells, kGridScratch), low(cells, kGridScratch),
      high(cells, kGridScratch);
  AdvectConservative(bench.field, source, {inGamma, gamma, low, high}, result, scratch, pool);
  const PlainConservative there(bench.field, source, inGamma);
  ExpectSame(result, there.result, "result");
  ExpectSame(gamma, there.gamma, "gamma");
  ExpectSame(low, there.minima, "minima");
  ExpectSame(high, there.maxima, "maxima");

  AdvectConservativeMacCormack(bench.field, source, inGamma, gamma, result, scratch, pool);
  AdvectionField backField = bench.field;
  backField.dt = -bench.field.dt;
  AdvectionSource ahead = source;
  ahead.values = there.result;
  const PlainConservative back(backField, ahead, there.gamma);
  int limited = 0, differing = 0;
  for (std::int64_t c = 0; c < result.count; ++c) {
    const double free = (source.values[c] - back.result[c]) * 0.5 + there.result[c];
    const double v = std::min(std::max(free, there.minima[c]), there.maxima[c]);
    limited += v != free;
    differing += result[c] != v || gamma[c] != (inGamma[c] - back.gamma[c]) * 0.5 + there.gamma[c];
  }
  EXPECT_EQ(differing, 0);
  EXPECT_GT(limited, 0);
}

INSTANTIATE_TEST_SUITE_P(Speeds, ConservativeSteps, testing::Values(0.4, 1.7, 5.0));

}  // namespace
}  // namespace orlix
