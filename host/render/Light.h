#pragma once
// A light of the picture. An illuminated surface of white matter that faces the light shows the light's colour times
// its intensity: the factor pi of a diffuse reflector is part of the light's unit.

#include <cstdint>

#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/RowMistake.h"

namespace orlix {

inline constexpr int kPointLightId = 920001;
inline constexpr int kSpotLightId = 920002;
inline constexpr int kDistantLightId = 920003;
inline constexpr int kAreaLightId = 920004;

extern const TypeInfo kPointLightType, kSpotLightType, kDistantLightType, kAreaLightType;

// Ids of the lights' own rows.
inline constexpr int kLightColourId = 1000;
inline constexpr int kLightIntensityId = 1001;
inline constexpr int kLightOnId = 1002;
inline constexpr int kLightShadowId = 1003;
inline constexpr int kLightFalloffId = 1004;
inline constexpr int kLightRadiusId = 1005;
inline constexpr int kLightInnerAngleId = 1006;
inline constexpr int kLightOuterAngleId = 1007;
inline constexpr int kLightTargetId = 1008;
inline constexpr int kLightDirectionId = 1009;
inline constexpr int kLightSizeId = 1010;
inline constexpr int kLightShadowRaysId = 1011;
inline constexpr int kLightWidthId = 1012;
inline constexpr int kLightHeightId = 1013;

enum class LightKind { Point, Spot, Distant, Area };

enum class LightFalloff : int {
  None = 0,
  Linear = 1,        // 1 - distance / radius, 0 beyond the radius
  InverseSquare = 2  // (radius / distance)^2: the full intensity at the radius
};

// What arrives at a point, before anything stands in the way.
struct Illumination {
  Vec3D colour;         // times intensity, falloff and cone
  Vec3D toLight;        // unit; zero at the light itself
  double distance = 0;  // to the light's position
};

struct Light {
  // A distant light stands this far off, in host units, for everything that asks for a position.
  static constexpr double kDistantDistance = 1e6;

  LightKind kind = LightKind::Point;
  bool on = true;
  bool castsShadow = true;
  Vec3D colour{1, 1, 1};      // times intensity
  Vec3D position;             // host space; of no meaning for a distant light
  Vec3D direction{0, -1, 0};  // where a spot and an area point and the light of a distant one goes; unit
  Vec3D across, along;        // of an area: half its sides
  Vec3D move, turn;           // of position and direction, from the shutter's opening to its closing
  LightFalloff falloff = LightFalloff::None;
  double radius = 1;                  // host units, see LightFalloff
  double cosInner = 1, cosOuter = 0;  // of the half angles of the cone
  double size = 0;     // of the disc that shines: host units across, of a distant light its width over its distance
  int shadowRays = 4;  // to a disc or an area
  std::uint64_t object = 0;  // creation number of the host object, 0 when there is none

  // Where the light stands as seen from x.
  Vec3D PositionFrom(const Vec3D& x) const {
    return kind == LightKind::Distant ? x - direction * kDistantDistance : position;
  }
  // Of an area: what it would give from its middle.
  Illumination Illuminate(const Vec3D& x) const;
  bool HasWidth() const { return size > 0 || kind == LightKind::Area; }
  // What comes from one point of a light with a width; square: which point, in the unit square.
  Illumination IlluminateFrom(const Vec3D& x, const Vec2D& square) const;
  // The light as it is at a time of the shutter, 0 to 1; it is given for the middle.
  Light AtTime(double time) const;
  // The direction and distance from x to a point of the disc, which faces x; square: which point, in the unit square.
  void AimAtDisc(const Vec3D& x, const Vec2D& square, Illumination& illumination) const;
};

// The light that an object of one of the four types describes. An error names what makes no sense.
Result<Light> ReadLight(const BaseObject& object, RowMistake* mistake = nullptr);

}  // namespace orlix
