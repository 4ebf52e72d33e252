#include "fluids/position_based/NeighbourTable.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>

namespace orlix {

namespace {

constexpr float kFarAway = 1e9f;
constexpr double kMostCells = 1 << 24;
constexpr std::int32_t kLeastWrapped = 4;  // so that no cell is its neighbour twice

bool IsFinite(const Site& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

struct Box {
  float low[3] = {1e30f, 1e30f, 1e30f}, high[3] = {-1e30f, -1e30f, -1e30f};
  void Add(const Site& p) {
    if (!IsFinite(p)) return;
    const float x[3] = {p.x, p.y, p.z};
    for (int a = 0; a < 3; ++a) low[a] = std::min(low[a], x[a]), high[a] = std::max(high[a], x[a]);
  }
};

}  // namespace

std::int32_t NeighbourTable::Lattice::Cell(int axis, float x) const {
  const double cell = std::floor((static_cast<double>(x) - low[axis]) * perUnit);
  const std::int32_t n = cells[axis];
  if (!wraps[axis]) return static_cast<std::int32_t>(std::clamp(cell, 0.0, static_cast<double>(n - 1)));
  return static_cast<std::int32_t>(cell - std::floor(cell / n) * n) % n;
}

std::int32_t NeighbourTable::Lattice::Key(const Site& p) const {
  if (!IsFinite(p)) return 0;
  return (Cell(2, p.z) * cells[1] + Cell(1, p.y)) * cells[0] + Cell(0, p.x);
}

void NeighbourTable::Fit(std::span<const Site> points, double reach, WorkerPool& pool) {
  std::vector<Box> boxes(static_cast<std::size_t>(pool.count()));
  ParallelRange(pool, 0, count_, [&](int from, int to, int worker) {
    Box box;
    for (int n = from; n < to; ++n) box.Add(points[static_cast<std::size_t>(n)]);
    boxes[static_cast<std::size_t>(worker)] = box;
  });
  Box all;
  for (const Box& box : boxes) {
    for (int a = 0; a < 3; ++a) {
      all.low[a] = std::min(all.low[a], box.low[a]), all.high[a] = std::max(all.high[a], box.high[a]);
    }
  }
  lattice_ = {};
  lattice_.perUnit = 1 / reach;
  double cells[3], most = std::clamp(4.0 * count_, 4096.0, kMostCells);
  for (int a = 0; a < 3; ++a) {
    lattice_.low[a] = all.low[a] <= all.high[a] ? static_cast<double>(all.low[a]) : 0;
    const double extent = all.low[a] <= all.high[a] ? static_cast<double>(all.high[a]) - lattice_.low[a] : 0;
    cells[a] = std::floor(extent / reach) + 1;
  }
  while (cells[0] * cells[1] * cells[2] > most) {
    const auto longest = static_cast<int>(std::max_element(cells, cells + 3) - cells);
    if (cells[longest] < 2 * kLeastWrapped) break;
    cells[longest] = std::ceil(cells[longest] / 2);
    lattice_.wraps[longest] = true;
  }
  for (int a = 0; a < 3; ++a) lattice_.cells[a] = static_cast<std::int32_t>(cells[a]);
}

// A counting sort. Each worker looks at all keys and takes those of its own run of cells, so that the order in a cell
// is that of the points.
void NeighbourTable::Sort(std::span<const Site> points, WorkerPool& pool) {
  const auto n = static_cast<std::size_t>(count_);
  keys_.resize(n), places_.resize(n), points_.resize(n);
  begins_.assign(static_cast<std::size_t>(lattice_.count()) + 1, 0);
  sites_.resize(PaddedSize());
  ParallelRange(pool, 0, count_, [&](int from, int to, int) {
    for (auto p = static_cast<std::size_t>(from); p < static_cast<std::size_t>(to); ++p)
      keys_[p] = lattice_.Key(points[p]);
  });
  ParallelRange(pool, 0, lattice_.count(), [&](int from, int to, int) {
    for (const std::int32_t key : keys_) {
      if (key >= from && key < to) ++begins_[static_cast<std::size_t>(key) + 1];
    }
  });
  for (std::size_t c = 1; c < begins_.size(); ++c) begins_[c] += begins_[c - 1];
  // Cells divide so that each worker has about as many points.
  std::vector<std::int32_t> next(begins_.begin(), begins_.end() - 1);
  const auto cellOf = [&](std::int64_t place) {
    return static_cast<std::int32_t>(std::upper_bound(begins_.begin(), begins_.end() - 1, place) - begins_.begin()) - 1;
  };
  const int workers = pool.count();
  pool.Run(workers, [&](int worker) {
    const std::int32_t from = worker == 0 ? 0 : cellOf(std::int64_t(count_) * worker / workers);
    const std::int32_t to =
        worker == workers - 1 ? lattice_.count() : cellOf(std::int64_t(count_) * (worker + 1) / workers);
    for (std::int32_t p = 0; p < count_; ++p) {
      const std::int32_t key = keys_[static_cast<std::size_t>(p)];
      if (key < from || key >= to) continue;
      const auto place = static_cast<std::size_t>(next[static_cast<std::size_t>(key)]++);
      places_[static_cast<std::size_t>(p)] = static_cast<std::int32_t>(place);
      points_[place] = p;
      sites_[place] = points[static_cast<std::size_t>(p)];
    }
  });
  std::fill(sites_.begin() + count_, sites_.end(), Site{kFarAway, kFarAway, kFarAway, 0});
}

std::int32_t NeighbourTable::Query(const Site& centre, std::int32_t self, std::int32_t most, std::int32_t* out) const {
  if (!IsFinite(centre)) return 0;
  const Lattice& l = lattice_;
  std::int32_t count = 0;
  const auto scan = [&](std::int32_t first, std::int32_t last) {  // cells, of one row
    count =
        pair_kernels::FindNear(sites_.data(), begins_[static_cast<std::size_t>(first)],
                               begins_[static_cast<std::size_t>(last) + 1], centre, self, reach2_, most, out, count);
  };
  const std::int32_t cx = l.Cell(0, centre.x), cy = l.Cell(1, centre.y), cz = l.Cell(2, centre.z);
  const auto neighbour = [&](int axis, std::int32_t cell) {  // -1: none
    const std::int32_t n = l.cells[axis];
    if (cell >= 0 && cell < n) return cell;
    return l.wraps[axis] ? (cell + n) % n : -1;
  };
  for (std::int32_t z = cz - 1; z <= cz + 1; ++z) {
    for (std::int32_t y = cy - 1; y <= cy + 1; ++y) {
      const std::int32_t row = neighbour(1, y), layer = neighbour(2, z);
      if (row < 0 || layer < 0) continue;
      const std::int32_t base = (layer * l.cells[1] + row) * l.cells[0];
      scan(base + std::max(cx - 1, 0), base + std::min(cx + 1, l.cells[0] - 1));
      if (l.wraps[0] && cx == 0) scan(base + l.cells[0] - 1, base + l.cells[0] - 1);
      if (l.wraps[0] && cx == l.cells[0] - 1) scan(base, base);
    }
  }
  return std::min(count, most);
}

void NeighbourTable::Collect(std::int32_t block) {
  Lists& lists = lists_[static_cast<std::size_t>(block)];
  const std::int32_t first = block * kBlock, end = std::min(count_, first + kBlock);
  lists.starts.clear(), lists.counts.clear(), lists.entries.clear();
  lists.starts.push_back(0);
  std::int32_t found[kMostNeighbours + 2 * kSlack];
  for (std::int32_t place = first; place < end; ++place) {
    const std::int32_t n = Query(sites_[static_cast<std::size_t>(place)], place, kMostNeighbours, found);
    const std::int32_t padded = (n + kSlack - 1) & ~(kSlack - 1);
    std::fill(found + n, found + padded, count_);
    lists.entries.insert(lists.entries.end(), found, found + padded);
    lists.starts.push_back(static_cast<std::int32_t>(lists.entries.size()));
    lists.counts.push_back(n);
  }
}

void NeighbourTable::BuildCells(std::span<const Site> points, double reach, WorkerPool& pool) {
  if (points.size() > 0x7FFFFFF0u) throw std::bad_alloc();
  count_ = static_cast<std::int32_t>(points.size());
  reach2_ = static_cast<float>(reach * reach);
  Fit(points, reach, pool);
  Sort(points, pool);
}

void NeighbourTable::Build(std::span<const Site> points, double reach, WorkerPool& pool) {
  BuildCells(points, reach, pool);
  lists_.resize(static_cast<std::size_t>(blockCount()));
  std::atomic<bool> outOfMemory{false};
  ForBlocks(*this, pool, [&](std::int32_t block) {
    try {
      Collect(block);
    } catch (const std::bad_alloc&) {
      outOfMemory.store(true, std::memory_order_relaxed);
    }
  });
  if (outOfMemory.load()) throw std::bad_alloc();
}

PairBlock NeighbourTable::Block(std::int32_t block) const {
  const Lists& lists = lists_[static_cast<std::size_t>(block)];
  const std::int32_t first = block * kBlock;
  return {first, std::min(kBlock, count_ - first), lists.starts.data(), lists.entries.data()};
}

std::int32_t NeighbourTable::NeighbourCount(std::int32_t place) const {
  return lists_[static_cast<std::size_t>(place / kBlock)].counts[static_cast<std::size_t>(place % kBlock)];
}

std::int64_t NeighbourTable::Bytes() const {
  std::size_t bytes = (keys_.capacity() + begins_.capacity() + places_.capacity() + points_.capacity()) * 4 +
                      sites_.capacity() * sizeof(Site);
  for (const Lists& each : lists_) {
    bytes += (each.starts.capacity() + each.entries.capacity() + each.counts.capacity()) * 4;
  }
  return static_cast<std::int64_t>(bytes);
}

}  // namespace orlix
