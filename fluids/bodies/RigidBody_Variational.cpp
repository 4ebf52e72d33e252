#include "fluids/bodies/RigidBody_Variational.h"

#include "fluids/bodies/ObstacleTag.h"

namespace orlix {

void RigidBody_Variational::ReadTag(const BaseObject& tag) {
  const bool driven = tag.GetBool(kBodyDriven);
  const bool massFromDensity = tag.GetInt(kBodyMassMode) == 1;
  const double mass = driven ? 0 : massFromDensity ? tag.GetDouble(kBodyDensity) : tag.GetDouble(kBodyMass);
  wantsDynamic_ = mass > 0;
  bodyType_ = driven ? BodyType::Driven : BodyType::Static;
  linearMotionScale = tag.GetDouble(kBodyLinearMotionScale);
  angularMotionScale = tag.GetDouble(kBodyAngularMotionScale);
}

}  // namespace orlix
