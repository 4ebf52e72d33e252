#include "fluids/surfacing/LevelSetSmoothing.h"

#include <algorithm>
#include <cmath>

#include "fluids/grids/CountedVector.h"
#include "fluids/level_sets/FastSweeper.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kLaplacianBand = 4, kBiharmonicBand = 3;  // cells
constexpr int kGap = 8;                                    // nodes between two runs that are worth a run of one
constexpr double kLaplacianStep = 0.1, kBiharmonicStep = 0.01;

// The nodes of a run and their neighbours.
struct Stencil {
  std::int64_t row, slab;
  double inverse;  // 1 / h
};

ORLIX_MULTIVERSION void LaplacianOfRun(const double* phi, const Stencil& s, double band, int count,
                                       double* __restrict laplacian) {
  const double scale = s.inverse * s.inverse;
  for (int i = 0; i < count; ++i) {
    const double sum = phi[i - 1] + phi[i + 1] + phi[i - s.row] + phi[i + s.row] + phi[i - s.slab] + phi[i + s.slab];
    const double value = (sum - 6 * phi[i]) * scale;
    laplacian[i] = std::abs(phi[i]) <= band ? value : laplacian[i];
  }
}

// next = phi + |grad phi| lap(flow) dt between the bounds; nodes beyond the band stay.
ORLIX_MULTIVERSION void StepRun(const double* phi, const double* flow, const Stencil& s, double band, double dt,
                                const double* lower, const double* upper, int count, double* __restrict next) {
  const double scale = s.inverse * s.inverse, half = 0.5 * s.inverse;
  for (int i = 0; i < count; ++i) {
    const double x = (phi[i + 1] - phi[i - 1]) * half, y = (phi[i + s.row] - phi[i - s.row]) * half,
                 z = (phi[i + s.slab] - phi[i - s.slab]) * half;
    const double sum =
        flow[i - 1] + flow[i + 1] + flow[i - s.row] + flow[i + s.row] + flow[i - s.slab] + flow[i + s.slab];
    const double moved = phi[i] + std::sqrt(x * x + y * y + z * z) * ((sum - 6 * flow[i]) * scale) * dt;
    const double low = moved < upper[i] ? moved : upper[i], v = low > lower[i] ? low : lower[i];
    next[i] = std::abs(phi[i]) <= band ? v : phi[i];
  }
}

// One flow over a level set, with the tables of its runs.
class Smoothing {
 public:
  Smoothing(WorkerPool& pool, ScratchPool& scratch, const SmoothingSettings& settings, ScalarGrid& phi,
            const BaseThread* hostThread)
      : pool_(pool),
        scratch_(scratch),
        settings_(settings),
        phi_(phi),
        hostThread_(hostThread),
        h_(phi.space.cellSize),
        stencil_{phi.dims.x, phi.slab, 1 / h_} {}

  bool Run() {
    if (settings_.reinitialiseFirst) Reinitialise();
    if (settings_.laplacianRounds > 0 && !Flow(settings_.laplacianRounds, false)) return false;
    if (settings_.biharmonicRounds <= 0) return true;
    Reinitialise();
    return Flow(settings_.biharmonicRounds, true);
  }

 private:
  void Reinitialise() {
    if (!upper_) upper_ = Shifted(settings_.above), lower_ = Shifted(settings_.below);
    for (Grid<double>* grid : {&*upper_, &*lower_, static_cast<Grid<double>*>(&phi_)}) {
      ReinitialiseLevelSet(pool_, scratch_, *grid, h_);
    }
    fresh_ = false;
  }
  // The bounds are those of the level set that was given: they are made before anything moved.
  ScratchPool::Lease<double> Shifted(double by) {
    auto grid = scratch_.Take<double>(phi_.dims);
    ParallelRange(pool_, 0, phi_.dims.z, [&](int from, int to, int) {
      for (std::int64_t c = std::int64_t(from) * phi_.slab; c < std::int64_t(to) * phi_.slab; ++c) {
        (*grid)[c] = phi_[c] + by;
      }
    });
    return grid;
  }
  void Collect(bool biharmonic);
  bool Flow(std::int32_t rounds, bool biharmonic);
  template <class F>
  void ForRuns(const ActiveRuns& active, F&& f) {
    ParallelRange(pool_, 0, static_cast<int>(active.runs().size()), [&](int from, int to, int) {
      for (int n = from; n < to; ++n) f(active.runs()[std::size_t(n)]);
    });
  }

  WorkerPool& pool_;
  ScratchPool& scratch_;
  const SmoothingSettings& settings_;
  ScalarGrid& phi_;
  const BaseThread* hostThread_;
  double h_;
  Stencil stencil_;
  bool fresh_ = false;  // the runs are those of phi
  ActiveRuns wide_, narrow_;
  CountedVector<double> low_, high_, next_;
  ScratchPool::Lease<double> lower_, upper_;
};

void Smoothing::Collect(bool biharmonic) {
  fresh_ = true;
  if (biharmonic) wide_.Build(pool_, phi_, kLaplacianBand * h_, 1);
  narrow_.Build(pool_, phi_, (biharmonic ? kBiharmonicBand : kLaplacianBand) * h_, biharmonic ? 2 : 1);
  const auto count = std::size_t(narrow_.nodeCount());
  low_.resize(count), high_.resize(count), next_.resize(count);
  ForRuns(narrow_, [&](const ActiveRuns::Run& run) {
    for (std::int32_t i = 0; i < run.length; ++i) {
      const auto at = std::size_t(run.place + i);
      low_[at] = lower_ ? (*lower_)[run.node + i] : phi_[run.node + i] + settings_.below;
      high_[at] = upper_ ? (*upper_)[run.node + i] : phi_[run.node + i] + settings_.above;
    }
  });
}

bool Smoothing::Flow(std::int32_t rounds, bool biharmonic) {
  const double dt = biharmonic ? -kBiharmonicStep * settings_.speed * h_ * h_ * h_ * h_ : kLaplacianStep * h_ * h_;
  const double band = (biharmonic ? kBiharmonicBand : kLaplacianBand) * h_;
  ScratchPool::Lease<double> laplacian;
  if (biharmonic) {
    laplacian = scratch_.Take<double>(phi_.dims);
    laplacian->Fill(0, &pool_);  // beyond the band nothing bends
  } else if (settings_.biharmonicRounds > 0 || (settings_.period > 0 && rounds > settings_.period)) {
    if (!upper_) upper_ = Shifted(settings_.above), lower_ = Shifted(settings_.below);
  }
  for (std::int32_t round = 0; round < rounds; ++round) {
    if (hostThread_ && hostThread_->TestBreak()) return false;
    if (round > 0 && settings_.period > 0 && round % settings_.period == 0) Reinitialise();
    if (!fresh_ || round == 0) Collect(biharmonic);
    if (biharmonic) {
      ForRuns(wide_, [&](const ActiveRuns::Run& run) {
        LaplacianOfRun(phi_.data + run.node, stencil_, kLaplacianBand * h_, run.length, laplacian->data + run.node);
      });
    }
    const double* flow = biharmonic ? laplacian->data : phi_.data;
    ForRuns(narrow_, [&](const ActiveRuns::Run& run) {
      const auto at = std::size_t(run.place);
      StepRun(phi_.data + run.node, flow + run.node, stencil_, band, dt, &low_[at], &high_[at], run.length, &next_[at]);
    });
    ForRuns(narrow_, [&](const ActiveRuns::Run& run) {
      std::copy_n(&next_[std::size_t(run.place)], run.length, phi_.data + run.node);
    });
  }
  return true;
}

// The runs of one row, begun with its first node.
void FindRuns(const double* row, int from, int to, double reach, std::int64_t first,
              std::vector<ActiveRuns::Run>& runs) {
  int begin = -1, end = -1;  // of the open run
  for (int i = from; i < to; ++i) {
    if (!(std::abs(row[i]) <= reach)) continue;
    if (begin >= 0 && i - end > kGap) {
      runs.push_back({first + begin, 0, end - begin});
      begin = -1;
    }
    if (begin < 0) begin = i;
    end = i + 1;
  }
  if (begin >= 0) runs.push_back({first + begin, 0, end - begin});
}

}  // namespace

void ActiveRuns::Build(WorkerPool& pool, const GridView<const double>& phi, double reach, int layers) {
  const VecInt3D n = phi.dims;
  std::vector<std::vector<Run>> parts(std::size_t(pool.count()));
  ParallelRange(pool, layers, n.z - layers, [&](int from, int to, int worker) {
    for (int k = from; k < to; ++k) {
      for (int j = layers; j < n.y - layers; ++j) {
        FindRuns(&phi(0, j, k), layers, n.x - layers, reach, phi.Index(0, j, k), parts[std::size_t(worker)]);
      }
    }
  });
  runs_.clear();
  nodes_ = 0;
  for (const std::vector<Run>& part : parts) runs_.insert(runs_.end(), part.begin(), part.end());
  for (Run& run : runs_) {
    run.place = nodes_;
    nodes_ += run.length;
  }
}

bool SmoothLevelSet(WorkerPool& pool, ScratchPool& scratch, const SmoothingSettings& settings, ScalarGrid& phi,
                    const BaseThread* hostThread) {
  return Smoothing(pool, scratch, settings, phi, hostThread).Run();
}

}  // namespace orlix
