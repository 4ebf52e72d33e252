#pragma once
// Where the bodies of a scene are after a frame: what writers of other programs' files ask.

#include <vector>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

struct BodyTransform {
  const BaseObject* object = nullptr;  // whose polygons the body has
  const BaseObject* volume = nullptr;  // whose tag made it one
  LMatrix matrix;                      // from the object's own points to host space, host units
  Vec3D velocity, spin;                // of its centre, host units a second; rad/s
  double mass = 0;                     // kg; 0 of one that isn't moved
  bool asleep = false;
};

// In the order of the tree. Scenes without a body that forces move have none.
std::vector<BodyTransform> CollectBodyTransforms(const OrlixScene& scene);

}  // namespace orlix
