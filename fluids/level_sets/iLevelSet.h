#pragma once
// A node that has a level set to give: a volume, a combination of volumes, a reconstruction from particles.

#include <cstdint>

#include "fluids/grids/EGrid.h"

namespace orlix {

// Of one over a box.
inline double LevelSetBytes(const Vec3D& min, const Vec3D& max, double cell) {
  const Vec3D nodes = Max((max - min) / cell, Vec3D()) + Vec3D(2);
  return nodes.x * nodes.y * nodes.z * sizeof(double);
}

class iLevelSet {
 public:
  virtual ~iLevelSet() = default;
  // On nodes, metres, negative inside; null when there is none.
  virtual const ScalarGrid* LevelSet() const = 0;
  virtual ScalarGrid* LevelSet() = 0;
  // Grows with each rebuild, change and loss of the level set: what was derived from it holds while this stays.
  virtual std::uint64_t LevelSetVersion() const = 0;
  // The box that it will have as things stand, simulation space; false where that can't be known.
  virtual bool ForecastBox(Vec3D&, Vec3D&) const { return false; }
  // For a node that changes another one's level set in place.
  virtual void LevelSetChanged() = 0;
};

}  // namespace orlix
