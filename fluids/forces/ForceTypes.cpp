#include "fluids/forces/ForceTypes.h"

#include "fluids/forces/Force_Buoyancy.h"
#include "fluids/forces/Force_Coffee.h"
#include "fluids/forces/Force_Curl.h"
#include "fluids/forces/Force_Gravity.h"
#include "fluids/forces/Force_GridTurbulence.h"
#include "fluids/forces/Force_Swirling.h"
#include "fluids/forces/Force_TrigoWave.h"
#include "fluids/forces/Force_Vortex.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterForceTypes(NodeFactory& factory) {
  factory.Add<Force_Gravity>();
  factory.Add<Force_Buoyancy>();
  factory.Add<Force_Swirling>();
  factory.Add<Force_GridTurbulence>();
  factory.Add<Force_TrigoWave>();
  factory.Add<Force_Vortex>();
  factory.Add<Force_Curl>();
  factory.Add<Force_Coffee>();
}

}  // namespace orlix
