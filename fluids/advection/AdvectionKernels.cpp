#include "fluids/advection/AdvectionKernels.h"

#include <algorithm>

#include "fluids/advection/AdvectionPass.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// The faces in y and z; rows end in their own faces.
void ClearOuterRows(const GridView<double>& grid) {
  const VecInt3D n = grid.dims;
  std::fill_n(grid.data, grid.slab, 0.0);
  std::fill_n(grid.data + grid.Index(0, 0, n.z - 1), grid.slab, 0.0);
  for (int k = 1; k < n.z - 1; ++k) {
    std::fill_n(grid.data + grid.Index(0, 0, k), n.x, 0.0);
    std::fill_n(grid.data + grid.Index(0, n.y - 1, k), n.x, 0.0);
  }
}

bool HasInterior(const VecInt3D& n) { return n.x > 2 && n.y > 2 && n.z > 2; }

// A run of cells of a row of the grid, each a mean of its 27 neighbours with weights 1 2 1 along each axis; the
// interior's outermost cells stand for those of the border. Pairs are added first, so that mirror images stay such.
ORLIX_MULTIVERSION void SmoothRun(const GridView<double>& grid, int begin, int count, int j, int k, double* out) {
  const VecInt3D n = grid.dims;
  const int first = std::max(begin - 1, 1), end = std::min(begin + count + 1, n.x - 1);
  const double* row[3][3];
  for (int dz = 0; dz < 3; ++dz) {
    for (int dy = 0; dy < 3; ++dy) {
      row[dz][dy] =
          grid.data + grid.Index(first, std::clamp(j + dy - 1, 1, n.y - 2), std::clamp(k + dz - 1, 1, n.z - 2));
    }
  }
  double line[AdvectionRun::kCells + 2];
  double* at = line + (first - begin + 1);
  for (int i = 0; i < end - first; ++i) {
    double layer[3];
    for (int dz = 0; dz < 3; ++dz) layer[dz] = 2 * row[dz][1][i] + (row[dz][0][i] + row[dz][2][i]);
    at[i] = 2 * layer[1] + (layer[0] + layer[2]);
  }
  if (first == begin) line[0] = line[1];
  if (end == begin + count) line[count + 1] = line[count];
  for (int i = 0; i < count; ++i) out[i] = (2 * line[i + 1] + (line[i] + line[i + 2])) * (1.0 / 64);
}

// The error of each cell stands in result: adds it, smoothed, to the way there, and limits the sum.
void CorrectSmoothed(const AdvectionPass& pass, const AdvectionSource& source, double strength, GridView<double> result,
                     const MacCormackScratch& scratch, WorkerPool& pool) {
  const VecInt3D n = result.dims;
  ParallelRange(pool, 1, n.z - 1, [&](int begin, int end, int) {
    AdvectionRun run;
    double error[AdvectionRun::kCells], corrected[AdvectionRun::kCells];
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const RowSpan reached = pass.Reached(j, k);
        for (run.begin = reached.first; run.begin < reached.last; run.begin += run.count) {
          run.count = std::min(AdvectionRun::kCells, reached.last - run.begin);
          SmoothRun(result, run.begin, run.count, j, k, error);
          const std::int64_t index = result.Index(run.begin, j, k);
          const double* values = source.values.data + index;
          for (int l = 0; l < run.count; ++l) run.value[l] = values[l] - error[l];
          double* forward = scratch.forward.data + index;
          // Not in place: the last block of a run overlaps the one before it.
          pass.Correct({source.values, values, forward, scratch.traced.data + index, corrected, strength}, run);
          std::copy_n(corrected, run.count, forward);
        }
      }
    }
  });
  ParallelRange(pool, 1, n.z - 1, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const std::int64_t index = result.Index(1, j, k);
        std::copy_n(scratch.forward.data + index, n.x - 2, result.data + index);
      }
    }
  });
}

}  // namespace

void AdvectSemiLagrangian(const AdvectionField& field, const AdvectionSource& source, GridView<double> result,
                          WorkerPool& pool) {
  if (!HasInterior(source.values.dims)) return;
  const AdvectionPass pass(field, source, {result}, pool);
  const auto write = [&](AdvectionRun& run) {
    double* row = result.data + result.Index(run.begin, run.j, run.k);
    pass.ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                      [&](int i) { run.value[i - run.begin] = row[i - run.begin]; });
    std::copy_n(run.value, run.count, row);
  };
  const auto clear = [&](int begin, int end, int j, int k) {
    double* row = result.data + result.Index(0, j, k);
    int open = begin;
    pass.ForEachSolid(begin, end, j, k, [&](int i) {
      std::fill(row + open, row + i, 0.0);
      open = i + 1;
    });
    std::fill(row + open, row + end, 0.0);
  };
  pass.ForEachRun(write, clear);
}

void AdvectMacCormack(const AdvectionField& field, const AdvectionSource& source, MacCormackCorrection correction,
                      GridView<double> result, const MacCormackScratch& scratch, WorkerPool& pool) {
  if (!HasInterior(source.values.dims)) return;
  const GridView<double>& forward = scratch.forward;
  AdvectionField backward = field;
  backward.dt = -field.dt;
  const AdvectionPass there(backward, source, {forward}, pool);
  ClearOuterRows(forward);
  const auto writeForward = [&](AdvectionRun& run) {
    for (std::uint64_t moved = run.moved; moved != 0; moved &= moved - 1) {
      run.cell[__builtin_ctzll(moved)] = kMovedCell;
    }
    there.ForEachSolid(run.begin, run.begin + run.count, run.j, run.k, [&](int i) {
      run.value[i - run.begin] = 0;
      run.cell[i - run.begin] = kSolidCell;
    });
    const std::int64_t index = forward.Index(run.begin, run.j, run.k);
    std::copy_n(run.value, run.count, forward.data + index);
    std::copy_n(run.cell, run.count, scratch.traced.data + index);
    forward(0, run.j, run.k) = forward(forward.dims.x - 1, run.j, run.k) = 0;
  };
  const auto clearForward = [&](int begin, int end, int j, int k) {
    std::fill_n(forward.data + forward.Index(begin, j, k), end - begin, 0.0);
    forward(0, j, k) = forward(forward.dims.x - 1, j, k) = 0;
  };
  there.ForEachRun(writeForward, clearForward);
  if (pool.Broken()) return;  // some cells know no traced one

  AdvectionSource ahead = source;
  ahead.values = forward;
  const AdvectionPass back(field, ahead, {source.values, result}, there);
  const double strength = static_cast<double>(correction.strength) * 0.5;
  const auto correct = [&](AdvectionRun& run) {
    back.ForEachSolid(run.begin, run.begin + run.count, run.j, run.k, [&](int i) { run.value[i - run.begin] = 0; });
    const std::int64_t index = result.Index(run.begin, run.j, run.k);
    const MacCormackRow row{source.values,        source.values.data + index,
                            forward.data + index, scratch.traced.data + index,
                            result.data + index,  strength};
    if (!correction.smoothed) return back.Correct(row, run);
    for (int l = 0; l < run.count; ++l) row.result[l] = row.traced[l] < 0 ? 0.0 : row.source[l] - run.value[l];
  };
  // What the way there left at 0 between eight zeros stays 0 after the limiter.
  const auto clear = [&](int begin, int end, int j, int k) {
    std::fill_n(result.data + result.Index(begin, j, k), end - begin, 0.0);
  };
  back.ForEachRun(correct, clear);
  if (correction.smoothed && !pool.Broken()) CorrectSmoothed(back, source, strength, result, scratch, pool);
}

RowSpans FindContent(const GridView<const double>& grid, WorkerPool& pool) {
  const VecInt3D n = grid.dims;
  RowSpans content(static_cast<std::size_t>(n.y) * static_cast<std::size_t>(n.z));
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 0; j < n.y; ++j) {
        const double* row = grid.data + grid.Index(0, j, k);
        bool any = false;
        for (int i = 0; i < n.x; ++i) any |= row[i] != 0;
        int first = 0, last = any ? n.x : 0;
        while (first < last && row[first] == 0) ++first;
        while (first < last && row[last - 1] == 0) --last;
        content[static_cast<std::size_t>(k) * n.y + j] = {first, last};
      }
    }
  });
  return content;
}

}  // namespace orlix
