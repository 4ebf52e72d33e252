#include "fluids/volume_renderer/VolumeRendererTypes.h"

#include "fluids/scene/NodeFactory.h"
#include "fluids/volume_renderer/GasSettings.h"
#include "fluids/volume_renderer/SceneSampler.h"

namespace orlix {

void RegisterVolumeRendererTypes(NodeFactory& factory) {
  for (const TypeInfo* type : {&GasSettings::Type(), &kGridSamplerType, &kParticleSamplerType})
    factory.AddTypeOnly(*type);
}

}  // namespace orlix
