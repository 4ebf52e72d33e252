#pragma once
// The cells of a nodal level set by their distance, as the mean of their eight corners. A cell is inside when it isn't
// above 0: what is thinner than a cell has none.

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <string>
#include <vector>

#include "fluids/grids/Grid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// distances[i] of the cells [begin, end) of a row. Gives the least of them.
inline double MeanDistances(const GridView<const double>& nodes, std::int32_t begin, std::int32_t end, std::int32_t j,
                            std::int32_t k, double* distances) {
  const double* p = nodes.data + nodes.Index(0, j, k);
  const double *q = p + nodes.dims.x, *r = p + nodes.slab, *s = q + nodes.slab;
  double least = std::numeric_limits<double>::infinity();
  for (std::int32_t i = begin; i < end; ++i) {
    const double sum = p[i] + p[i + 1] + q[i] + q[i + 1] + r[i] + r[i + 1] + s[i] + s[i + 1];
    distances[i] = sum * 0.125;
    least = std::min(least, distances[i]);
  }
  return least;
}

// Says of geometry of this size (m) that it is thinner than a cell; empty when it isn't.
inline std::string TooThinText(const Vec3D& size, double cellSize) {
  const Vec3D cells = size / cellSize;
  if (std::min({cells.x, cells.y, cells.z}) >= 1) return {};
  return fmt::format(
      "it is {:.2g} x {:.2g} x {:.2g} cells large, and what is thinner than a cell fills none; make it "
      "larger (is it in the scene's units?) or voxel_size smaller",
      cells.x, cells.y, cells.z);
}

inline bool HasInsideNode(const GridView<const double>& nodes, WorkerPool& pool) {
  std::atomic<bool> found{false};
  ParallelRange(pool, 0, nodes.dims.z, [&](int first, int last, int) {
    for (int k = first; k < last && !found.load(std::memory_order_relaxed); ++k) {
      const double* layer = nodes.data + nodes.Index(0, 0, k);
      if (std::any_of(layer, layer + nodes.slab, [](double d) { return d < 0; })) found.store(true);
    }
  });
  return found.load();
}

inline bool HasInsideCell(const GridView<const double>& nodes, WorkerPool& pool) {
  std::atomic<bool> found{false};
  ParallelRange(pool, 0, nodes.dims.z - 1, [&](int first, int last, int) {
    std::vector<double> distances(static_cast<std::size_t>(nodes.dims.x));
    for (int k = first; k < last && !found.load(std::memory_order_relaxed); ++k) {
      for (int j = 0; j + 1 < nodes.dims.y; ++j) {
        if (MeanDistances(nodes, 0, nodes.dims.x - 1, j, k, distances.data()) <= 0) found.store(true);
      }
    }
  });
  return found.load();
}

}  // namespace orlix
