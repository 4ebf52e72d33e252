#include "fluids/constraints/ConstraintTypes.h"

#include "fluids/constraints/ChannelAverageConstraint.h"
#include "fluids/constraints/GradientConstraint.h"
#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

void RegisterConstraintTypes(NodeFactory& factory) {
  factory.Add<ChannelAverageConstraint>();
  factory.Add<GradientConstraint>();
  factory.Add<GridValueConstraint>();
  factory.Add<NoiseConstraint>();
  factory.Add<VolumeConstraint>();
  factory.Add<VoxelDistanceConstraint>();
}

}  // namespace orlix
