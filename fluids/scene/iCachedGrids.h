#pragma once
// What a grid cache records of a node and plays back into it: one grid (channels, volumes, surfaces) or three (velocity
// and vector channels).

#include "fluids/grids/EGrid.h"

namespace orlix {

// What stands in a frame file for one node, before the bulk.
struct GridCacheHeader {
  bool present = false;  // the node had a grid when the frame was written
  GridSpace space;       // the lattice of the first grid
  VecInt3D dims;         // of its array
  std::uint32_t gridType = 0;
};

class iCachedGrids {
 public:
  virtual ~iCachedGrids() = default;
  virtual int CachedGridCount() const = 0;
  // Null when there is none.
  virtual ScalarGrid* CachedGrid(int index) = 0;
  // In playback, at the start of a frame, before containers are set: the lattice that the grids are to get. The node's
  // FromCache flag equals header.present.
  virtual void TakeCacheHeader(const GridCacheHeader& header) = 0;
  // The grids hold what the cache has for this sub-step.
  virtual void CacheLoaded() {}
};

}  // namespace orlix
