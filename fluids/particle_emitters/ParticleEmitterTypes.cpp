#include "fluids/particle_emitters/ParticleEmitterTypes.h"

#include "fluids/particle_emitters/ObjectParticleGridEmitter.h"
#include "fluids/particle_emitters/ObjectParticleMeshEmitter.h"

namespace orlix {

void RegisterParticleEmitterTypes(NodeFactory& factory) {
  factory.Add<ParticleEmissionSettings>();
  factory.Add<ObjectParticleGridEmitter>();
  factory.Add<ObjectParticleMeshEmitter>();
}

}  // namespace orlix
