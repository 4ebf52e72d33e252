#pragma once
// How a node of a parallel block divides its grid among the workers: slabs of whole z layers. The remainder falls to
// the last slab.

#include <cstdint>

#include "globals/Vec.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

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
