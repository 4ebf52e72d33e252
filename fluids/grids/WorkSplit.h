#pragma once
// How work divides among workers: ranges of indices and slabs of z layers. The remainder falls to the last piece.

#include <cstdint>

#include "globals/Vec.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// starts and ends have an entry for each of threads workers; those beyond the pieces are 0. Gives the pieces in use.
std::int32_t SplitRange(std::int32_t* starts, std::int32_t* ends, std::int32_t count, std::int32_t first,
                        std::int32_t threads);

// Slabs of z for workers of a node: tables with an entry for each worker.
struct LayerSlabs {
  VecInt3D rangeMin[WorkerPool::kMaxWorkers], rangeMax[WorkerPool::kMaxWorkers];
  int slices = 0;
  // A worker at or above slices has nothing to do.
  bool Has(int threadIndex) const { return threadIndex < slices; }
};

// The whole grid, or without its outermost layer. False when there is no layer.
bool SplitLayers(LayerSlabs& slabs, const VecInt3D& dims, bool wholeGrid, int threads);

}  // namespace orlix
