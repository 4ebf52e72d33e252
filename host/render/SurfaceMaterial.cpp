#include "host/render/SurfaceMaterial.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

constexpr Parameter kRows[] = {
    VectorParameter(kMaterialColourId, "colour", {0.5, 0.5, 0.5}, "", "Share of light scattered, linear Rec. 709")
        .Between(0, 1),
    FloatParameter(kMaterialSpecularId, "specular", 0.04, "", "Share of light that the glossy layer reflects head-on")
        .Between(0, 1),
    FloatParameter(kMaterialRoughnessId, "roughness", 0.4, "", "0 gives sharp highlights, 1 hardly any").Between(0, 1),
    VectorParameter(kMaterialEmissionId, "emission", {0, 0, 0}, "", "Colour of the surface's own light").Min(0),
    FloatParameter(kMaterialEmissionStrengthId, "emission_strength", 1.0, "", "Factor of the emission").Min(0),
    FloatParameter(kMaterialSmoothAngleId, "smooth_angle", 40.0, "degrees", "Edges below this angle look smooth")
        .Between(0, 180),
    FloatParameter(kMaterialTransmissionId, "transmission", 0.0, "",
                   "Share of the light that goes through a closed shape: 1 for water and glass")
        .Between(0, 1),
    FloatParameter(kMaterialRefractionId, "refraction", 1.33, "", "Index of refraction: 1.33 of water, 1.5 of glass")
        .Between(1, 4)
        .ShownWhen(kMaterialTransmissionId, Relation::Above, 0),
    VectorParameter(kMaterialTintId, "tint", {1, 1, 1}, "", "Light that is left of white after a way of tint_depth")
        .Between(0, 1)
        .ShownWhen(kMaterialTransmissionId, Relation::Above, 0),
    FloatParameter(kMaterialTintDepthId, "tint_depth", 100.0, "host units", "The way after which white has the tint")
        .Between(1e-6, 1e9)
        .ShownWhen(kMaterialTransmissionId, Relation::Above, 0),
    LinkParameter(kMaterialColourShaderId, "colour_shader", kLinkShader, "A shader that multiplies the colour"),
    LinkParameter(kMaterialEmissionShaderId, "emission_shader", kLinkShader, "A shader that multiplies the emission"),
    LinkParameter(kMaterialSpecularShaderId, "specular_shader", kLinkShader, "A shader that multiplies specular"),
    LinkParameter(kMaterialRoughnessShaderId, "roughness_shader", kLinkShader,
                  "A shader that multiplies the roughness"),
};

constexpr double kDarkest = 1e-4;  // of a tint

}  // namespace

const TypeInfo kSurfaceMaterialType = {
    .id = kSurfaceMaterialId,
    .resource = "material",
    .className = "SurfaceMaterial",
    .label = "Material",
    .text = "A surface with a diffuse colour, a glossy layer and a glow, or a clear one that refracts.",
    .role = TypeRole::Material,
    .kinds = kLinkMaterial,
    .parameters = kRows};

Result<SurfaceMaterial> ReadSurfaceMaterial(const BaseObject& object) {
  SurfaceMaterial material;
  material.colour = object.GetVector(kMaterialColourId);
  material.specular = object.GetDouble(kMaterialSpecularId);
  material.roughness = object.GetDouble(kMaterialRoughnessId);
  material.emission = object.GetVector(kMaterialEmissionId) * object.GetDouble(kMaterialEmissionStrengthId);
  material.smoothAngle = object.GetDouble(kMaterialSmoothAngleId);
  material.transmission = object.GetDouble(kMaterialTransmissionId);
  material.refraction = object.GetDouble(kMaterialRefractionId);
  const Vec3D tint = object.GetVector(kMaterialTintId);
  const double depth = object.GetDouble(kMaterialTintDepthId);
  for (int c = 0; c < 3; ++c) material.absorption[c] = -std::log(std::max(tint[c], kDarkest)) / depth;
  material.colourShader = ShaderSlot::Of(object, kMaterialColourShaderId);
  material.emissionShader = ShaderSlot::Of(object, kMaterialEmissionShaderId);
  material.specularShader = ShaderSlot::Of(object, kMaterialSpecularShaderId);
  material.roughnessShader = ShaderSlot::Of(object, kMaterialRoughnessShaderId);
  if (!IsFinite(material.colour) || !IsFinite(material.emission) || !std::isfinite(material.specular) ||
      !std::isfinite(material.roughness) || !std::isfinite(material.smoothAngle) || !IsFinite(material.absorption) ||
      !(material.refraction >= 1) || !(material.transmission >= 0)) {
    return Result<SurfaceMaterial>::Fail(ErrorKind::Scene, "\"" + object.Path() + "\" has a value that is no number");
  }
  return material;
}

namespace {

// Schlick 1994.
double Fresnel(double specular, double cosine) {
  const double grazing = 1 - std::clamp(cosine, 0.0, 1.0), squared = grazing * grazing;
  return specular + (1 - specular) * squared * squared * grazing;
}

}  // namespace

SurfaceMaterial SurfaceMaterial::At(const SurfacePlace& place) const {
  SurfaceMaterial here = *this;
  const auto ask = [&](const ShaderSlot& slot) {
    const Vec3D c = slot ? slot.Colour(place) : Vec3D(1.0);
    return IsFinite(c) ? Max(c, Vec3D()) : Vec3D();
  };
  const auto share = [&](const ShaderSlot& slot, double value) {
    const Vec3D c = ask(slot);
    return std::clamp(value * (c.x + c.y + c.z) / 3, 0.0, 1.0);
  };
  here.colour = Min(colour * ask(colourShader), Vec3D(1.0));
  here.emission = emission * ask(emissionShader);
  here.specular = share(specularShader, specular);
  here.roughness = share(roughnessShader, roughness);
  return here;
}

Vec3D SurfaceMaterial::Absorbed(double distance) const {
  if (absorption == Vec3D()) return {1, 1, 1};
  return {std::exp(-absorption.x * distance), std::exp(-absorption.y * distance), std::exp(-absorption.z * distance)};
}

ClearSplit SplitAtSurface(const Vec3D& direction, const Vec3D& n, double eta) {
  ClearSplit split;
  const double cosIn = std::clamp(-Dot(direction, n), 0.0, 1.0);
  split.reflection = Normalized(direction + n * (2 * cosIn));
  const double sin2 = eta * eta * (1 - cosIn * cosIn);
  if (sin2 >= 1) return split;
  const double cosOut = std::sqrt(1 - sin2);
  const double across = (eta * cosIn - cosOut) / (eta * cosIn + cosOut);
  const double along = (cosIn - eta * cosOut) / (cosIn + eta * cosOut);
  split.reflected = 0.5 * (across * across + along * along);
  split.refraction = Normalized(direction * eta + n * (eta * cosIn - cosOut));
  return split;
}

// A layer of microfacets, with the distribution and masking of Walter et al. (2007, "GGX"), over Lambert, which gets
// what the layer lets in and out again: no more than arrives, and the same both ways.
Vec3D ReflectedLight(const SurfaceMaterial& material, const Vec3D& n, const Vec3D& toEye, const Vec3D& toLight) {
  const double cosLight = Dot(n, toLight), cosEye = Dot(n, toEye), specular = material.specular;
  if (!(cosLight > 0) || !(cosEye > 0)) return {};
  Vec3D reflected = material.colour * cosLight;
  if (!(specular > 0)) return reflected;
  reflected *= specular < 1 ? (1 - Fresnel(specular, cosLight)) * (1 - Fresnel(specular, cosEye)) / (1 - specular) : 0;
  const Vec3D half = Normalized(toEye + toLight);
  const double alpha = std::max(0.03, material.roughness) * std::max(0.03, material.roughness), a2 = alpha * alpha;
  const double cosHalf = std::clamp(Dot(n, half), 0.0, 1.0), base = cosHalf * cosHalf * (a2 - 1) + 1;
  const double distribution = a2 / (base * base);  // times pi
  const auto masking = [&](double cosine) { return 2 / (1 + std::sqrt(1 + a2 * (1 / (cosine * cosine) - 1))); };
  return reflected +
         Vec3D(Fresnel(specular, Dot(toEye, half)) * distribution * masking(cosLight) * masking(cosEye) / (4 * cosEye));
}

}  // namespace orlix
