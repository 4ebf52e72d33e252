#include "fluids/surfacing/LevelSetSmoothing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <vector>

#include "fluids/level_sets/FastSweeper.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kLaplacianBand = 4, kBiharmonicBand = 3;  // cells
constexpr int kGap = 8;                                    // nodes between two runs that are worth a run of one
constexpr std::size_t kRunsAhead = 4;                      // from memory to where they are needed
constexpr double kLaplacianStep = 0.1, kBiharmonicStep = 0.01;

// The first node of [i, to) within a reach of the surface; to where there is none.
ORLIX_MULTIVERSION int FindNear(const double* row, int i, int to, double reach) {
  const auto isNear = [&](int at) { return std::abs(row[at]) <= reach; };
  for (; i + 4 * kLanes <= to; i += 4 * kLanes) {
    Lanes v;
    std::memcpy(&v, row + i, sizeof v);
    auto near = (v <= reach) & (v >= -reach);
    for (int c = 1; c < 4; ++c) {
      std::memcpy(&v, row + i + c * kLanes, sizeof v);
      near |= (v <= reach) & (v >= -reach);
    }
    if ((near[0] | near[1] | near[2] | near[3]) != 0) break;
  }
  while (i < to && !isNear(i)) ++i;
  return i;
}

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

// Runs of nodes along x: those within a reach of the surface, and a few between them.
class ActiveRuns {
 public:
  struct Run {
    std::int64_t node;   // in the grid
    std::int64_t place;  // in tables that hold the nodes of all runs
    std::int32_t length;
  };

  // Leaves out the outermost layers. within: runs of a larger reach and of as many layers or fewer, null for all nodes.
  void Build(WorkerPool& pool, const GridView<const double>& phi, double reach, int layers, const ActiveRuns* within) {
    const VecInt3D n = phi.dims;
    std::vector<std::vector<Run>> parts(std::size_t(pool.count()));
    std::vector<std::size_t> ends(std::size_t(n.z) + 1, 0);
    ParallelRange(pool, layers, n.z - layers, [&](int from, int to, int worker) {
      std::vector<Run>& runs = parts[std::size_t(worker)];
      for (int k = from; k < to; ++k) {
        const std::size_t before = runs.size();
        const auto find = [&](int j, int begin, int end) {
          if (j < layers || j >= n.y - layers) return;
          FindRuns(&phi(0, j, k), std::max(begin, layers), std::min(end, n.x - layers), reach, phi.Index(0, j, k),
                   runs);
        };
        if (within) {
          for (const Run& run : within->Layer(k)) {
            const int j = static_cast<int>(run.node / n.x % n.y), i = static_cast<int>(run.node % n.x);
            find(j, i, i + run.length);
          }
        } else {
          for (int j = 0; j < n.y; ++j) find(j, 0, n.x);
        }
        ends[std::size_t(k) + 1] = runs.size() - before;
      }
    });
    for (std::size_t k = 1; k < ends.size(); ++k) ends[k] += ends[k - 1];
    ends_ = std::move(ends);
    runs_.clear();
    nodes_ = 0;
    for (const std::vector<Run>& part : parts) runs_.insert(runs_.end(), part.begin(), part.end());
    for (Run& run : runs_) {
      run.place = nodes_;
      nodes_ += run.length;
    }
  }
  std::span<const Run> Layer(int k) const {
    return std::span(runs_).subspan(ends_[std::size_t(k)], ends_[std::size_t(k) + 1] - ends_[std::size_t(k)]);
  }
  std::int64_t nodeCount() const { return nodes_; }
  // The first layer of each of several parts of about as many nodes, and the end.
  std::vector<int> Divide(int parts) const {
    std::vector<int> firsts = {0};
    for (int k = 1; k < static_cast<int>(ends_.size()) - 1; ++k) {
      const std::size_t run = ends_[std::size_t(k)];
      const std::int64_t before = run < runs_.size() ? runs_[run].place : nodes_;
      if (static_cast<int>(firsts.size()) < parts && before * parts >= nodes_ * std::int64_t(firsts.size())) {
        firsts.push_back(k);
      }
    }
    firsts.push_back(static_cast<int>(ends_.size()) - 1);
    return firsts;
  }

 private:
  std::vector<Run> runs_;
  std::vector<std::size_t> ends_;  // how many runs there are before each layer
  std::int64_t nodes_ = 0;

  static void FindRuns(const double* row, int from, int to, double reach, std::int64_t first, std::vector<Run>& runs) {
    int begin = -1, end = -1;  // of the open run
    const auto close = [&] {
      if (begin >= 0) runs.push_back({first + begin, 0, end - begin});
      begin = -1;
    };
    for (int i = from; i < to; ++i) {
      i = FindNear(row, i, to, reach);
      if (i == to) break;
      if (i - end > kGap) close();
      if (begin < 0) begin = i;
      end = i + 1;
    }
    close();
  }
};

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
    ReinitialiseBound(upper_, settings_.above);
    ReinitialiseBound(lower_, settings_.below);
    ReinitialiseLevelSet(pool_, scratch_, phi_, 0, h_, phi_);
    fresh_ = false;
  }
  void ReinitialiseBound(ScratchPool::Lease<double>& bound, double shift) {
    if (bound) return ReinitialiseLevelSet(pool_, scratch_, *bound, 0, h_, *bound);
    bound = scratch_.Take<double>(phi_.dims);
    ReinitialiseLevelSet(pool_, scratch_, phi_, shift, h_, *bound);
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
  void Round(double* laplacian, double band, double dt);
  // What the Laplacian of a run is the first to read and to write.
  void FetchAhead(const ActiveRuns::Run& run, const double* laplacian) {
    constexpr int kLine = 64 / sizeof(double);
    const double* above = phi_.data + run.node + phi_.slab;
    for (std::int32_t i = 0; i < run.length + kLine - 1; i += kLine) {
      __builtin_prefetch(above + i);
      __builtin_prefetch(laplacian + run.node + i, 1);
    }
  }
  // Calls work(first layer, last layer) on each worker that has some.
  template <class F>
  void ForSlabs(F&& work) {
    pool_.Run(static_cast<int>(slabs_.size()) - 1, [&](int worker) {
      const int first = slabs_[std::size_t(worker)], last = slabs_[std::size_t(worker) + 1] - 1;
      if (first <= last) work(first, last);
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
  std::vector<int> slabs_;                        // the first layer of each worker, and the end
  ScratchPool::Lease<double> lower_, upper_;      // on the whole grid
  ScratchPool::Lease<double> low_, high_, next_;  // tables
};

void Smoothing::Collect(bool biharmonic) {
  fresh_ = true;
  if (biharmonic) {
    wide_.Build(pool_, phi_, kLaplacianBand * h_, 1, nullptr);
    narrow_.Build(pool_, phi_, kBiharmonicBand * h_, 2, &wide_);
  } else {
    narrow_.Build(pool_, phi_, kLaplacianBand * h_, 1, nullptr);
  }
  for (ScratchPool::Lease<double>* table : {&low_, &high_, &next_}) {
    table->GiveBack();
    *table = scratch_.Take<double>({static_cast<int>(narrow_.nodeCount()), 1, 1});
  }
  slabs_ = narrow_.Divide(pool_.count());
  ForSlabs([&](int first, int last) {
    for (int k = first; k <= last; ++k) {
      for (const ActiveRuns::Run& run : narrow_.Layer(k)) {
        for (std::int32_t i = 0; i < run.length; ++i) {
          (*low_)[run.place + i] = lower_ ? (*lower_)[run.node + i] : phi_[run.node + i] + settings_.below;
          (*high_)[run.place + i] = upper_ ? (*upper_)[run.node + i] : phi_[run.node + i] + settings_.above;
        }
      }
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
    Round(laplacian ? laplacian->data : nullptr, band, dt);
  }
  return true;
}

// A worker goes through its layers once: a layer's Laplacian is made one layer ahead of its step, and what a step gives
// is written when the step above has read what was there. Others read the layers at the ends too, whose Laplacians are
// made before all steps and whose results are written after them.
void Smoothing::Round(double* laplacian, double band, double dt) {
  const auto bend = [&](int k) {
    const std::span<const ActiveRuns::Run> runs = wide_.Layer(k);
    for (std::size_t r = 0; r < runs.size(); ++r) {
      if (r + kRunsAhead < runs.size()) FetchAhead(runs[r + kRunsAhead], laplacian);
      const ActiveRuns::Run& run = runs[r];
      LaplacianOfRun(phi_.data + run.node, stencil_, kLaplacianBand * h_, run.length, laplacian + run.node);
    }
  };
  const auto step = [&](int k) {
    const double* flow = laplacian ? laplacian : phi_.data;
    for (const ActiveRuns::Run& run : narrow_.Layer(k)) {
      StepRun(phi_.data + run.node, flow + run.node, stencil_, band, dt, low_->data + run.place,
              high_->data + run.place, run.length, next_->data + run.place);
    }
  };
  const auto write = [&](int k) {
    for (const ActiveRuns::Run& run : narrow_.Layer(k)) {
      std::copy_n(next_->data + run.place, run.length, phi_.data + run.node);
    }
  };
  if (laplacian) {
    ForSlabs([&](int first, int last) {
      bend(first);
      if (last > first) bend(last);
    });
  }
  ForSlabs([&](int first, int last) {
    for (int k = first; k <= last; ++k) {
      if (laplacian && k + 1 < last) bend(k + 1);
      step(k);
      if (k - 1 > first) write(k - 1);
    }
  });
  ForSlabs([&](int first, int last) {
    write(first);
    if (last > first) write(last);
  });
}

}  // namespace

bool SmoothLevelSet(WorkerPool& pool, ScratchPool& scratch, const SmoothingSettings& settings, ScalarGrid& phi,
                    const BaseThread* hostThread) {
  return Smoothing(pool, scratch, settings, phi, hostThread).Run();
}

}  // namespace orlix
