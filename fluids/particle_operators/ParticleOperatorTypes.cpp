#include "fluids/particle_operators/ParticleOperatorTypes.h"

#include "fluids/particle_operators/InstantOperator_Repulsion.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "fluids/particle_operators/PSurface_Properties.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/particle_operators/ParticleForce_Acceleration.h"
#include "fluids/particle_operators/ParticleForce_Coffee.h"
#include "fluids/particle_operators/ParticleForce_Corrector.h"
#include "fluids/particle_operators/ParticleForce_SurfaceTension.h"
#include "fluids/particle_operators/ParticleForces.h"
#include "fluids/particle_operators/ParticleSheet.h"
#include "fluids/particle_operators/ParticleVolumeProperties.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterParticleOperatorTypes(NodeFactory& factory) {
  factory.Add<ParticleAdvection>();
  factory.Add<ParticleForces>();
  factory.Add<ParticleForce_Acceleration>();
  factory.Add<ParticleForce_Coffee>();
  factory.Add<ParticleForce_Corrector>();
  factory.Add<ParticleForce_SurfaceTension>();
  factory.Add<ParticleVolumeProperties>();
  factory.Add<PSurface_Properties>();
  factory.Add<ParticleSheet>();
  factory.Add<InstantOperator_Repulsion>();
  factory.Add<InstantOperator_Spawn>();
}

}  // namespace orlix
