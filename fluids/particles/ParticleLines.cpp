#include "fluids/particles/ParticleLines.h"

#include <algorithm>
#include <new>

namespace orlix {

namespace {

constexpr int kMostWorkers = 8;  // each counts all lines

}  // namespace

void ParticleLines::Clear() {
  starts_ = {}, entries_ = {};
  rows_ = layers_ = 0;
}

// -1 beyond the margin, and for a position that is no number.
std::int32_t ParticleLines::LineOf(const Vec3D& position) const {
  const double y = (position.y - origin_.y) * perMetre_.y + margin_,
               z = (position.z - origin_.z) * perMetre_.z + margin_;
  if (!(y >= 0 && z >= 0 && y < rows_ && z < layers_)) return -1;
  return static_cast<std::int32_t>(z) * rows_ + static_cast<std::int32_t>(y);
}

void ParticleLines::Build(const ParticleList& list, const GridSpace& lattice, std::int32_t margin, WorkerPool& pool) {
  origin_ = lattice.simMin, perMetre_ = lattice.voxelsPerSim;
  margin_ = margin;
  rows_ = lattice.dims.y + 2 * margin, layers_ = lattice.dims.z + 2 * margin;
  const std::int64_t lines = std::int64_t(rows_) * layers_;
  if (lines < 1 || lines >= kMaxGridCells) throw std::bad_alloc();
  const auto lineCount = static_cast<std::size_t>(lines);
  const ParticleRanges ranges = ParticleRanges::Of(list.count(), std::min(pool.count(), kMostWorkers));
  const auto pieces = static_cast<std::size_t>(ranges.pieces);
  // Where each piece's particles of each line go: counts first, then running sums, line by line, piece by piece.
  CountedVector<std::int32_t> places(lineCount * pieces, 0);
  const auto forEach = [&](int piece, auto&& f) {
    list.ForEachChunk(ranges.begin[piece], ranges.end[piece], [&](const ParticleRows& rows) {
      const Vec3D* x = rows.positions();
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        if (const std::int32_t line = LineOf(x[r]); line >= 0) f(static_cast<std::size_t>(line), x[r], rows.first + r);
      }
    });
  };
  pool.Run(ranges.pieces, [&](int piece) {
    std::int32_t* counts = places.data() + lineCount * static_cast<std::size_t>(piece);
    forEach(piece, [&](std::size_t line, const Vec3D&, std::int32_t) { ++counts[line]; });
  });
  starts_.resize(lineCount + 1);
  std::int32_t sum = 0;
  for (std::size_t line = 0; line < lineCount; ++line) {
    starts_[line] = sum;
    for (std::size_t piece = 0; piece < pieces; ++piece) {
      std::int32_t& place = places[lineCount * piece + line];
      sum += std::exchange(place, sum);
    }
  }
  starts_[lineCount] = sum;
  entries_.resize(static_cast<std::size_t>(sum));
  pool.Run(ranges.pieces, [&](int piece) {
    std::int32_t* next = places.data() + lineCount * static_cast<std::size_t>(piece);
    forEach(piece, [&](std::size_t line, const Vec3D& x, std::int32_t index) {
      entries_[static_cast<std::size_t>(next[line]++)] = {x, index};
    });
  });
}

}  // namespace orlix
