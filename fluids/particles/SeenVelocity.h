#pragma once
// The velocity with which a particle is seen, in files and pictures: its own, or, since one that rides a flow keeps
// none, what it moved in the last sub-step.

#include "fluids/particles/ParticleList.h"

namespace orlix {

class SeenVelocity {
 public:
  // dt: of the last sub-step, s.
  SeenVelocity(const ParticleRows& rows, double dt)
      : positions_(rows.positions()),
        velocities_(rows.velocities()),
        old_(dt > 0 ? rows.Property<Vec3D>(PP::OldPosition) : PropertyView<Vec3D>()),
        dt_(dt) {}

  Vec3D Of(std::int32_t row) const {
    if (velocities_[row] != Vec3D() || !old_.Has(row)) return velocities_[row];
    return (positions_[row] - old_.values()[row]) / dt_;
  }

 private:
  const Vec3D *positions_, *velocities_;
  PropertyView<Vec3D> old_;
  double dt_;
};

}  // namespace orlix
