#include "main/RegisterTypes.h"

#include "fluids/api/PluginLibraries.h"
#include "fluids/caches/CachesTypes.h"
#include "fluids/channels/ChannelTypes.h"
#include "fluids/constraints/ConstraintTypes.h"
#include "fluids/dynamics/DynamicsTypes.h"
#include "fluids/emitters/EmitterTypes.h"
#include "fluids/foam/FoamTypes.h"
#include "fluids/forces/ForceTypes.h"
#include "fluids/helpers/HelperTypes.h"
#include "fluids/liquids/LiquidTypes.h"
#include "fluids/operators/OperatorTypes.h"
#include "fluids/particle_emitters/ParticleEmitterTypes.h"
#include "fluids/particle_exchange/ParticleExchangeTypes.h"
#include "fluids/particle_operators/ParticleOperatorTypes.h"
#include "fluids/particle_renderer/ParticleRendererTypes.h"
#include "fluids/particles/ParticleTypes.h"
#include "fluids/position_based/PositionBasedTypes.h"
#include "fluids/rigid_bodies/RigidBodyTypes.h"
#include "fluids/scene/NodeFactory.h"
#include "fluids/scene/SceneTypes.h"
#include "fluids/surfacing/SurfacingTypes.h"
#include "fluids/volume_renderer/VolumeRendererTypes.h"
#include "fluids/volumes/VolumeTypes.h"
#include "host/geometry/GeometryTypes.h"
#include "host/render/RenderTypes.h"
#include "host/shaders/ShaderTypes.h"

namespace orlix {

void RegisterTypes(NodeFactory& factory) {
  RegisterGeometryTypes(factory.types());
  RegisterRenderTypes(factory.types());
  RegisterShaderTypes(factory.types());
  RegisterSceneTypes(factory);
  RegisterHelperTypes(factory);
  RegisterParticleTypes(factory);
  RegisterChannelTypes(factory);
  RegisterVolumeTypes(factory);
  RegisterConstraintTypes(factory);
  RegisterDynamicsTypes(factory);
  RegisterEmitterTypes(factory);
  RegisterParticleEmitterTypes(factory);
  RegisterForceTypes(factory);
  RegisterLiquidTypes(factory);
  RegisterOperatorTypes(factory);
  RegisterParticleOperatorTypes(factory);
  RegisterParticleExchangeTypes(factory);
  RegisterSurfacingTypes(factory);
  RegisterFoamTypes(factory);
  RegisterPositionBasedTypes(factory);
  RegisterRigidBodyTypes(factory);
  RegisterCacheTypes(factory);
  RegisterVolumeRendererTypes(factory);
  RegisterParticleRendererTypes(factory);
  RegisterPluginBases(factory);
}

}  // namespace orlix
