#include "fluids/particle_exchange/ParticleExchangeTypes.h"

#include "fluids/particle_exchange/GridToParticles.h"
#include "fluids/particle_exchange/ParticleConverter.h"
#include "fluids/particle_exchange/ParticleToGridEmitter.h"

namespace orlix {

void RegisterParticleExchangeTypes(NodeFactory& factory) {
  factory.Add<GridToParticles>();
  factory.Add<ParticleToGridEmitter>();
  factory.Add<ParticleConverter>();
}

}  // namespace orlix
