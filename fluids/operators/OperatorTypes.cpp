#include "fluids/operators/OperatorTypes.h"

#include "fluids/operators/GridAdvection.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterOperatorTypes(NodeFactory& factory) { factory.Add<GridAdvection>(); }

}  // namespace orlix
