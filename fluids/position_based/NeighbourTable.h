#pragma once
// Who is near whom, of many points at once: points sorted by cells as wide as the reach, and for each the list of those
// that are nearer. The same at any number of workers: in a cell points stand in their order, lists go by the order of
// cells.
//
// A point without finite coordinates has no neighbours and is nobody's. A point has kMostNeighbours at most, those that
// come first: where thousands lie on one spot, neither time nor memory explodes.

#include <atomic>
#include <vector>

#include "fluids/grids/CountedVector.h"
#include "fluids/position_based/PairKernels.h"
#include "globals/Vec.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class NeighbourTable {
 public:
  static constexpr std::int32_t kMostNeighbours = 256;
  static constexpr std::int32_t kBlock = 256;  // points that a worker takes at a time

  // points by their order; reach in the same unit. Throws std::bad_alloc.
  void Build(std::span<const Site> points, double reach, WorkerPool& pool);
  // The cells alone, for queries.
  void BuildCells(std::span<const Site> points, double reach, WorkerPool& pool);
  // Places of points nearer than the reach to any place, but those on the very spot; at most a few more than most, into
  // room for most and 16 more. Gives how many.
  std::int32_t Near(const Site& centre, std::int32_t most, std::int32_t* out) const {
    return Query(centre, -1, most, out);
  }
  void Clear() { *this = {}; }

  std::int32_t count() const { return count_; }
  // Where a point stands in the sorted order, and the other way round.
  std::span<const std::int32_t> places() const { return {places_.data(), static_cast<std::size_t>(count_)}; }
  std::span<const std::int32_t> points() const { return {points_.data(), static_cast<std::size_t>(count_)}; }
  // The points in sorted order and one more that is far from all, which fills up lists; readable a little beyond.
  const CountedVector<Site>& sites() const { return sites_; }
  CountedVector<Site>& sites() { return sites_; }
  std::int32_t blockCount() const { return (count_ + kBlock - 1) / kBlock; }
  PairBlock Block(std::int32_t block) const;
  // Of a place.
  std::int32_t NeighbourCount(std::int32_t place) const;
  std::int64_t Bytes() const;
  // For arrays that lists index: one for each place, and what fills up lists.
  std::size_t PaddedSize() const { return static_cast<std::size_t>(count_) + 1 + kSlack; }

 private:
  static constexpr std::int32_t kSlack = 8;
  // The lattice of cells. An axis along which points lie too far apart wraps around.
  struct Lattice {
    double low[3] = {}, perUnit = 1;
    std::int32_t cells[3] = {1, 1, 1};
    bool wraps[3] = {};
    std::int32_t Cell(int axis, float x) const;
    std::int32_t Key(const Site& p) const;
    std::int32_t count() const { return cells[0] * cells[1] * cells[2]; }
  };
  struct Lists {
    CountedVector<std::int32_t> starts, entries, counts;
  };

  void Fit(std::span<const Site> points, double reach, WorkerPool& pool);
  void Sort(std::span<const Site> points, WorkerPool& pool);
  void Collect(std::int32_t block);
  std::int32_t Query(const Site& centre, std::int32_t self, std::int32_t most, std::int32_t* out) const;

  Lattice lattice_;
  float reach2_ = 0;
  std::int32_t count_ = 0;
  CountedVector<std::int32_t> keys_, begins_, places_, points_;
  CountedVector<Site> sites_;
  std::vector<Lists> lists_;  // of each block
};

// f(block) for all blocks of a table, on the pool, as workers come.
template <class F>
void ForBlocks(const NeighbourTable& table, WorkerPool& pool, F&& f) {
  std::atomic<std::int32_t> next{0};
  pool.Run(pool.count(), [&](int) {
    for (std::int32_t block = next.fetch_add(1); block < table.blockCount(); block = next.fetch_add(1)) f(block);
  });
}

}  // namespace orlix
