#pragma once
// The level set that a surface is taken from: value less iso on the nodes of a box of its array, and the signs.

#include <cmath>
#include <vector>

#include "fluids/grids/EGrid.h"
#include "fluids/grids/PieceMemory.h"
#include "fluids/surfacing/BitRows.h"
#include "host/threads/ForLayers.h"

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

// Memory that hasn't been touched gets its pages, on all workers: the system clears them.
void TouchPages(WorkerPool& pool, void* memory, std::size_t bytes);

// Room for elements that are all written: a mesh of as many as before takes no new memory.
template <class T>
void ReserveForWriting(WorkerPool& pool, std::vector<T>& list, std::int64_t count) {
  if (static_cast<std::int64_t>(list.capacity()) >= count) return;
  list = {};
  ReserveOnLargePages(list, static_cast<std::size_t>(count));
  TouchPages(pool, list.data(), static_cast<std::size_t>(count) * sizeof(T));
}
// New elements of two lists, which are set to 0: one worker each.
template <class T, class S>
void ResizeForWriting(WorkerPool& pool, std::vector<T>& first, std::int64_t firsts, std::vector<S>& second,
                      std::int64_t seconds) {
  ReserveForWriting(pool, first, firsts), ReserveForWriting(pool, second, seconds);
  pool.Run(2, [&](int worker) {
    worker == 0 ? first.resize(static_cast<std::size_t>(firsts)) : second.resize(static_cast<std::size_t>(seconds));
  });
}

// A bit for each node of the array: outside. Nodes beyond the box have none.
BitRows OutsideNodes(const SurfaceField& field, WorkerPool& pool);

}  // namespace orlix
