#pragma once
// The rigid body of an obstacle. It stands still, or its host object drives it; a body that the fluid pushes needs the
// rigid world, and until there is one it stands still.

#include <cstdint>

#include "globals/Vec.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// The tag that makes a volume an obstacle.
inline constexpr int kObstacleTagId = 1300111;

enum class BodyType : std::int32_t { Static = 0, Driven = 1, Dynamic = 2 };

class RigidBody_Variational {
 public:
  // The tag's settings, with their rows' fallbacks.
  void ReadTag(const BaseObject& tag);

  BodyType bodyType() const { return bodyType_; }
  // The tag asks for a body that moves by forces.
  bool wantsDynamic() const { return wantsDynamic_; }

  // Factors on the motion that the fluid feels.
  double linearMotionScale = 1.0;
  double angularMotionScale = 0.25;

 private:
  BodyType bodyType_ = BodyType::Static;
  bool wantsDynamic_ = false;
};

}  // namespace orlix
