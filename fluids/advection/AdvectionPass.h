#pragma once
// The loop that the passes of advection share: rows of cells, cut into runs that fit the first-level cache, each
// traced, resolved against the walls and sampled by as many quantities as share the trace.

#include <algorithm>
#include <span>
#include <vector>

#include "fluids/advection/AdvectionKernels.h"
#include "globals/Multiversion.h"

namespace orlix {

// What stands in MacCormackScratch::traced instead of a cell.
inline constexpr std::int32_t kMovedCell = -1, kSolidCell = -2;

// A piece of a row: what the stages of its cells hand on to each other.
struct AdvectionRun {
  static constexpr int kCells = 64;
  std::int32_t begin, count, j, k;
  Vec3D start;                                          // index position of the first sample
  std::uint32_t again;                                  // bit b: block b of cells is to be done cell by cell
  std::uint32_t near;                                   // bit b: block b may lie in an obstacle
  std::uint64_t moved;                                  // bit l: the walls moved cell l's point
  alignas(64) double velocity[4][3][kCells];            // at the integrator's stages
  alignas(64) double place[3][kCells];                  // traced and resolved, index positions
  alignas(64) double own[3][kCells], other[3][kCells];  // fractions in cells
  alignas(64) double value[kCells];                     // sampled at the place
  alignas(64) std::int32_t node[3][kCells];
  alignas(64) std::int32_t cell[kCells];  // source cell in which the point lies
};

// A run of MacCormack's second pass; pointers stand at its first cell.
struct MacCormackRow {
  GridView<const double> grid;
  const double *source, *forward;
  const std::int32_t* traced;
  double* result;
  double strength;  // of the error term, the half included
};

// The stages of a run for one instruction set. A run has at least a block of cells.
struct AdvectionRunKernels {
  int lanes;  // cells in a block
  void (*firstVelocity)(const VelocityView&, const Vec3D&, AdvectionRun&);
  void (*trace)(const AdvectionField&, const AdvectionSource&, AdvectionRun&);
  void (*sample)(const AdvectionSource&, AdvectionRun&);
  void (*correct)(const MacCormackRow&, AdvectionRun&);
};

// For tests: from now on, the machine's best kernels with vectors of up to 128, 256 or 512 bits.
void LimitAdvectionVectors(int bits);

// One trace through the interior of a lattice. The sources that it serves share dims, offset, mask and sampling with
// the one that it is made of. Keeps no copies: field, source and spans must outlive it.
class AdvectionPass {
 public:
  // Cells that nothing but zeros can reach aren't traced: reached has one span a row, within [1, n - 1).
  AdvectionPass(const AdvectionField& field, const AdvectionSource& source, const RowSpans& reached);

  const VecInt3D& dims() const { return source_.values.dims; }
  int lanes() const { return kernels_.lanes; }
  RowSpan Reached(int j, int k) const { return reached_[static_cast<std::size_t>(k) * dims().y + j]; }
  // run.place and run.cell are where the cells' points lead, run.moved tells whether the walls moved them.
  void Trace(AdvectionRun& run) const;
  // run.value is the source at the traced points. Any number of sources may follow a trace.
  void Sample(const AdvectionSource& source, AdvectionRun& run) const;
  void Correct(const MacCormackRow& row, AdvectionRun& run) const;
  // Calls f(i) for the cells [begin, end) of a row that lie inside solids.
  template <class F>
  void ForEachSolid(int begin, int end, int j, int k, F&& f) const {
    if (source_.insideSolid && !source_.insideSolid->IsEmpty()) {
      CellMask::ForEachSet(source_.insideSolid->Row(j, k), begin, end, f);
    }
  }

 private:
  bool InBlocks(const AdvectionRun& run) const { return blocks_ && run.count >= kernels_.lanes; }
  void TraceCell(AdvectionRun& run, int l) const;
  void SampleCell(const AdvectionSource& source, AdvectionRun& run, int l) const;

  const AdvectionField& field_;
  const AdvectionSource& source_;
  const bool blocks_;  // the source stands on the velocity's lattice, and the integrator is known
  const AdvectionRunKernels kernels_;
  const RowSpans& reached_;
};

// How far from a cell a trace with this field may sample, in cells: what stands at that many from it on each side, and
// nothing beyond. Reads all of the velocity.
VecInt3D FurthestReach(const AdvectionField& field, AdvectionSampling sampling, const VecInt3D& n, WorkerPool& pool);
// The interior cells that have one of the rows' cells within reach, and more where a row would have few. n: cells of
// the grid.
RowSpans Widened(const RowSpans& rows, const VecInt3D& n, const VecInt3D& reach, WorkerPool& pool);

// Shares of the interior layers, [ends[w], ends[w + 1]) for worker w: each has about as many reached cells, as smoke
// mostly fills some of the layers.
std::vector<int> LayerShares(std::span<const AdvectionPass> passes, int workers);

// Calls work(layerBegin, layerEnd) for each share.
template <class F>
void ForLayerShares(std::span<const AdvectionPass> passes, WorkerPool& pool, F&& work) {
  const std::vector<int> ends = LayerShares(passes, pool.count());
  pool.Run(static_cast<int>(ends.size()) - 1, [&](int worker) {
    const auto share = static_cast<std::size_t>(worker);
    if (ends[share] < ends[share + 1]) work(ends[share], ends[share + 1]);
  });
}

// All interior cells.
inline RowSpans WholeRows(const VecInt3D& n) {
  return RowSpans(static_cast<std::size_t>(n.y) * static_cast<std::size_t>(n.z), {1, n.x - 1});
}

// Grids whose rows a loop goes along: each once.
class TouchedGrids {
 public:
  template <class T>
  void Add(const GridView<T>& grid) {
    const auto* data = reinterpret_cast<const char*>(grid.data);
    for (const Touched& other : grids_) {
      if (other.data == data) return;
    }
    grids_.push_back({data, grid.dims, sizeof(T)});
  }
  // Rows [first, last) of a layer that is some layers ahead, from a run's cells on. Samples choose their rows, so that
  // the processor's own fetching doesn't see what comes next. Inlined: a function that does nothing but fetch is one
  // without effect to the compiler, which leaves out its calls.
  ORLIX_INLINE void FetchAhead(const AdvectionRun& run, int first, int last) const {
    constexpr std::int64_t kLine = 64;
    const int k = run.k + kLayersAhead;
    for (const Touched& grid : grids_) {
      const VecInt3D& n = grid.dims;
      if (k >= n.z) continue;
      for (int j = std::max(first, 0); j < std::min(last, n.y); ++j) {
        const char* row = grid.data + ((std::int64_t(k) * n.y + j) * n.x + run.begin) * grid.cellBytes;
        for (std::int64_t b = 0; b < run.count * grid.cellBytes; b += kLine) __builtin_prefetch(row + b);
      }
    }
  }

 private:
  static constexpr int kLayersAhead = 3;
  struct Touched {
    const char* data;
    VecInt3D dims;
    std::int64_t cellBytes;
  };
  std::vector<Touched> grids_;
};

// Goes through the passes row by row and run by run, side by side, so that what they read of the velocity is still near
// for the next one. Calls write(p, run) for each run of the reached cells of passes[p], traced, and
// clear(p, begin, end, j, k) for the other cells of each interior row.
template <class Write, class Clear>
void ForEachRun(std::span<const AdvectionPass> passes, const TouchedGrids& touched, WorkerPool& pool, Write&& write,
                Clear&& clear) {
  constexpr int kTileCells = 1536;  // six layers of ten arrays fit the second-level cache
  constexpr int kRowsBeside = 2;    // of a tile that its samples reach
  VecInt3D n;
  for (const AdvectionPass& pass : passes) n = Max(n, pass.dims());
  const int count = static_cast<int>(passes.size());
  ForLayerShares(passes, pool, [&](int begin, int end) {
    AdvectionRun run;
    std::vector<RowSpan> rest(passes.size());  // of the row
    // A tile of rows through all layers: what the layers below and above read again is still near.
    const int tileRows = std::clamp(kTileCells / n.x, 4, 64);
    for (int tile = 1; tile < n.y - 1; tile += tileRows) {
      const int tileEnd = std::min(tile + tileRows, n.y - 1);
      for (run.k = begin; run.k < end; ++run.k) {
        if (pool.Broken()) return;
        for (run.j = tile; run.j < tileEnd; ++run.j) {
          for (int p = 0; p < count; ++p) {
            const VecInt3D& dims = passes[p].dims();
            rest[p] = {0, 0};
            if (run.j >= dims.y - 1 || run.k >= dims.z - 1) continue;
            rest[p] = passes[p].Reached(run.j, run.k);
            if (rest[p].first > 1) clear(p, 1, rest[p].first, run.j, run.k);
            if (rest[p].last < dims.x - 1) clear(p, rest[p].last, dims.x - 1, run.j, run.k);
          }
          for (bool fetched = true; fetched;) {
            fetched = false;
            for (int p = 0; p < count; ++p) {
              if (rest[p].IsEmpty()) continue;
              // No rest that is too short for a block.
              const int cells = rest[p].last - rest[p].first;
              run.begin = rest[p].first;
              run.count =
                  cells <= AdvectionRun::kCells ? cells : std::min(AdvectionRun::kCells, cells - passes[p].lanes());
              rest[p].first += run.count;
              if (!fetched) {
                touched.FetchAhead(run, run.j == tile ? tile - kRowsBeside : run.j,
                                   run.j == tileEnd - 1 ? tileEnd + kRowsBeside : run.j + 1);
                fetched = true;
              }
              passes[p].Trace(run);
              write(p, run);
            }
          }
        }
      }
    }
  });
}

}  // namespace orlix
