#include "fluids/rigid_bodies/RigidBodyTypes.h"

#include "fluids/rigid_bodies/BulletWorld.h"
#include "fluids/rigid_bodies/Bullet_VelocityEmitter.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterRigidBodyTypes(NodeFactory& factory) {
  factory.Add<Bullet_VelocityEmitter>();
  factory.AddTypeOnly(CoupleTag::Type());
  factory.makeRigidWorld = []() -> std::unique_ptr<iRigidWorld> { return std::make_unique<BulletWorld>(); };
}

}  // namespace orlix
