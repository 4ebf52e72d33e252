#include "fluids/scene/SceneTypes.h"

#include "fluids/scene/Duration.h"
#include "fluids/scene/Kernel.h"
#include "fluids/scene/NodeFactory.h"
#include "fluids/scene/Property.h"
#include "fluids/scene/RootObject.h"

namespace orlix {

void RegisterSceneTypes(NodeFactory& factory) {
  factory.AddTypeOnly(RootType());
  factory.Add<Duration>();
  factory.Add<Property<double>>();
  factory.Add<Property<std::int32_t>>();
  factory.Add<Property<Vec3D>>();
  factory.Add<Property<bool>>();
  factory.Add<Kernel>();
}

}  // namespace orlix
