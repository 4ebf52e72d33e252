#include "host/geometry/GeometryTypes.h"

namespace orlix {

void RegisterGeometryTypes(TypeRegistry& registry) {
  for (const TypeInfo* type : {&kNullType, &kMeshType, &kBoxType, &kSphereType, &kPlaneType, &kTorusType,
                               &kCylinderType, &kConeType, &kCapsuleType, &kTorusKnotType, &kFalloffType}) {
    registry.Add(*type);
  }
}

}  // namespace orlix
