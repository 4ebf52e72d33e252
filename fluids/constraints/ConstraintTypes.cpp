#include "fluids/constraints/ConstraintTypes.h"

#include "fluids/constraints/ChannelAverageConstraint.h"
#include "fluids/constraints/CoffeeConstraint.h"
#include "fluids/constraints/GradientConstraint.h"
#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/constraints/ParticleConstraint_Attribute.h"
#include "fluids/constraints/ParticleConstraint_Property.h"
#include "fluids/constraints/ParticleCountConstraint.h"
#include "fluids/constraints/ParticleDistanceConstraint.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterConstraintTypes(NodeFactory& factory) {
  factory.Add<ChannelAverageConstraint>();
  factory.Add<CoffeeConstraint>();
  factory.Add<GradientConstraint>();
  factory.Add<GridValueConstraint>();
  factory.Add<NoiseConstraint>();
  factory.Add<ParticleConstraint_Attribute>();
  factory.Add<ParticleConstraint_Property>();
  factory.Add<ParticleCountConstraint>();
  factory.Add<ParticleDistanceConstraint>();
  factory.Add<VolumeConstraint>();
  factory.Add<VoxelDistanceConstraint>();
}

}  // namespace orlix
