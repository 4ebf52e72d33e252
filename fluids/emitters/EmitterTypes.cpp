#include "fluids/emitters/EmitterTypes.h"

#include "fluids/emitters/EmissionRate.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/emitters/ObjectGridEmitter.h"

namespace orlix {

void RegisterEmitterTypes(NodeFactory& factory) {
  factory.Add<EmissionRate>();
  factory.Add<GridEmissionSettings>();
  factory.Add<ObjectGridEmitter>();
  factory.Add<Grid_CellEmitter>();
}

}  // namespace orlix
