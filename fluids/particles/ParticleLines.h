#pragma once
// Particles by the rows of cells of a lattice, for passes that go through cells row by row and gather or refuse what is
// near. A stable counting sort: in a row, particles stand in the order of their indices, whatever the number of
// workers.
//
//   lines.Build(list, lattice, 2, pool);                     // rows up to 2 cells beyond the lattice
//   for (const auto& entry : lines.Of(j, k)) ...             // those whose y and z lie in the row's cells
//   lines.ForEachNear(j, k, 2, [&](std::span<const ParticleLines::Entry>) ...)   // of the rows about it
//
// Places along x aren't limited.

#include <span>

#include "fluids/grids/CountedVector.h"
#include "fluids/grids/GridSpace.h"
#include "fluids/particles/ParticleList.h"

namespace orlix {

class ParticleLines {
 public:
  struct Entry {
    Vec3D position;  // simulation space
    std::int32_t index;
  };

  // Throws std::bad_alloc.
  void Build(const ParticleList& list, const GridSpace& lattice, std::int32_t margin, WorkerPool& pool);
  void Clear();
  bool empty() const { return entries_.empty(); }

  // Empty beyond the margin.
  std::span<const Entry> Of(std::int32_t j, std::int32_t k) const {
    const std::int32_t y = j + margin_, z = k + margin_;
    if (y < 0 || z < 0 || y >= rows_ || z >= layers_) return {};
    const std::size_t line =
        static_cast<std::size_t>(z) * static_cast<std::size_t>(rows_) + static_cast<std::size_t>(y);
    return {entries_.data() + starts_[line], entries_.data() + starts_[line + 1]};
  }
  // All, line by line, and where in them an entry stands.
  std::span<const Entry> entries() const { return entries_; }
  std::size_t PlaceOf(const Entry& entry) const { return static_cast<std::size_t>(&entry - entries_.data()); }
  // f(entries) of the rows at most reach cells off, by z, then y.
  template <class F>
  void ForEachNear(std::int32_t j, std::int32_t k, std::int32_t reach, F&& f) const {
    for (std::int32_t z = k - reach; z <= k + reach; ++z) {
      for (std::int32_t y = j - reach; y <= j + reach; ++y) {
        if (const std::span<const Entry> entries = Of(y, z); !entries.empty()) f(entries);
      }
    }
  }

 private:
  std::int32_t LineOf(const Vec3D& position) const;

  Vec3D origin_, perMetre_;
  std::int32_t margin_ = 0, rows_ = 0, layers_ = 0;
  CountedVector<std::int32_t> starts_;  // of each line, and the end
  CountedVector<Entry> entries_;
};

}  // namespace orlix
