#include "fluids/grids/WorkSplit.h"

#include <algorithm>

namespace orlix {

std::int32_t SplitRange(std::int32_t* starts, std::int32_t* ends, std::int32_t count, std::int32_t first,
                        std::int32_t threads) {
  const std::int32_t pieces = std::min(count, threads);
  if (pieces < 1) return pieces;
  const std::int32_t chunk = count / pieces;
  for (std::int32_t w = 0; w < threads; ++w) {
    starts[w] = w < pieces ? first + w * chunk : 0;
    ends[w] = w >= pieces ? 0 : w == pieces - 1 ? first + count : starts[w] + chunk;
  }
  return pieces;
}

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
