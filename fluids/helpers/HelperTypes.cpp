#include "fluids/helpers/HelperTypes.h"

#include "fluids/helpers/Duration.h"
#include "fluids/helpers/Kernel.h"
#include "fluids/helpers/Property.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterHelperTypes(NodeFactory& factory) {
  factory.Add<Duration>();
  factory.Add<Property<double>>();
  factory.Add<Property<std::int32_t>>();
  factory.Add<Property<Vec3D>>();
  factory.Add<Property<bool>>();
  RegisterFixedProperties(factory);
  factory.Add<Kernel>();
}

}  // namespace orlix
