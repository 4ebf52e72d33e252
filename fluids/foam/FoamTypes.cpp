#include "fluids/foam/FoamTypes.h"

#include "fluids/foam/FoamSprayBubbles.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterFoamTypes(NodeFactory& factory) { factory.Add<FoamSprayBubbles>(); }

}  // namespace orlix
