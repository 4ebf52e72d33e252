#include "fluids/volume_renderer/VolumeRendererTypes.h"

#include "fluids/scene/NodeFactory.h"
#include "fluids/volume_renderer/GasSettings.h"

namespace orlix {

void RegisterVolumeRendererTypes(NodeFactory& factory) { factory.AddTypeOnly(GasSettings::Type()); }

}  // namespace orlix
