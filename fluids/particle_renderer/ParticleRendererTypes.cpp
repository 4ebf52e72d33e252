#include "fluids/particle_renderer/ParticleRendererTypes.h"

#include "fluids/particle_renderer/ParticleLook.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterParticleRendererTypes(NodeFactory& factory) { factory.AddTypeOnly(ParticleLook::Type()); }

}  // namespace orlix
