#include "fluids/scene/SceneTypes.h"

#include "fluids/scene/NodeFactory.h"
#include "fluids/scene/RootObject.h"

namespace orlix {

void RegisterSceneTypes(NodeFactory& factory) { factory.AddTypeOnly(RootSettings::Type()); }

}  // namespace orlix
