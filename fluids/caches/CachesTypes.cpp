#include "fluids/caches/CachesTypes.h"

#include "fluids/caches/GridCacher.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterCacheTypes(NodeFactory& factory) { factory.Add<GridCacher>(); }

}  // namespace orlix
