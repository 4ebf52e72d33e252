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

// The numbers of their rows.
inline constexpr int kBoxSizeId = 1100, kBoxSegmentsXId = 1101, kBoxSegmentsYId = 1102, kBoxSegmentsZId = 1103;
inline constexpr int kSphereRadiusId = 1110, kSphereSegmentsId = 1111;
inline constexpr int kConeTopRadiusId = 1150, kConeBottomRadiusId = 1151, kConeHeightId = 1152, kConeSegmentsId = 1153,
                     kConeHeightSegmentsId = 1154, kConeCapsId = 1155;
inline constexpr int kTorusRadiusId = 1130, kTorusPipeRadiusId = 1131, kTorusSegmentsId = 1132,
                     kTorusPipeSegmentsId = 1133;
inline constexpr int kPlaneWidthId = 1180, kPlaneDepthId = 1181, kPlaneSegmentsXId = 1182, kPlaneSegmentsZId = 1183;
inline constexpr int kCylinderRadiusId = 1140, kCylinderHeightId = 1141, kCylinderSegmentsId = 1142,
                     kCylinderHeightSegmentsId = 1143, kCylinderCapsId = 1144;
inline constexpr int kCapsuleRadiusId = 1160, kCapsuleHeightId = 1161, kCapsuleSegmentsId = 1162,
                     kCapsuleHeightSegmentsId = 1163;
inline constexpr int kTorusKnotRadiusId = 1190, kTorusKnotTubeRadiusId = 1191, kTorusKnotPipeRadiusId = 1192,
                     kTorusKnotTurnsId = 1193, kTorusKnotWindingsId = 1194, kTorusKnotSegmentsId = 1195,
                     kTorusKnotPipeSegmentsId = 1196;
inline constexpr int kFalloffShapeId = 1100, kFalloffSizeId = 1101, kFalloffInnerId = 1102, kFalloffStrengthId = 1103,
                     kFalloffInvertId = 1104, kFalloffEnabledId = 1105;
inline constexpr int kMeshFileId = 5101, kMeshFrameOffsetId = 5102;

// Links that take any object and links that want polygons both accept geometry.
inline constexpr std::uint32_t kGeometryKinds = kLinkGeometry | kLinkHostObject;

void RegisterGeometryTypes(TypeRegistry& registry);

}  // namespace orlix
