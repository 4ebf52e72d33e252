#include "fluids/volume/VolumeTypes.h"

#include "fluids/scene/NodeFactory.h"
#include "fluids/volume/AlignmentVector3D.h"
#include "fluids/volume/ObstacleTag.h"
#include "fluids/volume/VolumeMesh.h"

namespace orlix {

void RegisterVolumeTypes(NodeFactory& factory) {
  factory.Add<AlignmentVector3D>();
  factory.Add<VolumeMesh>();
  factory.AddTypeOnly(ObstacleTagType());
}

}  // namespace orlix
