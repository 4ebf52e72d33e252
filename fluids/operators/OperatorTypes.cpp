#include "fluids/operators/OperatorTypes.h"

#include "fluids/operators/ChannelOperator_Coffee.h"
#include "fluids/operators/ChannelOperator_Math.h"
#include "fluids/operators/ChannelOperator_Remap.h"
#include "fluids/operators/GridAdvection.h"
#include "fluids/operators/GridCombustion.h"
#include "fluids/operators/GridCooling.h"
#include "fluids/operators/GridDiffusion.h"
#include "fluids/operators/GridDissipate.h"
#include "fluids/operators/GridVariableDensity.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterOperatorTypes(NodeFactory& factory) {
  factory.Add<GridAdvection>();
  factory.Add<GridCombustion>();
  factory.Add<GridVariableDensity>();
  factory.Add<GridCooling>();
  factory.Add<GridDissipate>();
  factory.Add<GridDiffusion>();
  factory.Add<ChannelOperator_Math>();
  factory.Add<ChannelOperator_Coffee>();
  factory.Add<ChannelOperator_Remap>();
}

}  // namespace orlix
