#pragma once
// What a polygon surface looks like: a diffuse colour, a glossy layer, a glow; or clear, as water and glass are.

#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"
#include "host/render/ShaderSlot.h"

namespace orlix {

inline constexpr int kSurfaceMaterialId = 920020;

extern const TypeInfo kSurfaceMaterialType;

inline constexpr int kMaterialColourId = 1000;
inline constexpr int kMaterialSpecularId = 1001;
inline constexpr int kMaterialRoughnessId = 1002;
inline constexpr int kMaterialEmissionId = 1003;
inline constexpr int kMaterialEmissionStrengthId = 1004;
inline constexpr int kMaterialSmoothAngleId = 1005;
inline constexpr int kMaterialTransmissionId = 1006;
inline constexpr int kMaterialRefractionId = 1007;
inline constexpr int kMaterialTintId = 1008;
inline constexpr int kMaterialTintDepthId = 1009;
inline constexpr int kMaterialColourShaderId = 1010;
inline constexpr int kMaterialEmissionShaderId = 1011;
inline constexpr int kMaterialSpecularShaderId = 1012;
inline constexpr int kMaterialRoughnessShaderId = 1013;

struct SurfaceMaterial {
  Vec3D colour{0.5, 0.5, 0.5};  // share of light that is scattered evenly
  double specular = 0.04;       // share that the glossy layer reflects at right angles
  double roughness = 0.4;       // 0 is a mirror; limited to 0.03 from below
  Vec3D emission{};             // times strength
  double smoothAngle = 40;      // degrees; edges between faces at a smaller angle look smooth
  double transmission = 0;      // share of the light that isn't reflected and goes through
  double refraction = 1.33;     // index; what is around the shape has 1
  Vec3D absorption{};           // 1 / host unit, within the shape (Beer's law)

  ShaderSlot colourShader{}, emissionShader{}, specularShader{}, roughnessShader{};

  bool HasShaders() const { return colourShader || emissionShader || specularShader || roughnessShader; }
  // With what the shaders give at a place; colours stay within 0 to 1.
  SurfaceMaterial At(const SurfacePlace& place) const;
  bool IsClear() const { return transmission > 0; }
  // The share of light that is left after a way through the shape.
  Vec3D Absorbed(double distance) const;
};

// What a flat clear surface does to a ray of unit direction. n: unit normal on the side the ray comes from; eta: index
// there over the index beyond. The reflected share is Fresnel's, for light without polarisation.
struct ClearSplit {
  double reflected = 1;  // 1: all of it, there is no way through
  Vec3D reflection, refraction;
};
ClearSplit SplitAtSurface(const Vec3D& direction, const Vec3D& n, double eta);

Result<SurfaceMaterial> ReadSurfaceMaterial(const BaseObject& object);

// pi times the reflectance of the material from one direction to another, times the cosine of the light's angle: what
// light of colour 1 shows. n, toEye and toLight are unit vectors; n lies on the eye's side. 0 for light from behind.
Vec3D ReflectedLight(const SurfaceMaterial& material, const Vec3D& n, const Vec3D& toEye, const Vec3D& toLight);

}  // namespace orlix
