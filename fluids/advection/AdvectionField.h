#pragma once
// What a pass of advection needs to know of the velocity and of the walls, in index positions (see VelocityTrace.h).

#include "fluids/advection/VelocityTrace.h"
#include "fluids/boundary/CellMask.h"
#include "fluids/boundary/SolidBricks.h"
#include "fluids/boundary/SolidView.h"

namespace orlix {

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
