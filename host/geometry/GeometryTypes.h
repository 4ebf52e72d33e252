#pragma once
// The host's geometry objects.

#include "host/description/TypeRegistry.h"

namespace orlix {

inline constexpr int kMeshTypeId = 5100;  // the host's polygon object
inline constexpr int kNullTypeId = 5140;
inline constexpr int kBoxTypeId = 5159;
inline constexpr int kSphereTypeId = 5160;
inline constexpr int kConeTypeId = 5162;
inline constexpr int kTorusTypeId = 5163;
inline constexpr int kPlaneTypeId = 5168;
inline constexpr int kCylinderTypeId = 5170;
inline constexpr int kCapsuleTypeId = 5171;
inline constexpr int kTorusKnotTypeId = 5190;
inline constexpr int kFalloffTypeId = 5191;

extern const TypeInfo kMeshType, kNullType, kBoxType, kSphereType, kConeType, kTorusType, kPlaneType, kCylinderType,
    kCapsuleType, kTorusKnotType, kFalloffType;

// Links that take any object and links that want polygons both accept geometry.
inline constexpr std::uint32_t kGeometryKinds = kLinkGeometry | kLinkHostObject;

void RegisterGeometryTypes(TypeRegistry& registry);

}  // namespace orlix
