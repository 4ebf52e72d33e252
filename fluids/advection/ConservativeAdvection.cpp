#include "fluids/advection/ConservativeAdvection.h"

#include <new>

#include "fluids/advection/AdvectionPass.h"
#include "fluids/advection/Contributions.h"

namespace orlix {

namespace {

constexpr int kGammaIterations = 7;

class ConservativePass {
 public:
  ConservativePass(const AdvectionField& field, const AdvectionSource& source, WorkerPool& pool)
      : field_(field), source_(source), pool_(pool), n_(source.values.dims), records_(n_) {}

  void RecordBackward(const ConservativeGrids& grids);
  void RecordForward(const GridView<double>& beta);
  void ApplyBackward(const GridView<const double>& from, const GridView<double>& to) const;
  void ApplyForward(const GridView<double>& to);
  void ComputeBeta(const GridView<double>& beta);
  void ComputeGamma(const GridView<double>& gamma);
  void ClampGamma(const GridView<double>& gamma);
  void ClampBeta(const GridView<double>& beta);

 private:
  // f(i, j, k) for the interior, each worker its own layers.
  template <class F>
  void ForEachInterior(F&& f) const {
    ParallelRange(pool_, 1, n_.z - 1, [&](int begin, int end, int) {
      for (int k = begin; k < end && !pool_.Broken(); ++k) {
        for (int j = 1; j < n_.y - 1; ++j) {
          for (int i = 1; i < n_.x - 1; ++i) f(i, j, k);
        }
      }
    });
  }
  // Scatters into layers: each worker goes through all cells whose records reach its own layers, in order, so that sums
  // don't depend on the division. first(k) fills a worker's layer before; add(i, j, k, begin, end) writes only layers
  // in [begin, end).
  template <class First, class Add>
  void ScatterByLayers(First&& first, Add&& add) {
    ParallelRange(pool_, 0, n_.z, [&](int begin, int end, int) {
      for (int k = begin; k < end; ++k) first(k);
      records_.ForEachReaching(begin, end, [&](int k) {
        if (k < 1 || k >= n_.z - 1) return;
        for (int j = 1; j < n_.y - 1; ++j) {
          for (int i = 1; i < n_.x - 1; ++i) add(i, j, k, begin, end);
        }
      });
    });
  }
  // Adds factor times a stencil's weights to the corners in the layers [begin, end).
  void AddStencil(const ContributionStencil& stencil, double factor, const GridView<double>& to, int begin,
                  int end) const {
    double* low = to.data + records_.Index(stencil);
    for (int corner = 0; corner < 8; ++corner) {
      const int k = stencil.k + (corner & 1);
      if (k >= begin && k < end) low[records_.corners()[corner]] += factor * stencil.weights[corner];
    }
  }
  void SetBorder(const GridView<double>& grid, double value) const;
  ContributionStencil StencilAt(const Vec3D& place, double total) const;
  void SetIdentity(int i, int j, int k, const ConservativeGrids& grids);
  void RangeOf(const ContributionStencil& stencil, int i, int j, int k, const ConservativeGrids& grids) const;

  const AdvectionField& field_;
  const AdvectionSource& source_;
  WorkerPool& pool_;
  const VecInt3D n_;
  ContributionGrid records_;
};

// Calls f(i, j, k) for the cells of the six faces.
template <class F>
void ForEachBorder(const VecInt3D& n, F&& f) {
  for (int k = 0; k < n.z; ++k) {
    for (int j = 0; j < n.y; ++j) {
      const bool whole = k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1;
      for (int i = 0; i < n.x; i += whole ? 1 : std::max(n.x - 1, 1)) f(i, j, k);
    }
  }
}

void ConservativePass::SetBorder(const GridView<double>& grid, double value) const {
  ForEachBorder(n_, [&](int i, int j, int k) { grid(i, j, k) = value; });
}

// The cells around a traced and resolved point.
ContributionStencil ConservativePass::StencilAt(const Vec3D& place, double total) const {
  Vec3D at;
  for (int axis = 0; axis < 3; ++axis) {
    // NaN goes to the low end.
    const double least = place[axis] > 1 ? place[axis] : 1.0;
    at[axis] = std::min(least, n_[axis] - 1.0) - source_.offset[axis];
  }
  const std::uint8_t mask =
      field_.solid.HasData() ? field_.solid.SolidCornerMask(place * static_cast<double>(field_.cellSize)) : 0;
  return ComputeWeights(at, mask, total);
}

void ConservativePass::SetIdentity(int i, int j, int k, const ConservativeGrids& grids) {
  records_.Set(i, j, k, {i, j, k, {1}});
  if (!grids.minima.data) return;
  grids.minima(i, j, k) = grids.maxima(i, j, k) = source_.values(i, j, k);
}

void ConservativePass::RangeOf(const ContributionStencil& stencil, int i, int j, int k,
                               const ConservativeGrids& grids) const {
  const double* p = source_.values.data + records_.Index(stencil);
  double low = p[0], high = p[0];
  for (const std::int64_t corner : records_.corners()) low = std::min(low, p[corner]), high = std::max(high, p[corner]);
  grids.minima(i, j, k) = low;
  grids.maxima(i, j, k) = high;
}

void ConservativePass::RecordBackward(const ConservativeGrids& grids) {
  AdvectionField back = field_;
  back.dt = -field_.dt;
  const RowSpans reached = WholeRows(n_);
  const AdvectionPass pass(back, source_, reached);
  TouchedGrids touched;
  for (const GridView<const double>& grid : back.velocity.component) touched.Add(grid);
  touched.Add(source_.values);
  ForEachRun(
      {&pass, 1}, touched, pool_,
      [&](int, AdvectionRun& run) {
        for (int l = 0; l < run.count; ++l) {
          const ContributionStencil stencil = StencilAt({run.place[0][l], run.place[1][l], run.place[2][l]}, 1.0);
          records_.Set(run.begin + l, run.j, run.k, stencil);
          if (grids.minima.data) RangeOf(stencil, run.begin + l, run.j, run.k, grids);
        }
        pass.ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                          [&](int i) { SetIdentity(i, run.j, run.k, grids); });
      },
      [](int, int, int, int, int) {});
  ForEachBorder(n_, [&](int i, int j, int k) { SetIdentity(i, j, k, grids); });
}

void ConservativePass::RecordForward(const GridView<double>& beta) {
  const bool solids = source_.insideSolid && !source_.insideSolid->IsEmpty();
  const auto givesTooLittle = [&](int i, int j, int k) {
    return beta(i, j, k) < 1.0 && !(solids && (*source_.insideSolid)(i, j, k));
  };
  std::vector<std::size_t> counts(static_cast<std::size_t>(n_.z), 0);
  ForEachInterior([&](int i, int j, int k) { counts[static_cast<std::size_t>(k)] += givesTooLittle(i, j, k) ? 1 : 0; });
  for (int k = 0; k < n_.z; ++k) records_.ReserveForward(k, counts[static_cast<std::size_t>(k)]);
  ForEachInterior([&](int i, int j, int k) {
    if (!givesTooLittle(i, j, k)) return;
    Vec3D place = field_.Trace(Vec3D(i, j, k) + source_.offset);
    field_.Resolve(place);
    records_.SetForward(records_(i, j, k), k, StencilAt(place, 1.0 - beta(i, j, k)));
  });
}

void ConservativePass::ApplyBackward(const GridView<const double>& from, const GridView<double>& to) const {
  ForEachInterior([&](int i, int j, int k) {
    const ContributionCoefficients& record = records_(i, j, k);
    const double* p = from.data + records_.Index(record);
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) sum += record.weights[corner] * p[records_.corners()[corner]];
    to(i, j, k) = sum;
  });
  ForEachBorder(n_, [&](int i, int j, int k) { to(i, j, k) = from(i, j, k); });
}

void ConservativePass::ApplyForward(const GridView<double>& to) {
  ScatterByLayers([](int) {},
                  [&](int i, int j, int k, int begin, int end) {
                    if (const ContributionStencil* forward = records_.ForwardOf(records_(i, j, k), k)) {
                      AddStencil(*forward, source_.values(i, j, k), to, begin, end);
                    }
                  });
}

double SumOf(const ContributionStencil& stencil) {
  double sum = 0;
  for (const double weight : stencil.weights) sum += weight;
  return sum;
}

// How much each cell gives.
void ConservativePass::ComputeBeta(const GridView<double>& beta) {
  const auto fill = [&](int k) {
    std::fill_n(beta.data + beta.Index(0, 0, k), beta.slab, 0.0);
    if (k == 0 || k == n_.z - 1) return;
    for (int j = 1; j < n_.y - 1; ++j) {
      for (int i = 1; i < n_.x - 1; ++i) {
        if (const ContributionStencil* forward = records_.ForwardOf(records_(i, j, k), k))
          beta(i, j, k) = SumOf(*forward);
      }
    }
  };
  ScatterByLayers(
      fill, [&](int i, int j, int k, int begin, int end) { AddStencil(records_(i, j, k), 1.0, beta, begin, end); });
  SetBorder(beta, 1.0);
}

// How much each cell takes.
void ConservativePass::ComputeGamma(const GridView<double>& gamma) {
  const auto fill = [&](int k) {
    if (k == 0 || k == n_.z - 1) return;
    for (int j = 1; j < n_.y - 1; ++j) {
      for (int i = 1; i < n_.x - 1; ++i) gamma(i, j, k) = SumOf(records_(i, j, k));
    }
  };
  ScatterByLayers(fill, [&](int i, int j, int k, int begin, int end) {
    if (const ContributionStencil* forward = records_.ForwardOf(records_(i, j, k), k)) {
      AddStencil(*forward, 1.0, gamma, begin, end);
    }
  });
  SetBorder(gamma, 1.0);
}

// Divides each weight by the value at its corner, where that is above 0.
void DivideByCorners(ContributionStencil& stencil, const double* low, const std::array<std::int64_t, 8>& corners) {
  for (int corner = 0; corner < 8; ++corner) {
    const double value = low[corners[corner]];
    if (value > 0) stencil.weights[corner] /= value;
  }
}

void ScaleWeights(ContributionStencil& stencil, double factor) {
  for (double& weight : stencil.weights) weight *= factor;
}

void ConservativePass::ClampGamma(const GridView<double>& gamma) {
  ForEachInterior([&](int i, int j, int k) {
    ContributionCoefficients& record = records_(i, j, k);
    if (gamma(i, j, k) > 0) ScaleWeights(record, 1 / gamma(i, j, k));
    if (ContributionStencil* forward = records_.ForwardOf(record, k)) {
      DivideByCorners(*forward, gamma.data + records_.Index(*forward), records_.corners());
    }
  });
}

void ConservativePass::ClampBeta(const GridView<double>& beta) {
  ForEachInterior([&](int i, int j, int k) {
    ContributionCoefficients& record = records_(i, j, k);
    DivideByCorners(record, beta.data + records_.Index(record), records_.corners());
    ContributionStencil* forward = records_.ForwardOf(record, k);
    if (forward && beta(i, j, k) > 0) ScaleWeights(*forward, 1 / beta(i, j, k));
  });
}

bool HasInterior(const VecInt3D& n) { return n.x > 2 && n.y > 2 && n.z > 2; }

}  // namespace

void AdvectConservative(const AdvectionField& field, const AdvectionSource& source, const ConservativeGrids& grids,
                        GridView<double> result, ScratchPool& scratch, WorkerPool& pool) {
  if (!HasInterior(source.values.dims)) return;
  AdvectionSource whole = source;
  whole.content = AdvectionSource().content;
  {
    ConservativePass pass(field, whole, pool);
    const auto beta = scratch.Take<double>(source.values.dims);
    pass.RecordBackward(grids);
    if (pool.Broken()) return;  // some cells have no record
    pass.ApplyBackward(grids.inGamma, grids.outGamma);
    pass.ComputeBeta(*beta);
    pass.RecordForward(*beta);
    if (pool.Broken()) return;
    pass.ClampGamma(grids.outGamma);
    pass.ComputeBeta(*beta);
    pass.ClampBeta(*beta);
    pass.ComputeGamma(grids.outGamma);
    pass.ApplyBackward(source.values, result);
    pass.ApplyForward(result);
  }
  DiffuseGamma(kGammaIterations, result, grids.outGamma, scratch, pool);
}

namespace {

// to = (from - back) / 2 + forward, limited to the range where there is one.
void Combine(const GridView<const double>& from, const GridView<const double>& back,
             const GridView<const double>& forward, const GridView<const double>& low,
             const GridView<const double>& high, const GridView<double>& to, WorkerPool& pool) {
  ParallelRange(pool, 0, to.dims.z, [&](int begin, int end, int) {
    for (std::int64_t c = to.slab * begin; c < to.slab * end; ++c) {
      double v = (from[c] - back[c]) * 0.5 + forward[c];
      if (low.data) v = v < low[c] ? low[c] : high[c] < v ? high[c] : v;
      to[c] = v;
    }
  });
}

}  // namespace

void AdvectConservativeMacCormack(const AdvectionField& field, const AdvectionSource& source,
                                  GridView<const double> previousGamma, GridView<double> gamma, GridView<double> result,
                                  ScratchPool& scratch, WorkerPool& pool) {
  const VecInt3D n = source.values.dims;
  if (!HasInterior(n)) return;
  const auto low = scratch.Take<double>(n), high = scratch.Take<double>(n);
  const auto forward = scratch.Take<double>(n), reverse = scratch.Take<double>(n);
  const auto forwardGamma = scratch.Take<double>(n), reverseGamma = scratch.Take<double>(n);
  AdvectConservative(field, source, {previousGamma, *forwardGamma, *low, *high}, *forward, scratch, pool);
  AdvectionField back = field;
  back.dt = -field.dt;
  AdvectionSource ahead = source;
  ahead.values = *forward;
  AdvectConservative(back, ahead, {*forwardGamma, *reverseGamma, {}, {}}, *reverse, scratch, pool);
  Combine(source.values, *reverse, *forward, *low, *high, result, pool);
  Combine(previousGamma, *reverseGamma, *forwardGamma, {}, {}, gamma, pool);
}

}  // namespace orlix
