#pragma once
// Carries points through a staggered velocity field (Bridson 2015, ch. 3).
//
//   integrator  method                       order  stages
//   0           Euler                            1       1
//   1           Heun                             2       2
//   2           Ralston                          3       3
//   3           classical Runge-Kutta            4       4
//
// Index positions: index space of the lattice, in which cell (i, j, k) spans [i, i + 1) and has its
// centre at (i + 0.5, j + 0.5, k + 0.5).

#include "fluids/grids/Interpolation.h"

namespace orlix {

class VectorGridChannel;

enum class Integrator : int { Euler = 0, Heun = 1, Ralston = 2, RungeKutta4 = 3 };
constexpr bool IsKnown(Integrator integrator) {
  return integrator >= Integrator::Euler && integrator <= Integrator::RungeKutta4;
}

// The three components of a staggered velocity, m/s, on one lattice.
struct VelocityView {
  GridView<const double> component[3];

  // All components have the two samples an axis that interpolation needs.
  bool HasData() const {
    for (const auto& grid : component) {
      if (!grid.data || grid.dims.x < 2 || grid.dims.y < 2 || grid.dims.z < 2) return false;
    }
    return true;
  }
  // Trilinear, each component with its own staggering.
  Vec3D At(const Vec3D& index) const {
    return {SampleTrilinear(component[0], index.x, index.y - 0.5, index.z - 0.5),
            SampleTrilinear(component[1], index.x - 0.5, index.y, index.z - 0.5),
            SampleTrilinear(component[2], index.x - 0.5, index.y - 0.5, index.z)};
  }
};

// Moves x over the time step through the velocity. first is the velocity at x; velocityAt(x) gives it elsewhere. Units
// of x are up to the caller; step turns a velocity into a displacement in them.
template <Integrator kIntegrator, class VelocityAt>
Vec3D TracePoint(const Vec3D& x, double step, const Vec3D& first, const VelocityAt& velocityAt) {
  if constexpr (kIntegrator == Integrator::Euler) {
    return x + step * first;
  } else if constexpr (kIntegrator == Integrator::Heun) {
    const Vec3D k2 = velocityAt(x + step * first);
    return x + step * (first + k2) * 0.5;
  } else if constexpr (kIntegrator == Integrator::Ralston) {
    const Vec3D k2 = velocityAt(x + step * 0.5 * first);
    const Vec3D k3 = velocityAt(x + step * 0.75 * k2);
    return x + step * ((2.0 / 9.0) * first + (1.0 / 3.0) * k2 + (4.0 / 9.0) * k3);
  } else {
    const Vec3D k2 = velocityAt(x + step * 0.5 * first);
    const Vec3D k3 = velocityAt(x + step * 0.5 * k2);
    const Vec3D k4 = velocityAt(x + step * k3);
    return x + step * (first + 2.0 * k2 + 2.0 * k3 + k4) / 6.0;
  }
}

// The same with the method as a value; another number leaves x as it is.
template <class VelocityAt>
Vec3D TracePoint(Integrator integrator, const Vec3D& x, double step, const VelocityAt& velocityAt) {
  switch (integrator) {
    case Integrator::Euler:
      return TracePoint<Integrator::Euler>(x, step, velocityAt(x), velocityAt);
    case Integrator::Heun:
      return TracePoint<Integrator::Heun>(x, step, velocityAt(x), velocityAt);
    case Integrator::Ralston:
      return TracePoint<Integrator::Ralston>(x, step, velocityAt(x), velocityAt);
    case Integrator::RungeKutta4:
      return TracePoint<Integrator::RungeKutta4>(x, step, velocityAt(x), velocityAt);
  }
  return x;
}

// Moves position through the channel's current grids, or its previous ones. position in metres from the lattice's low
// corner, or with worldSpace in simulation space. dt in s, signed. A channel without all three grids moves nothing.
void TraceVelocityField(const VectorGridChannel& channel, Vec3D& position, float dt, Integrator integrator,
                        bool worldSpace);
void TraceVelocityFieldPrevious(const VectorGridChannel& channel, Vec3D& position, float dt, Integrator integrator,
                                bool worldSpace);

}  // namespace orlix
