#include "host/render/Light.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/objects/HostRange.h"
#include "host/render/Camera.h"

namespace orlix {

namespace {

constexpr Choice kFalloffs[] = {
    {LightFalloff::None, "none", "The same at any distance"},
    {LightFalloff::Linear, "linear", "Falls in a straight line to 0 at the radius"},
    {LightFalloff::InverseSquare, "inverse_square", "As real light does; full at the radius"},
};

constexpr Parameter ColourRow() {
  return VectorParameter(kLightColourId, "colour", {1, 1, 1}, "", "Colour, linear Rec. 709").Min(0);
}
constexpr Parameter IntensityRow() {
  return FloatParameter(kLightIntensityId, "intensity", 1.0, "", "What a white surface that faces the light shows")
      .Min(0);
}
constexpr Parameter OnRow() { return BoolParameter(kLightOnId, "on", true, "Whether the light shines"); }
constexpr Parameter ShadowRow() {
  return BoolParameter(kLightShadowId, "shadow", true, "Whether what stands in the way casts a shadow");
}
constexpr Parameter FalloffRow() {
  return ChoiceParameter(kLightFalloffId, "falloff", LightFalloff::None, kFalloffs,
                         "How the light loses strength with distance");
}
constexpr Parameter RadiusRow() {
  return FloatParameter(kLightRadiusId, "radius", 10.0, "host units", "Distance that the falloff is measured by")
      .Above(0)
      .Max(kMostHostUnits)
      .ShownWhen(kLightFalloffId, Relation::IsNot, LightFalloff::None);
}

constexpr Parameter SizeRow() {
  return FloatParameter(kLightSizeId, "size", 0.0, "host units", "Width of the disc that shines; 0 casts sharp shadows")
      .Between(0, kMostHostUnits);
}
constexpr Parameter ShadowRaysRow() {
  return IntParameter(kLightShadowRaysId, "shadow_rays", 4, "", "Rays to the disc for each sample of a surface")
      .Between(1, 1024)
      .ShownWhen(kLightSizeId, Relation::Above, 0);
}

constexpr Parameter kPointRows[] = {ColourRow(),  IntensityRow(), OnRow(),   ShadowRow(),
                                    FalloffRow(), RadiusRow(),    SizeRow(), ShadowRaysRow()};

constexpr Parameter kSpotRows[] = {
    ColourRow(),
    IntensityRow(),
    OnRow(),
    ShadowRow(),
    FalloffRow(),
    RadiusRow(),
    SizeRow(),
    ShadowRaysRow(),
    FloatParameter(kLightInnerAngleId, "inner_angle", 20.0, "degrees", "Full light within this angle across the cone")
        .Between(0, 180),
    FloatParameter(kLightOuterAngleId, "outer_angle", 40.0, "degrees", "No light outside this angle across the cone")
        .Between(0, 180),
    VectorParameter(kLightTargetId, "target", {0, 0, 0}, "host units", "Point in host space that the light points at")
        .Between(-kMostHostUnits, kMostHostUnits),
};

constexpr Parameter kAreaRows[] = {
    ColourRow(),
    IntensityRow(),
    OnRow(),
    ShadowRow(),
    FalloffRow(),
    RadiusRow(),
    FloatParameter(kLightWidthId, "width", 100.0, "host units", "Width of the area that shines, to its sides")
        .Above(0)
        .Max(kMostHostUnits),
    FloatParameter(kLightHeightId, "height", 100.0, "host units", "Its height").Above(0).Max(kMostHostUnits),
    IntParameter(kLightShadowRaysId, "shadow_rays", 4, "", "Rays to the area for each sample of a surface")
        .Between(1, 1024),
    VectorParameter(kLightTargetId, "target", {0, 0, 0}, "host units", "Point in host space that the area faces")
        .Between(-kMostHostUnits, kMostHostUnits),
};

constexpr Parameter kDistantRows[] = {
    ColourRow(),
    IntensityRow(),
    OnRow(),
    ShadowRow(),
    FloatParameter(kLightSizeId, "size", 0.0, "degrees", "Width of the disc that shines; the sun has 0.53")
        .Between(0, 170),
    ShadowRaysRow(),
    VectorParameter(kLightDirectionId, "direction", {-1, -2, -1}, "", "Where the light goes, in the object's space"),
};

constexpr std::uint32_t kKinds = kLinkLight | kLinkHostObject;

// 3t^2 - 2t^3 between the edges.
double SmoothStep(double low, double high, double x) {
  if (x >= high) return 1;
  if (x <= low) return 0;
  const double t = (x - low) / (high - low);
  return t * t * (3 - 2 * t);
}

double FalloffAt(const Light& light, double distance) {
  switch (light.falloff) {
    case LightFalloff::Linear:
      return std::max(0.0, 1 - distance / light.radius);
    case LightFalloff::InverseSquare: {
      // Held constant within a hundredth of the radius: the square has no limit there.
      const double d = std::max(distance, 0.01 * light.radius);
      return (light.radius / d) * (light.radius / d);
    }
    case LightFalloff::None:
      break;
  }
  return 1;
}

}  // namespace

const TypeInfo kPointLightType = {.id = kPointLightId,
                                  .resource = "light_point",
                                  .alias = "light",
                                  .className = "PointLight",
                                  .label = "Point Light",
                                  .text = "Shines from its position in all directions.",
                                  .role = TypeRole::Light,
                                  .kinds = kKinds,
                                  .parameters = kPointRows,
                                  .common = TransformParameters()};
const TypeInfo kSpotLightType = {.id = kSpotLightId,
                                 .resource = "light_spot",
                                 .className = "SpotLight",
                                 .label = "Spot Light",
                                 .text = "Shines from its position in a cone towards its target.",
                                 .role = TypeRole::Light,
                                 .kinds = kKinds,
                                 .parameters = kSpotRows,
                                 .common = TransformParameters()};
const TypeInfo kDistantLightType = {.id = kDistantLightId,
                                    .resource = "light_distant",
                                    .className = "DistantLight",
                                    .label = "Distant Light",
                                    .text = "Parallel light as from the sun. Its position has no effect.",
                                    .role = TypeRole::Light,
                                    .kinds = kKinds,
                                    .parameters = kDistantRows,
                                    .common = TransformParameters()};

const TypeInfo kAreaLightType = {.id = kAreaLightId,
                                 .resource = "light_area",
                                 .className = "AreaLight",
                                 .label = "Area Light",
                                 .text = "A rectangle that shines to its front, towards its target: soft light.",
                                 .role = TypeRole::Light,
                                 .kinds = kKinds,
                                 .parameters = kAreaRows,
                                 .common = TransformParameters()};

Illumination Light::IlluminateFrom(const Vec3D& x, const Vec2D& square) const {
  if (kind == LightKind::Area) {
    Light point = *this;
    point.position += across * (2 * square.x - 1) + along * (2 * square.y - 1);
    return point.Illuminate(x);
  }
  Illumination illumination = Illuminate(x);
  AimAtDisc(x, square, illumination);
  return illumination;
}

Light Light::AtTime(double time) const {
  Light light = *this;
  light.position += move * (time - 0.5);
  if (turn == Vec3D()) return light;
  const Vec3D turned = Normalized(direction + turn * (time - 0.5));
  if (turned != Vec3D()) light.direction = turned;
  return light;
}

Illumination Light::Illuminate(const Vec3D& x) const {
  if (kind == LightKind::Distant) return {colour, -direction, kDistantDistance};
  const Vec3D toLight = position - x;
  Illumination result;
  result.distance = Length(toLight);
  result.toLight = Normalized(toLight);
  double strength = FalloffAt(*this, result.distance);
  if (kind == LightKind::Spot) strength *= SmoothStep(cosOuter, cosInner, -Dot(result.toLight, direction));
  // A flat area: as much less light as it looks smaller from the side.
  if (kind == LightKind::Area) strength *= std::max(0.0, -Dot(result.toLight, direction));
  result.colour = colour * strength;
  return result;
}

void Light::AimAtDisc(const Vec3D& x, const Vec2D& square, Illumination& illumination) const {
  if (size <= 0) return;
  const Vec3D towards = PositionFrom(x) - x, axis = Normalized(towards);
  const Vec3D side = Normalized(Cross(axis, std::abs(axis.x) < 0.5 ? Vec3D{1, 0, 0} : Vec3D{0, 0, 1}));
  const double out = 0.5 * size * std::sqrt(square.x), angle = 2 * std::numbers::pi * square.y;
  const Vec3D offset = (side * std::cos(angle) + Cross(axis, side) * std::sin(angle)) * out;
  const Vec3D aim = towards + (kind == LightKind::Distant ? offset * kDistantDistance : offset);
  illumination.distance = Length(aim);
  illumination.toLight = Normalized(aim);
}

Result<Light> ReadLight(const BaseObject& object, RowMistake* mistake) {
  const auto fail = [&](int row, const char* what) {
    if (mistake) *mistake = {object.creationNumber(), row, what};
    return Error{ErrorKind::Scene, Described(object, row, what)};
  };
  Light light;
  light.kind = object.typeId() == kSpotLightId      ? LightKind::Spot
               : object.typeId() == kDistantLightId ? LightKind::Distant
               : object.typeId() == kAreaLightId    ? LightKind::Area
                                                    : LightKind::Point;
  light.object = object.creationNumber();
  light.on = object.GetBool(kLightOnId);
  light.castsShadow = object.GetBool(kLightShadowId);
  light.colour = object.GetVector(kLightColourId) * object.GetDouble(kLightIntensityId);
  if (light.kind != LightKind::Area) light.size = object.GetDouble(kLightSizeId);
  if (light.kind == LightKind::Distant) light.size = 2 * std::tan(light.size * (std::numbers::pi / 360));
  light.shadowRays = static_cast<int>(object.GetInt(kLightShadowRaysId));
  const LMatrix matrix = object.GlobalMatrix();
  light.position = matrix.off;
  if (!IsFinite(light.colour)) return fail(kLightColourId, "times intensity is no number");
  if (!(Length(light.position) <= kFarthest)) return fail(kPositionId, "leads to a place beyond all pictures");
  if (light.kind == LightKind::Distant) {
    light.direction = Normalized(matrix.Rotate(object.GetVector(kLightDirectionId)));
    if (light.direction == Vec3D() || !IsFinite(light.direction)) return fail(kLightDirectionId, "must not be zero");
    return light;
  }
  light.falloff = static_cast<LightFalloff>(object.GetInt(kLightFalloffId));
  light.radius = object.GetDouble(kLightRadiusId);
  if (!(light.radius > 0)) return fail(kLightRadiusId, "must be above 0");
  if (light.kind == LightKind::Spot || light.kind == LightKind::Area) {
    light.direction = Normalized(object.GetVector(kLightTargetId) - light.position);
    if (light.direction == Vec3D() || !IsFinite(light.direction))
      return fail(kLightTargetId, "must not be its position");
  }
  if (light.kind == LightKind::Area) {
    Vec3D side = Normalized(Cross(light.direction, matrix.v2));
    if (side == Vec3D()) side = Normalized(Cross(light.direction, matrix.v3));
    if (!IsFinite(side)) return fail(kScaleId, "leads to a size that is no number");
    light.across = side * (0.5 * object.GetDouble(kLightWidthId));
    light.along = Cross(side, light.direction) * (0.5 * object.GetDouble(kLightHeightId));
  }
  if (light.kind == LightKind::Spot) {
    const double inner = object.GetDouble(kLightInnerAngleId), outer = object.GetDouble(kLightOuterAngleId);
    if (!(inner <= outer)) return fail(kLightInnerAngleId, "must not be above outer_angle");
    light.cosInner = std::cos(inner * (std::numbers::pi / 360));
    light.cosOuter = std::cos(outer * (std::numbers::pi / 360));
  }
  return light;
}

}  // namespace orlix
