#include "fluids/particles/ParticleTypes.h"

#include "fluids/particles/ParticleGroup.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterParticleTypes(NodeFactory& factory) { factory.Add<ParticleGroup>(); }

}  // namespace orlix
