#include "fluids/bodies/RigidBody_Variational.h"

#include "fluids/bodies/ObstacleTag.h"

namespace orlix {

void RigidBody_Variational::ReadTag(const BaseObject& tag) {
  const bool driven = tag.GetBool(ObstacleTag::kDrivenId);
  const bool massFromDensity =
      tag.GetChoice<ObstacleTag::MassMode>(ObstacleTag::kMassModeId) == ObstacleTag::MassMode::Density;
  const double mass = driven            ? 0
                      : massFromDensity ? tag.GetDouble(ObstacleTag::kDensityId)
                                        : tag.GetDouble(ObstacleTag::kMassId);
  wantsDynamic_ = mass > 0;
  bodyType_ = driven ? BodyType::Driven : BodyType::Static;
  linearMotionScale = tag.GetDouble(ObstacleTag::kLinearMotionScaleId);
  angularMotionScale = tag.GetDouble(ObstacleTag::kAngularMotionScaleId);
}

}  // namespace orlix
