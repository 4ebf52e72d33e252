#include "fluids/pressure/ClosedRegions.h"

#include <algorithm>
#include <numeric>
#include <type_traits>

#include "fluids/pressure/PressureRows.h"

namespace orlix {

namespace {

struct CellRun {
  std::int32_t begin, end;  // cells of the row
  bool fixed;               // borders on a fixed pressure
};

// As wide as the values, so that the loop vectorises.
template <class W>
bool AllOpen(const W* faces, int count) {
  using Bits = std::conditional_t<sizeof(W) == 8, std::uint64_t, std::uint32_t>;
  Bits closed = 0;
  for (int i = 0; i < count; ++i) closed |= faces[i] > 0 ? 0 : ~Bits(0);
  return closed == 0;
}

// Runs of all rows, and a forest of those that belong together.
template <class W>
class RunGraph {
 public:
  RunGraph(const PressureSystem& system, const GridView<const W> (&faces)[3]) : system_(system), faces_(faces) {}

  void Build(WorkerPool& pool) {
    const VecInt3D n = system_.dims;
    std::vector<std::vector<CellRun>> layers(std::size_t(n.z));
    std::vector<std::vector<std::int32_t>> counts(std::size_t(n.z));
    ParallelRange(pool, 1, n.z - 1, [&](int from, int to, int) {
      for (int k = from; k < to; ++k) FindRuns(k, layers[std::size_t(k)], counts[std::size_t(k)]);
    });
    rowStart_.assign(std::size_t(n.y) * std::size_t(n.z) + 1, 0);
    for (int k = 0; k < n.z; ++k) {
      for (int j = 0; j < n.y; ++j) {
        const bool inner = k > 0 && k < n.z - 1;
        const std::size_t row = Row(j, k);
        rowStart_[row + 1] = rowStart_[row] + (inner ? counts[std::size_t(k)][std::size_t(j)] : 0);
      }
      runs.insert(runs.end(), layers[std::size_t(k)].begin(), layers[std::size_t(k)].end());
    }
    parent_.resize(runs.size());
    std::iota(parent_.begin(), parent_.end(), 0);
    for (int k = 1; k < n.z - 1; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        Connect(Row(j - 1, k), Row(j, k), &faces_[1](0, j, k));
        Connect(Row(j, k - 1), Row(j, k), &faces_[2](0, j, k));
      }
    }
    for (std::size_t r = 0; r < runs.size(); ++r) {
      if (runs[r].fixed) runs[std::size_t(Root(std::int32_t(r)))].fixed = true;
    }
  }

  std::int32_t Root(std::int32_t run) {
    while (parent_[std::size_t(run)] != run) {
      parent_[std::size_t(run)] = parent_[std::size_t(parent_[std::size_t(run)])];
      run = parent_[std::size_t(run)];
    }
    return run;
  }
  std::size_t Row(int j, int k) const { return std::size_t(k) * std::size_t(system_.dims.y) + std::size_t(j); }
  std::int32_t RowStart(std::size_t row) const { return rowStart_[row]; }

  std::vector<CellRun> runs;

 private:
  bool HasEquation(const FaceRow<W>& a, int i, int j, int k) const {
    const VecInt3D n = system_.dims;
    if (i < 1 || j < 1 || k < 1 || i > n.x - 2 || j > n.y - 2 || k > n.z - 2) return false;
    if (system_.equation) return system_.equation[system_.slab() * k + system_.row() * j + i] != 0;
    return a.x[i] > 0 || a.x[i + 1] > 0 || a.yLow[i] > 0 || a.yHigh[i] > 0 || a.zLow[i] > 0 || a.zHigh[i] > 0;
  }
  bool HasEquation(int i, int j, int k) const {
    const VecInt3D n = system_.dims;
    if (j < 1 || k < 1 || j > n.y - 2 || k > n.z - 2) return false;
    return HasEquation(FaceRow<W>(faces_, j, k), i, j, k);
  }
  // An open face towards a neighbour without an equation, where the pressure is 0. Without a mask, an open face's inner
  // cells have equations, so that only the outermost layer can be such a neighbour.
  bool IsFixed(const FaceRow<W>& a, int i, int j, int k) const {
    const VecInt3D n = system_.dims;
    const bool atBorder = i == 1 || j == 1 || k == 1 || i == n.x - 2 || j == n.y - 2 || k == n.z - 2;
    if (!atBorder && !system_.equation) return false;
    return (a.x[i] > 0 && !HasEquation(i - 1, j, k)) || (a.x[i + 1] > 0 && !HasEquation(i + 1, j, k)) ||
           (a.yLow[i] > 0 && !HasEquation(i, j - 1, k)) || (a.yHigh[i] > 0 && !HasEquation(i, j + 1, k)) ||
           (a.zLow[i] > 0 && !HasEquation(i, j, k - 1)) || (a.zHigh[i] > 0 && !HasEquation(i, j, k + 1));
  }

  void FindRuns(int k, std::vector<CellRun>& out, std::vector<std::int32_t>& counts) const {
    counts.assign(std::size_t(system_.dims.y), 0);
    const VecInt3D n = system_.dims;
    for (int j = 1; j < n.y - 1; ++j) {
      const FaceRow<W> a(faces_, j, k);
      const bool atBorder = j == 1 || k == 1 || j == n.y - 2 || k == n.z - 2;
      if (!atBorder && !system_.equation && n.x > 3 && AllOpen(a.x + 2, n.x - 3)) {
        out.push_back({1, n.x - 1, IsFixed(a, 1, j, k) || IsFixed(a, n.x - 2, j, k)});
        counts[std::size_t(j)] = 1;
        continue;
      }
      bool open = false;
      for (int i = 1; i < system_.dims.x - 1; ++i) {
        if (!HasEquation(a, i, j, k)) {
          open = false;
          continue;
        }
        if (!open || !(a.x[i] > 0)) {
          out.push_back({i, i, false});
          ++counts[std::size_t(j)];
        }
        open = true;
        out.back().end = i + 1;
        out.back().fixed = out.back().fixed || IsFixed(a, i, j, k);
      }
    }
  }

  // Joins runs of two neighbouring rows that share an open face.
  void Connect(std::size_t below, std::size_t above, const W* face) {
    std::int32_t a = rowStart_[below], b = rowStart_[above];
    while (a < rowStart_[below + 1] && b < rowStart_[above + 1]) {
      const CellRun &runA = runs[std::size_t(a)], &runB = runs[std::size_t(b)];
      const std::int32_t begin = std::max(runA.begin, runB.begin), end = std::min(runA.end, runB.end);
      if (std::any_of(face + begin, face + std::max(begin, end), [](W w) { return w > 0; })) {
        parent_[std::size_t(Root(b))] = Root(a);
      }
      runA.end < runB.end ? ++a : ++b;
    }
  }

  const PressureSystem& system_;
  const GridView<const W> (&faces_)[3];
  std::vector<std::int32_t> rowStart_, parent_;
};

}  // namespace

ClosedRegions::ClosedRegions(const PressureSystem& system, WorkerPool& pool) {
  if (!system.HasInterior()) return;
  WithWeights(system, [&]<class W>(const GridView<const W>(&faces)[3]) {
    RunGraph<W> graph(system, faces);
    graph.Build(pool);
    std::vector<std::int32_t> regionOf(graph.runs.size(), -1);
    for (int k = 1; k < system.dims.z - 1; ++k) {
      for (int j = 1; j < system.dims.y - 1; ++j) {
        const std::size_t row = graph.Row(j, k);
        for (std::int32_t r = graph.RowStart(row); r < graph.RowStart(row + 1); ++r) {
          const std::size_t root = std::size_t(graph.Root(r));
          if (graph.runs[root].fixed) continue;
          if (regionOf[root] < 0) regionOf[root] = regions_++;
          const CellRun& run = graph.runs[std::size_t(r)];
          runs_.push_back({system.slab() * k + system.row() * j + run.begin, run.end - run.begin, regionOf[root]});
        }
      }
    }
  });
}

void ClosedRegions::RemoveMeans(double* rhs, WorkerPool& pool) const {
  if (runs_.empty()) return;
  const auto count = static_cast<int>(runs_.size());
  std::vector<double> sums(runs_.size());
  ParallelRange(pool, 0, count, [&](int from, int to, int) {
    for (int r = from; r < to; ++r) {
      EightSums sum;
      sum.AddValues(rhs + runs_[std::size_t(r)].start, runs_[std::size_t(r)].length);
      sums[std::size_t(r)] = sum.Total();
    }
  });
  std::vector<double> means(std::size_t(regions_), 0.0), cells(std::size_t(regions_), 0.0);
  for (std::size_t r = 0; r < runs_.size(); ++r) {
    means[std::size_t(runs_[r].region)] += sums[r];
    cells[std::size_t(runs_[r].region)] += runs_[r].length;
  }
  for (std::size_t region = 0; region < means.size(); ++region) means[region] /= cells[region];
  ParallelRange(pool, 0, count, [&](int from, int to, int) {
    for (int r = from; r < to; ++r) {
      const Run& run = runs_[std::size_t(r)];
      const double mean = means[std::size_t(run.region)];
      for (std::int64_t c = run.start; c < run.start + run.length; ++c) rhs[c] -= mean;
    }
  });
}

}  // namespace orlix
