#pragma once
// Which particles lie in a cell: the particles of a kind of several groups, sorted by the cells of a lattice.
//
// An entry is a flat index: the groups' windows one after the other. A window reaches from the first to the last
// particle of a group that stands in a cell; those between that don't have ParticleFlag::Sorted clear. The entries of a
// cell, of a row of cells along x and of everything come in ascending order of (cell, flat index), so that sums over
// them don't depend on workers. Only occupied cells take memory.
//
//   sort.Configure(PK_Liquid, space, 16);
//   sort.Sort(groups, false, pool);
//   sort.ForEachRow(cell, 1, false, [&](std::span<const std::int32_t> entries) { ... sort.PlaceOf(entries[n]) ... });

#include <span>
#include <vector>

#include "fluids/grids/CountedVector.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class ParticleSort {
 public:
  // The indices of a group's list that its window covers.
  struct Range {
    std::int32_t first = 0, count = 0;
  };
  // Where a flat index stands: which of the groups, and the index in its list.
  struct Place {
    std::int32_t group = 0, index = 0;
  };

  // capacity: how many entries make a cell full.
  void Configure(std::int32_t kind, const GridSpace& space, std::int32_t capacity);
  // Another lattice; forgets everything.
  void SetLattice(const VecInt3D& dims, const Vec3D& hostSize, float cellSize, const Vec3D& hostOrigin);

  // Sorts list 0 of the kind of each group and sets or clears ParticleFlag::Sorted. What hasn't moved since the last
  // sort isn't sorted again. saveVelocity: every particle gets its velocity as property 26. No groups: nothing happens.
  void Sort(std::span<ParticleGroup* const> groups, bool saveVelocity, WorkerPool& pool);
  // Forgets cells, ranges and groups. restore: first takes property 26 from all particles in cells and sets Sorted.
  void Clear(bool restore);

  // True when the position lies in the lattice (keepMargin: not in its outermost cells) and, with checkCapacity, its
  // cell isn't full; cell and count are set as far as it got. True without groups.
  bool CellOf(const Vec3D& position, std::int32_t& cell, std::int32_t& count, bool checkCapacity,
              bool keepMargin) const;
  // The flat indices in a cell; none for an empty cell.
  std::span<const std::int32_t> Entries(std::int32_t cell) const;
  // f(std::span of flat indices) for each row of occupied cells along x in the window of cells about centre, y before
  // z: centre - halfWidth to centre + halfWidth, or without the last cell of each axis when exclusive.
  template <class F>
  void ForEachRow(const VecInt3D& centre, std::int32_t halfWidth, bool exclusive, F&& f) const;
  // All occupied cells, ascending, and where their entries begin in AllEntries (one more at the end).
  std::span<const std::int32_t> Cells() const { return cells_; }
  std::span<const std::int32_t> CellBegins() const { return begins_; }
  std::span<const std::int32_t> AllEntries() const { return {entries_.data(), static_cast<std::size_t>(entryCount_)}; }

  Place PlaceOf(std::int32_t flatIndex) const;
  // Null beyond the windows and for a particle that has gone.
  OrlixParticle ParticleAt(std::int32_t flatIndex) const;
  // Particles that a cell lacks, in particles a volume: fraction / spacing^3 less the sum of the densities (property 3,
  // 1 without it) of its entries.
  double Deficit(std::int32_t cell, double spacing, double fraction) const;
  bool IsFull(std::int32_t cell, double spacing) const;

  std::int32_t sortedCount() const { return sortedCount_; }
  std::span<const Range> ranges() const { return ranges_; }
  std::span<ParticleGroup* const> groups() const { return groups_; }
  const GridSpace& space() const { return space_; }
  std::int32_t kind() const { return kind_; }
  std::int64_t Bytes() const;

  std::int32_t cellCapacity = 16;

 private:
  struct Pass;

  void Build(WorkerPool& pool);
  void SaveVelocities(WorkerPool& pool) const;
  std::int32_t FirstCellFrom(std::int32_t key) const;
  std::int32_t KeyOf(const VecInt3D& c) const { return (c.z * space_.dims.y + c.y) * space_.dims.x + c.x; }

  GridSpace space_;
  std::int32_t kind_ = PK_Liquid;
  std::vector<ParticleGroup*> groups_;
  std::vector<Range> ranges_;
  std::int32_t sortedCount_ = 0, entryCount_ = 0;

  CountedVector<std::int32_t> entries_;
  std::vector<std::int32_t> cells_, begins_;
  // cells_ from lookup_[n] on have keys of at least n << lookupShift_.
  std::vector<std::int32_t> lookup_;
  int lookupShift_ = 0;

  bool current_ = false;  // the table is known to groups_
  // What the table was made from; kept when it is cleared.
  std::vector<std::uint64_t> versions_;
  GridSpace sortedSpace_;
  std::uint64_t stamp_ = 0;
  // Scratch of a sort.
  CountedVector<std::uint32_t> keys_;
  CountedVector<std::uint64_t> pairs_;
};

template <class F>
void ParticleSort::ForEachRow(const VecInt3D& centre, std::int32_t halfWidth, bool exclusive, F&& f) const {
  const VecInt3D half(halfWidth, halfWidth, halfWidth), one(1, 1, 1);
  const VecInt3D from = Max(centre - half, VecInt3D()),
                 to = Min(exclusive ? centre + half : centre + half + one, space_.dims);
  if (!current_ || cells_.empty() || from.x >= to.x) return;
  for (std::int32_t z = from.z; z < to.z; ++z) {
    for (std::int32_t y = from.y; y < to.y; ++y) {
      const std::int32_t key = KeyOf({from.x, y, z}), end = key + (to.x - from.x);
      const std::int32_t first = FirstCellFrom(key);
      std::int32_t last = first;
      while (last < static_cast<std::int32_t>(cells_.size()) && cells_[static_cast<std::size_t>(last)] < end) ++last;
      if (first == last) continue;
      const std::int32_t a = begins_[static_cast<std::size_t>(first)], b = begins_[static_cast<std::size_t>(last)];
      f(std::span<const std::int32_t>(entries_.data() + a, static_cast<std::size_t>(b - a)));
    }
  }
}

}  // namespace orlix
