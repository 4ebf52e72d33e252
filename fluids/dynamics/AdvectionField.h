#pragma once
// What a pass of advection needs to know of the velocity and of the walls, in index positions (see VelocityTrace.h).

#include <cstdint>
#include <vector>

#include "fluids/dynamics/CellMask.h"
#include "fluids/dynamics/SolidView.h"
#include "fluids/dynamics/VelocityTrace.h"

namespace orlix {

// Where a solid distance may be negative: a byte for each 4 x 4 x 4 cells. A point that was clamped to the domain
// samples no node of the outermost layer, so that walls without obstacles leave it empty.
class SolidBricks {
 public:
  void Build(const GridView<const double>& nodes);
  bool IsEmpty() const { return min_.x > max_.x; }
  // The cells that hold all marked bricks.
  const VecInt3D& min() const { return min_; }
  const VecInt3D& max() const { return max_; }
  // The largest depth of a node, in the unit of the distances.
  double depth() const { return depth_; }
  // p in the domain.
  bool Touches(const Vec3D& p) const {
    const std::size_t i = static_cast<std::size_t>(p.x) >> kShift, j = static_cast<std::size_t>(p.y) >> kShift;
    const std::size_t k = static_cast<std::size_t>(p.z) >> kShift;
    return marks_[(k * bricksY_ + j) * bricksX_ + i] != 0;
  }

 private:
  static constexpr int kShift = 2;
  void Mark(int i, int j, int k);

  std::vector<std::uint8_t> marks_;
  std::size_t bricksX_ = 0, bricksY_ = 0;
  VecInt3D min_{1, 1, 1}, max_;
  double depth_ = 0;
};

// The way back of a time step is its way there with the sign of dt turned.
struct AdvectionField {
  static constexpr double kMargin = 0.001;  // m, how far inside a solid's surface a point is put

  VelocityView velocity;
  SolidView solid;
  const SolidBricks* bricks = nullptr;  // of solid
  float cellSize = 1;                   // m
  float dt = 0;                         // s, signed
  Integrator integrator = Integrator::Euler;

  // Cells per (m/s).
  double Step() const { return static_cast<double>(dt) / static_cast<double>(cellSize); }
  Vec3D Trace(const Vec3D& index) const {
    return TracePoint(integrator, index, Step(), [&](const Vec3D& at) { return velocity.At(at); });
  }
  // Moves a point out of the outer cells and out of solids. True when it moved, and without walls.
  bool Resolve(Vec3D& index) const;

  // The place of a clamped point next to the low faces; next to the high ones it is n - 1 less this.
  static constexpr double kInset = 1.001f;
};

}  // namespace orlix
