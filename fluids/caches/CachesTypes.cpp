#include "fluids/caches/CachesTypes.h"

#include "fluids/caches/GridCacher.h"
#include "fluids/caches/MeshCacher.h"
#include "fluids/caches/ParticleCacher.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterCacheTypes(NodeFactory& factory) {
  factory.Add<GridCacher>();
  factory.Add<ParticleCacher>();
  factory.Add<MeshCacher>();
}

}  // namespace orlix
