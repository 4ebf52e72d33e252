#pragma once
// The loop that the passes of advection share: rows of cells, cut into runs that fit the first-level cache, each
// traced, resolved against the walls and sampled.

#include <algorithm>
#include <array>

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

// One pass over the interior of a source. Cells that nothing but zeros can reach aren't traced.
class AdvectionPass {
 public:
  // Other grids of the source's dims whose rows the caller goes along.
  using Beside = std::array<GridView<const double>, 2>;
  AdvectionPass(const AdvectionField& field, const AdvectionSource& source, const Beside& beside, WorkerPool& pool);
  // Over the cells of another pass.
  AdvectionPass(const AdvectionField& field, const AdvectionSource& source, const Beside& beside,
                const AdvectionPass& other);

  // Calls write(run) for each run of the cells that something may reach: run.value is the source at the traced point,
  // run.place and run.cell are where that lies, run.moved tells whether the walls moved it. Calls
  // clear(begin, end, j, k) for the other cells of each row.
  template <class Write, class Clear>
  void ForEachRun(Write&& write, Clear&& clear) const {
    ForEachTraced(
        [&](AdvectionRun& run) {
          Sample(run);
          write(run);
        },
        clear);
  }
  // The same without the samples.
  template <class Write, class Clear>
  void ForEachTraced(Write&& write, Clear&& clear) const {
    const VecInt3D n = source_.values.dims;
    ParallelRange(pool_, 1, n.z - 1, [&](int begin, int end, int) {
      AdvectionRun run;
      // A tile of rows through all layers: what the layers below and above read again is still near.
      const int tileRows = std::clamp(kTileCells / n.x, 4, 64);
      for (int tile = 1; tile < n.y - 1; tile += tileRows) {
        const int tileEnd = std::min(tile + tileRows, n.y - 1);
        for (run.k = begin; run.k < end; ++run.k) {
          if (pool_.Broken()) return;
          for (run.j = tile; run.j < tileEnd; ++run.j) {
            const auto [first, last] = reached_[static_cast<std::size_t>(run.k) * n.y + run.j];
            if (first > 1) clear(1, first, run.j, run.k);
            if (last < n.x - 1) clear(last, n.x - 1, run.j, run.k);
            for (run.begin = first; run.begin < last; run.begin += run.count) {
              // No rest that is too short for a block.
              const int rest = last - run.begin;
              run.count = rest <= AdvectionRun::kCells ? rest : std::min(AdvectionRun::kCells, rest - kernels_.lanes);
              FetchAhead(run, run.j == tile ? tile - kRowsBeside : run.j,
                         run.j == tileEnd - 1 ? tileEnd + kRowsBeside : run.j + 1);
              Trace(run);
              write(run);
            }
          }
        }
      }
    });
  }
  // Calls f(i) for the cells [begin, end) of a row that lie inside solids.
  template <class F>
  void ForEachSolid(int begin, int end, int j, int k, F&& f) const {
    if (source_.insideSolid && !source_.insideSolid->IsEmpty()) {
      CellMask::ForEachSet(source_.insideSolid->Row(j, k), begin, end, f);
    }
  }
  void Correct(const MacCormackRow& row, AdvectionRun& run) const;
  // The cells of a row that something may reach, [1, n - 1) at most.
  RowSpan Reached(int j, int k) const { return reached_[static_cast<std::size_t>(k) * source_.values.dims.y + j]; }

 private:
  static constexpr int kTileCells = 4096;  // a dozen such pieces of arrays fit the second-level cache
  // A row of all arrays is fetched three layers before its cells' turn, and with it what lies beside the tile: samples
  // choose their rows, so that the processor's own fetching doesn't see what comes next.
  static constexpr int kLayersAhead = 3, kRowsBeside = 2;

  AdvectionPass(const AdvectionField& field, const AdvectionSource& source, const Beside& beside, WorkerPool& pool,
                RowSpans reached);
  bool InBlocks(const AdvectionRun& run) const { return blocks_ && run.count >= kernels_.lanes; }
  // Rows [first, last) of what the run's cells of a later layer touch. Inlined: a function that does nothing but fetch
  // is one without effect to the compiler, which leaves out its calls.
  ORLIX_INLINE void FetchAhead(const AdvectionRun& run, int first, int last) const {
    const int k = run.k + kLayersAhead;
    for (const GridView<const double>& grid : touched_) {
      if (k >= grid.dims.z) continue;
      for (int j = std::max(first, 0); j < std::min(last, grid.dims.y); ++j) {
        const double* row = grid.data + grid.Index(run.begin, j, k);
        for (int i = 0; i < run.count; i += 8) __builtin_prefetch(row + i);
      }
    }
  }
  void Trace(AdvectionRun& run) const;
  void Sample(AdvectionRun& run) const;
  void TraceCell(AdvectionRun& run, int l) const;
  void SampleCell(AdvectionRun& run, int l) const;

  const AdvectionField& field_;
  const AdvectionSource& source_;
  WorkerPool& pool_;
  const bool blocks_;  // the source stands on the velocity's lattice, and the integrator is known
  const AdvectionRunKernels kernels_;
  const RowSpans reached_;
  std::array<GridView<const double>, 6> touched_;
};

}  // namespace orlix
