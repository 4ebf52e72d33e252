#include "fluids/emitters/EmitterTypes.h"

#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/emitters/ObjectGridEmitter.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterEmitterTypes(NodeFactory& factory) {
  factory.Add<ObjectGridEmitter>();
  factory.Add<Grid_CellEmitter>();
  factory.Add<GridEmissionSettings>();
  factory.Add<EmissionRate>();
}

}  // namespace orlix
