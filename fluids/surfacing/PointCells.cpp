#include "fluids/surfacing/PointCells.h"

#include <algorithm>
#include <new>
#include <utility>

namespace orlix {

namespace {

constexpr int kMostWorkers = 8;  // each reads all keys

int CellAlong(double x, int n) {
  if (!(x > 0)) return 0;
  return x < n ? static_cast<int>(x) : n - 1;
}

}  // namespace

VecInt3D PointCells::CellOf(const Vec3D& place) const {
  const Vec3D c = (place - low_) * perMetre_;
  return {CellAlong(c.x, cells_.x), CellAlong(c.y, cells_.y), CellAlong(c.z, cells_.z)};
}

void PointCells::Build(WorkerPool& pool, std::span<const Vec3D> places, const Vec3D& low, double edge,
                       const VecInt3D& cells) {
  low_ = low, perMetre_ = 1 / edge, cells_ = cells;
  const std::int64_t cellCount = CellCount(cells);
  if (cellCount < 1 || cellCount >= kMaxGridCells) throw std::bad_alloc();
  CountedVector<std::int32_t> keys(places.size());
  ParallelRange(pool, 0, static_cast<int>(places.size()), [&](int from, int to, int) {
    for (auto n = std::size_t(from); n < std::size_t(to); ++n) {
      const VecInt3D c = CellOf(places[n]);
      keys[n] = IsFinite(places[n]) ? static_cast<std::int32_t>(Key(c.x, c.y, c.z)) : -1;
    }
  });
  starts_.assign(std::size_t(cellCount) + 1, 0);
  // A worker has a range of cells and counts, and later places, what lies in it.
  const int pieces = std::clamp(pool.count(), 1, kMostWorkers);
  const auto forOwn = [&](int piece, auto&& f) {
    const std::int64_t from = cellCount * piece / pieces, to = cellCount * (piece + 1) / pieces;
    for (std::size_t n = 0; n < keys.size(); ++n) {
      if (keys[n] >= from && keys[n] < to) f(n);
    }
  };
  pool.Run(pieces, [&](int piece) { forOwn(piece, [&](std::size_t n) { ++starts_[std::size_t(keys[n])]; }); });
  count_ = 0;
  for (std::int32_t& start : starts_) count_ += std::exchange(start, count_);
  const std::size_t room = std::size_t(count_) + kPlaces;
  x_.resize(room), y_.resize(room), z_.resize(room), index_.resize(room), slot_.resize(room);
  // Each cell's start moves to its end, which is the next one's start.
  pool.Run(pieces, [&](int piece) {
    forOwn(piece, [&](std::size_t n) {
      const auto to = std::size_t(starts_[std::size_t(keys[n])]++);
      x_[to] = places[n].x, y_[to] = places[n].y, z_[to] = places[n].z;
      index_[to] = static_cast<std::int32_t>(n), slot_[to] = static_cast<std::int32_t>(to);
    });
  });
  std::copy_backward(starts_.begin(), starts_.end() - 1, starts_.end());
  starts_[0] = 0;
}

void PointCells::Gather(const Vec3D& low, const Vec3D& high, double radius, NearPoints& out) const {
  out.count = 0;
  const VecInt3D from = CellOf(low - Vec3D(radius)), to = CellOf(high + Vec3D(radius));
  for (int k = from.z; k <= to.z; ++k) {
    for (int j = from.y; j <= to.y; ++j) {
      const std::int32_t begin = starts_[std::size_t(Key(from.x, j, k))];
      const std::int32_t end = starts_[std::size_t(Key(to.x, j, k)) + 1];
      if (begin == end) continue;
      place_sums::KeepNear(x_.data() + begin, y_.data() + begin, z_.data() + begin, slot_.data() + begin, end - begin,
                           low, high, radius * radius, out);
    }
  }
}

}  // namespace orlix
