#include "fluids/position_based/PositionBasedTypes.h"

#include "fluids/position_based/PositionBasedFluidDynamics.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterPositionBasedTypes(NodeFactory& factory) { factory.Add<PositionBasedFluidDynamics>(); }

}  // namespace orlix
