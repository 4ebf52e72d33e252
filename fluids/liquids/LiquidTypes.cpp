#include "fluids/liquids/LiquidTypes.h"

#include "fluids/liquids/WaterSolver.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterLiquidTypes(NodeFactory& factory) {
  factory.Add<WaterSolver>();
  factory.AddAs<WaterSolver>(WaterSolver::ViscousType());
}

}  // namespace orlix
