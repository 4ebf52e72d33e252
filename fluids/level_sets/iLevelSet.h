#pragma once
// A node that has a level set to give: a volume, a combination of volumes, a reconstruction from particles.

#include <cstdint>

#include "fluids/grids/EGrid.h"

namespace orlix {

class iLevelSet {
 public:
  virtual ~iLevelSet() = default;
  // On nodes, metres, negative inside; null when there is none.
  virtual const ScalarGrid* LevelSet() const = 0;
  virtual ScalarGrid* LevelSet() = 0;
  // Grows with each rebuild, change and loss of the level set: what was derived from it holds while this stays.
  virtual std::uint64_t LevelSetVersion() const = 0;
  // For a node that changes another one's level set in place.
  virtual void LevelSetChanged() = 0;
};

}  // namespace orlix
