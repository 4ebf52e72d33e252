#include "fluids/surfacing/SurfacingTypes.h"

#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterSurfacingTypes(NodeFactory&) {}

}  // namespace orlix
