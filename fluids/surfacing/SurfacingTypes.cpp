#include "fluids/surfacing/SurfacingTypes.h"

#include "fluids/scene/NodeFactory.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "fluids/surfacing/LevelSetSmoother.h"
#include "fluids/surfacing/MeshOperator.h"
#include "fluids/surfacing/SurfaceReconstructor.h"

namespace orlix {

void RegisterSurfacingTypes(NodeFactory& factory) {
  factory.Add<SurfaceReconstructor>();
  factory.Add<ImplicitMesher>();
  factory.Add<CSGoperatorGrid>();
  factory.Add<MeshCurvatureOperator>();
  factory.Add<MeshSmoothingOperator>();
  factory.Add<LevelSetSmoother>();
}

}  // namespace orlix
