#pragma once
// How particles look in pictures: a material of the scene file ("particles"), and what each kind looks like without
// one.

#include "host/description/CurveData.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"

namespace orlix {

inline constexpr int kParticleMaterialId = 920040;

enum class ParticleShape { Spheres, Dots };
enum class VectorColours { Length, Direction };

struct ParticleLook {
  static constexpr int kGroupsId = 1000, kVisibleId = 1001, kShapeId = 1002, kRadiusFactorId = 1003,
                       kDefaultRadiusId = 1004, kDotSizeId = 1005, kLeastSizeId = 1006, kColourById = 1007,
                       kPropertyId = 1008, kVectorColoursId = 1009, kColoursId = 1010, kLowId = 1011, kHighId = 1012,
                       kColourId = 1013, kBrightnessId = 1014, kOpacityId = 1015, kFadeOutId = 1016, kLegendId = 1017,
                       kClassId = 1018;
  // Of kColourById; any other value is the number of a property.
  static constexpr std::int32_t kPlain = -1;
  // Of kClassId; any other value is a DiffuseClass.
  static constexpr std::int32_t kAllClasses = -1;
  static const TypeInfo& Type();
  static ParticleLook Read(const BaseObject& material);
  // Without a material: water from deep blue to white, everything else by its speed; vorticity isn't shown.
  static ParticleLook OfKind(std::int32_t kind);

  bool visible = true;
  ParticleShape shape = ParticleShape::Spheres;
  double radiusFactor = 1;
  double defaultRadius = 0.35;  // cells
  double dotSize = 2;           // pixels across
  double leastSize = 1;         // pixels across
  std::int32_t colourBy;
  const BaseObject* property = nullptr;  // a property node instead of colourBy
  VectorColours vectorColours = VectorColours::Length;
  Gradient colours{};
  double low = 0, high = 0;  // of the gradient; equal: by what the particles have
  bool byFall = false;       // high is the speed of a fall through the container
  Vec3D colour{0.6, 0.6, 0.6};
  double brightness = 1, opacity = 1;
  double fadeOut = 0;  // frames
  bool legend = false;
};

}  // namespace orlix
