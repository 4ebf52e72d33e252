#pragma once
// The rigid world of a scene: takes the bodies of all volumes through each sub-step.

#include "fluids/rigid_bodies/CoupleTag.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

class BulletWorld final : public iRigidWorld {
 public:
  void Step(OrlixScene& scene) override;
  void EndFrame(OrlixScene& scene) override;
  void Reset() override { told_ = false; }
  void VisitState(StateVisitor& visitor) override { swimmers_.VisitState(visitor); }

 private:
  CoupledObjects swimmers_;
  bool told_ = false;  // what the settings of the bodies mean for their sizes
};

}  // namespace orlix
