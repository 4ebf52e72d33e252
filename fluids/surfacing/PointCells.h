#pragma once
// Points by cells of a lattice, for passes that ask what is near a box. A stable counting sort: the points of a cell
// stand in the order of their indices, whatever the number of workers, and the cells of a row one after the other.

#include <span>

#include "fluids/grids/CountedVector.h"
#include "fluids/surfacing/PlaceSums.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class PointCells {
 public:
  // Cells from low on, edge m wide; points beyond them count for the nearest cell. Points that aren't finite are left
  // out. Throws std::bad_alloc.
  void Build(WorkerPool& pool, std::span<const Vec3D> places, const Vec3D& low, double edge, const VecInt3D& cells);

  int count() const { return count_; }
  // Where a point of the caller's stands, and the other way.
  std::span<const std::int32_t> indices() const { return {index_.data(), std::size_t(count_)}; }
  // Replaces what is kept by the points nearer to the box than radius.
  void Gather(const Vec3D& low, const Vec3D& high, double radius, NearPoints& out) const;

 private:
  VecInt3D CellOf(const Vec3D& place) const;
  std::int64_t Key(int i, int j, int k) const { return (std::int64_t(k) * cells_.y + j) * cells_.x + i; }

  Vec3D low_;
  double perMetre_ = 1;
  VecInt3D cells_;
  int count_ = 0;
  CountedVector<std::int32_t> starts_;  // of each cell, and the end
  CountedVector<double> x_, y_, z_;
  CountedVector<std::int32_t> index_, slot_;  // slot_[n] is n, for what copies it along
};

}  // namespace orlix
