#include "fluids/volumes/VolumeTypes.h"

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/scene/NodeFactory.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/MultiVolume.h"
#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

void RegisterVolumeTypes(NodeFactory& factory) {
  factory.Add<AlignmentVector3D>();
  factory.Add<MultiVolume>();
  factory.Add<VolumeMesh>();
  factory.AddTypeOnly(ObstacleTag::Type());
}

}  // namespace orlix
