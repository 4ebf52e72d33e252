#pragma once
// Velocities and distances at runs of points, such as particles: what VelocityView::At, TracePoint and SampleTrilinear
// give for one point, with the same bits, several points at a time.
//
//   PointRun p, u;
//   p.count = n;  p.x[0] = ...                              // metres from the lattice's low corner
//   SampleVelocity(velocity, 1.0 / cellSize, p, u);         // m/s
//   TracePoints(velocity, 1.0 / cellSize, Integrator::Heun, dt, p);
//
// A run goes through its stages one after the other, each a short loop over blocks of points: the processor overlaps
// the reads of many blocks. Points that follow one another should lie near each other.

#include "fluids/advection/VelocityTrace.h"

namespace orlix {

struct PointRun {
  static constexpr int kMost = 128;
  int count = 0;
  // Behind the points, to a whole block, the last one is repeated: Pad sees to it.
  alignas(64) double x[kMost], y[kMost], z[kMost];

  void Set(int n, const Vec3D& p) { x[n] = p.x, y[n] = p.y, z[n] = p.z; }
  Vec3D Get(int n) const { return {x[n], y[n], z[n]}; }
  // Of a run of vectors, moved by offset.
  void Load(const Vec3D* points, int n, const Vec3D& offset = {});
  // Writes them back, moved by offset.
  void Unload(Vec3D* points, const Vec3D& offset = {}) const;
  void Pad();
};

// The velocity at the points; perMetre is a cell's inverse size. velocity must have data.
void SampleVelocity(const VelocityView& velocity, double perMetre, const PointRun& points, PointRun& out);
// Moves the points through the velocity for dt, signed. Another integrator than the four moves nothing.
void TracePoints(const VelocityView& velocity, double perMetre, Integrator integrator, double dt, PointRun& points);
// The trilinear values of a grid at points / cellSize, without an offset: distances on nodes. Grids need two samples an
// axis.
void SampleNodes(const GridView<const double>& nodes, double cellSize, const PointRun& points,
                 double out[PointRun::kMost]);

}  // namespace orlix
