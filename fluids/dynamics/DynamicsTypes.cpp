#include "fluids/dynamics/DynamicsTypes.h"

#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

void RegisterDynamicsTypes(NodeFactory& factory) { factory.Add<FluidSolver>(); }

}  // namespace orlix
