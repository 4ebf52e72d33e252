#pragma once
// The level set that a surface is taken from: value less iso on the nodes of a box of its array, and the signs.

#include <algorithm>
#include <cmath>

#include "fluids/grids/EGrid.h"
#include "fluids/surfacing/BitRows.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct SurfaceField {
  GridView<const double> grid;
  double iso = 0;
  double cellSize = 1;    // m
  VecInt3D low, high;     // nodes, both ends inclusive
  bool closed = false;    // nodes of the box's faces count as outside
  double nearest = 1e-8;  // m: a value that is nearer to the surface becomes this one, outside

  double Value(int i, int j, int k) const {
    const double v = grid(i, j, k) - iso;
    if (std::fabs(v) < nearest || (closed && OnFace(i, j, k) && v < nearest)) return nearest;
    return v;
  }
  bool OnFace(int i, int j, int k) const {
    return i == low.x || i == high.x || j == low.y || j == high.y || k == low.z || k == high.z;
  }
};

// Calls f(n) for n of [begin, end) on all workers, in many shares, since a surface fills some layers more than others.
template <class F>
void ForLayers(WorkerPool& pool, int begin, int end, F&& f) {
  const int count = std::max(end - begin, 0);
  pool.Run(std::min(count, WorkerPool::kMaxWorkers), [&](int share) {
    const int shares = std::min(count, WorkerPool::kMaxWorkers);
    const auto from = [&](int s) { return begin + static_cast<int>(static_cast<std::int64_t>(count) * s / shares); };
    for (int n = from(share); n < from(share + 1); ++n) f(n);
  });
}

// A bit for each node of the array: outside. Nodes beyond the box have none.
BitRows OutsideNodes(const SurfaceField& field, WorkerPool& pool);

}  // namespace orlix
