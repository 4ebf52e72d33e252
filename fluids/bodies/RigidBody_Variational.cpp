#include "fluids/bodies/RigidBody_Variational.h"

#include "fluids/bodies/ObstacleTag.h"

namespace orlix {

void RigidBody_Variational::ReadTag(const BaseObject& tag, bool started) {
  using T = ObstacleTag;
  driven = tag.GetBool(T::kDrivenId);
  mass = driven ? 0 : tag.GetDouble(T::kMassId);
  byDensity = tag.GetChoice<T::MassMode>(T::kMassModeId) == T::MassMode::Density;
  density = tag.GetDouble(T::kDensityId);
  linearMotionScale = tag.GetDouble(T::kLinearMotionScaleId);
  angularMotionScale = tag.GetDouble(T::kAngularMotionScaleId);
  forceScale = tag.GetDouble(T::kForceScaleId);
  torqueScale = tag.GetDouble(T::kTorqueScaleId);
  UpdateMass();
  RigidBody::ReadTag(tag, started);
}

void RigidBody_Variational::UpdateMass() {
  if (driven) {
    currentMass = 0;
  } else if (!byDensity) {
    currentMass = mass;
    if (volume_ > 0) density = mass / volume_;
  } else if (HasBody()) {
    currentMass = density * volume_;
  } else {
    currentMass = density > 0 ? 1 : 0;  // until the volume is known
  }
}

void RigidBody_Variational::SetVolume(double volume) {
  if (volume_ > 0 || !(volume > 0)) return;
  volume_ = volume;
  UpdateMass();
  ApplySettings();
}

}  // namespace orlix
