#include "fluids/advection/AdvectionKernels.h"

#include "fluids/advection/AdvectionPass.h"

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

void AdvectMacCormack(const AdvectionField& field, const AdvectionSource& source, float strength,
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
  const auto correct = [&](AdvectionRun& run) {
    back.ForEachSolid(run.begin, run.begin + run.count, run.j, run.k, [&](int i) { run.value[i - run.begin] = 0; });
    const std::int64_t index = result.Index(run.begin, run.j, run.k);
    const MacCormackRow row{source.values,        source.values.data + index,
                            forward.data + index, scratch.traced.data + index,
                            result.data + index,  static_cast<double>(strength) * 0.5};
    back.Correct(row, run);
  };
  // What the way there left at 0 between eight zeros stays 0 after the limiter.
  const auto clear = [&](int begin, int end, int j, int k) {
    std::fill_n(result.data + result.Index(begin, j, k), end - begin, 0.0);
  };
  back.ForEachRun(correct, clear);
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
