#include "fluids/advection/AdvectionKernels.h"

#include <algorithm>
#include <bit>

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

double Strength(const Advected& quantity) { return static_cast<double>(quantity.correction.strength) * 0.5; }

// The error of each cell stands in result: adds it, smoothed, to the way there, and limits the sum.
void CorrectSmoothed(const AdvectionPass& pass, const Advected& quantity, GridView<const std::int32_t> traced,
                     WorkerPool& pool) {
  const GridView<const double>& source = quantity.source.values;
  const GridView<double>&result = quantity.result, &way = quantity.scratch.forward;
  const double strength = Strength(quantity);
  const VecInt3D n = result.dims;
  ForLayerShares({&pass, 1}, pool, [&](int begin, int end) {
    AdvectionRun run;
    double error[AdvectionRun::kCells], corrected[AdvectionRun::kCells];
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const RowSpan reached = pass.Reached(j, k);
        for (run.begin = reached.first; run.begin < reached.last; run.begin += run.count) {
          run.count = std::min(AdvectionRun::kCells, reached.last - run.begin);
          SmoothRun(result, run.begin, run.count, j, k, error);
          const std::int64_t index = result.Index(run.begin, j, k);
          const double* values = source.data + index;
          for (int l = 0; l < run.count; ++l) run.value[l] = values[l] - error[l];
          double* forward = way.data + index;
          // Not in place: the last block of a run overlaps the one before it.
          pass.Correct({source, values, forward, traced.data + index, corrected, strength}, run);
          std::copy_n(corrected, run.count, forward);
        }
      }
    }
  });
  ForLayerShares({&pass, 1}, pool, [&](int begin, int end) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) {
        const RowSpan reached = pass.Reached(j, k);
        const std::int64_t index = result.Index(reached.first, j, k);
        std::copy_n(way.data + index, reached.last - reached.first, result.data + index);
      }
    }
  });
}

// Quantities that share a trace.
struct Group {
  std::vector<const Advected*> members;
  RowSpans reached;  // cells that something in a member's content may reach
  RowSpans read;     // cells that samples of those may read
  const AdvectionSource& source() const { return members[0]->source; }
  const MacCormackScratch& scratch() const { return members[0]->scratch; }
};

// Finds the cells of a group. Speeds cost a read of the velocity: not for a content that fills most of the grid.
void FindReached(const AdvectionField& field, Group& group, WorkerPool& pool) {
  const VecInt3D n = group.source().values.dims;
  RowSpans content(static_cast<std::size_t>(n.y) * static_cast<std::size_t>(n.z), {n.x - 1, n.x - 1});
  bool known = true;
  std::int64_t filled = 0;
  for (const Advected* member : group.members) {
    known = known && !member->source.content.empty();
    for (std::size_t row = 0; known && row < content.size(); ++row) content[row].Include(member->source.content[row]);
  }
  for (const RowSpan& span : content) filled += span.last - span.first;
  if (!known || 2 * filled > CellCount(n)) {
    group.reached = group.read = WholeRows(n);
  } else if (filled == 0) {
    group.reached = group.read = std::move(content);
  } else {
    const VecInt3D reach = FurthestReach(field, group.source().sampling, n, pool);
    // A smoothed error counts in the cells beside its own.
    const auto smoothed = [](const Advected* member) { return member->correction.smoothed; };
    const int beside = std::ranges::any_of(group.members, smoothed) ? 1 : 0;
    group.reached = Widened(content, n, reach + VecInt3D(beside, beside, beside), pool);
    group.read = Widened(group.reached, n, reach, pool);
  }
}

std::vector<Group> Grouped(const AdvectionField& field, std::span<const Advected> quantities, WorkerPool& pool) {
  std::vector<Group> groups;
  for (const Advected& quantity : quantities) {
    if (!HasInterior(quantity.source.values.dims)) continue;
    const auto shares = [&](const Group& group) { return group.members[0]->SharesTraceWith(quantity); };
    const auto group = std::ranges::find_if(groups, shares);
    if (group == groups.end()) {
      groups.push_back({{&quantity}, {}, {}});
    } else {
      group->members.push_back(&quantity);
    }
  }
  for (Group& group : groups) FindReached(field, group, pool);
  return groups;
}

// Sets cells to 0 that mostly are: looks first, as a write costs twice the read.
ORLIX_MULTIVERSION void Clear(double* cells, int count) {
  std::uint64_t bits = 0;
  for (int i = 0; i < count; ++i) bits |= std::bit_cast<std::uint64_t>(cells[i]);
  if (bits != 0) std::fill_n(cells, count, 0.0);
}

// A pass a group.
std::vector<AdvectionPass> PassesOf(const AdvectionField& field, const std::vector<Group>& groups) {
  std::vector<AdvectionPass> passes;
  for (const Group& group : groups) passes.emplace_back(field, group.source(), group.reached);
  return passes;
}

TouchedGrids Touched(const AdvectionField& field) {
  TouchedGrids touched;
  for (const GridView<const double>& grid : field.velocity.component) touched.Add(grid);
  return touched;
}

// The way there: the moved quantities, and from which source cells each cell took them.
void CarryForward(const AdvectionField& back, const std::vector<Group>& groups, WorkerPool& pool) {
  const std::vector<AdvectionPass> passes = PassesOf(back, groups);
  TouchedGrids touched = Touched(back);
  for (const Group& group : groups) {
    for (const Advected* quantity : group.members) {
      touched.Add(quantity->source.values), touched.Add(quantity->scratch.forward);
      ClearOuterRows(quantity->scratch.forward);
    }
    touched.Add(group.scratch().traced);
  }
  const auto write = [&](int p, AdvectionRun& run) {
    const Group& group = groups[p];
    const std::int64_t index = group.source().values.Index(run.begin, run.j, run.k);
    const VecInt3D& n = passes[p].dims();
    for (const Advected* quantity : group.members) {
      const GridView<double>& forward = quantity->scratch.forward;
      passes[p].Sample(quantity->source, run);
      passes[p].ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                             [&](int i) { run.value[i - run.begin] = 0; });
      std::copy_n(run.value, run.count, forward.data + index);
      forward(0, run.j, run.k) = forward(n.x - 1, run.j, run.k) = 0;
    }
    for (std::uint64_t moved = run.moved; moved != 0; moved &= moved - 1) {
      run.cell[__builtin_ctzll(moved)] = kMovedCell;
    }
    passes[p].ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                           [&](int i) { run.cell[i - run.begin] = kSolidCell; });
    std::copy_n(run.cell, run.count, group.scratch().traced.data + index);
  };
  // Only what the way back reads.
  const auto clear = [&](int p, int begin, int end, int j, int k) {
    const RowSpan read = groups[p].read[static_cast<std::size_t>(k) * passes[p].dims().y + j];
    begin = std::max(begin, read.first), end = std::min(end, read.last);
    if (begin >= end) return;
    for (const Advected* quantity : groups[p].members) {
      const GridView<double>& forward = quantity->scratch.forward;
      std::fill_n(forward.data + forward.Index(begin, j, k), end - begin, 0.0);
      forward(0, j, k) = forward(forward.dims.x - 1, j, k) = 0;
    }
  };
  ForEachRun(passes, touched, pool, write, clear);
}

// The way back, and what it tells of the error.
void CorrectBackward(const AdvectionField& field, const std::vector<Group>& groups, WorkerPool& pool) {
  const std::vector<AdvectionPass> passes = PassesOf(field, groups);
  TouchedGrids touched = Touched(field);
  std::vector<std::vector<AdvectionSource>> ahead(groups.size());  // what the way there left
  for (std::size_t p = 0; p < groups.size(); ++p) {
    for (const Advected* quantity : groups[p].members) {
      ahead[p].push_back({quantity->scratch.forward, quantity->source.offset, nullptr, quantity->source.sampling, {}});
      touched.Add(quantity->scratch.forward), touched.Add(quantity->source.values), touched.Add(quantity->result);
    }
    touched.Add(groups[p].scratch().traced);
  }
  const auto correct = [&](int p, AdvectionRun& run) {
    const Group& group = groups[p];
    const std::int64_t index = group.source().values.Index(run.begin, run.j, run.k);
    for (std::size_t m = 0; m < group.members.size(); ++m) {
      const Advected* quantity = group.members[m];
      passes[p].Sample(ahead[p][m], run);
      passes[p].ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                             [&](int i) { run.value[i - run.begin] = 0; });
      const GridView<const double>& values = quantity->source.values;
      const MacCormackRow row{values,
                              values.data + index,
                              quantity->scratch.forward.data + index,
                              group.scratch().traced.data + index,
                              quantity->result.data + index,
                              Strength(*quantity)};
      if (!quantity->correction.smoothed) {
        passes[p].Correct(row, run);
        continue;
      }
      for (int l = 0; l < run.count; ++l) row.result[l] = row.traced[l] < 0 ? 0.0 : row.source[l] - run.value[l];
    }
  };
  // What the way there left at 0 between eight zeros stays 0 after the limiter.
  const auto clear = [&](int p, int begin, int end, int j, int k) {
    for (const Advected* quantity : groups[p].members) {
      const GridView<double>& result = quantity->result;
      Clear(result.data + result.Index(begin, j, k), end - begin);
    }
  };
  ForEachRun(passes, touched, pool, correct, clear);
  for (std::size_t p = 0; p < groups.size(); ++p) {
    for (const Advected* quantity : groups[p].members) {
      if (!quantity->correction.smoothed || pool.Broken()) continue;
      CorrectSmoothed(passes[p], *quantity, groups[p].scratch().traced, pool);
    }
  }
}

}  // namespace

bool Advected::SharesTraceWith(const Advected& other) const {
  return source.values.dims == other.source.values.dims && source.offset == other.source.offset &&
         source.insideSolid == other.source.insideSolid && source.sampling == other.source.sampling;
}

void AdvectSemiLagrangian(const AdvectionField& field, std::span<const Advected> quantities, WorkerPool& pool) {
  const std::vector<Group> groups = Grouped(field, quantities, pool);
  const std::vector<AdvectionPass> passes = PassesOf(field, groups);
  TouchedGrids touched = Touched(field);
  for (const Group& group : groups) {
    for (const Advected* quantity : group.members) touched.Add(quantity->source.values), touched.Add(quantity->result);
  }
  const auto write = [&](int p, AdvectionRun& run) {
    for (const Advected* quantity : groups[p].members) {
      passes[p].Sample(quantity->source, run);
      double* row = quantity->result.data + quantity->result.Index(run.begin, run.j, run.k);
      passes[p].ForEachSolid(run.begin, run.begin + run.count, run.j, run.k,
                             [&](int i) { run.value[i - run.begin] = row[i - run.begin]; });
      std::copy_n(run.value, run.count, row);
    }
  };
  const auto clear = [&](int p, int begin, int end, int j, int k) {
    for (const Advected* quantity : groups[p].members) {
      double* row = quantity->result.data + quantity->result.Index(0, j, k);
      int open = begin;
      passes[p].ForEachSolid(begin, end, j, k, [&](int i) {
        Clear(row + open, i - open);
        open = i + 1;
      });
      Clear(row + open, end - open);
    }
  };
  ForEachRun(passes, touched, pool, write, clear);
}

void AdvectMacCormack(const AdvectionField& field, std::span<const Advected> quantities, WorkerPool& pool) {
  AdvectionField back = field;
  back.dt = -field.dt;
  const std::vector<Group> groups = Grouped(back, quantities, pool);
  CarryForward(back, groups, pool);
  if (pool.Broken()) return;  // some cells know no traced one
  CorrectBackward(field, groups, pool);
}

namespace {

// -0 is nothing, NaN is something.
ORLIX_MULTIVERSION bool AnyValue(const double* row, int count) {
  std::uint64_t bits = 0;
  for (int i = 0; i < count; ++i) bits |= std::bit_cast<std::uint64_t>(row[i]) << 1;
  return bits != 0;
}

}  // namespace

RowSpans FindContent(const GridView<const double>& grid, WorkerPool& pool) {
  const VecInt3D n = grid.dims;
  RowSpans content(static_cast<std::size_t>(n.y) * static_cast<std::size_t>(n.z));
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 0; j < n.y; ++j) {
        const double* row = grid.data + grid.Index(0, j, k);
        int first = 0, last = AnyValue(row, n.x) ? n.x : 0;
        while (first < last && row[first] == 0) ++first;
        while (first < last && row[last - 1] == 0) --last;
        content[static_cast<std::size_t>(k) * n.y + j] = {first, last};
      }
    }
  });
  return content;
}

}  // namespace orlix
