#pragma once
// Where the flames of a gas shine, as points for surfaces to be lit by: a point is drawn in proportion to its power, so
// that each carries the same light and none makes a surface flash.

#include <vector>

#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

class GasGlow {
 public:
  // Of a marcher that is built. A cell's power is what gets out of the gas, on the mean over directions: what shines
  // deep inside would draw points that hardly light anything. Throws std::bad_alloc.
  void Build(const RayMarcher& marcher, WorkerPool& pool);
  bool empty() const { return cells_.empty(); }
  // By three numbers in [0, 1).
  GlowPoint PointAt(const Vec3D& draws) const;
  // Power over all directions and 4 pi.
  const Vec3D& intensity() const { return intensity_; }

 private:
  struct Cell {
    Vec3D low;        // corner, host space
    Vec3D intensity;  // of the cell
    double upTo = 0;  // brightness of this cell and all before it
  };
  std::vector<Cell> cells_;
  Vec3D intensity_;
  double side_ = 0;  // host units
};

}  // namespace orlix
