#include "fluids/grids/WorkSplit.h"

#include <algorithm>

namespace orlix {

bool SplitLayers(LayerSlabs& slabs, const VecInt3D& dims, bool wholeGrid, int threads) {
  const int b = wholeGrid ? 0 : 1;
  const int size = dims.z - 2 * b;
  slabs.slices = std::max(0, std::min({size, threads, WorkerPool::kMaxWorkers}));
  if (slabs.slices == 0) return false;
  const int chunk = size / slabs.slices;
  for (int s = 0; s < slabs.slices; ++s) {
    slabs.rangeMin[s] = {b, b, b + s * chunk};
    slabs.rangeMax[s] = {dims.x - b, dims.y - b, s == slabs.slices - 1 ? dims.z - b : b + (s + 1) * chunk};
  }
  return true;
}

}  // namespace orlix
