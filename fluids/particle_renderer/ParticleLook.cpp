#include "fluids/particle_renderer/ParticleLook.h"

#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

namespace {

constexpr Choice kShapes[] = {
    {ParticleShape::Spheres, "spheres", "Balls of the particles' radius, which lights shine on"},
    {ParticleShape::Dots, "dots", "Discs of one size, with their colour as a light of their own"},
};
constexpr Choice kSources[] = {
    {ParticleLook::kPlain, "plain", "The one colour"},
    {PP::Velocity, "speed", "How fast they are, m/s"},
    {PP::Age, "age", "How long they have to live, frames"},
    {PP::Temperature, "temperature", "Temperature, K"},
    {PP::Color, "colour", "The colour that they carry"},
    {PP::Density, "density", "Density"},
    {PP::Radius, "radius", "Radius, m"},
    {PP::Mass, "mass", "Mass"},
    {PP::Fire, "fire", "Fire"},
    {PP::Fuel, "fuel", "Fuel"},
    {PP::Vorticity, "vorticity", "How they swirl the gas"},
    {PP::Normal, "normal", "Normal of the surface"},
};
constexpr Choice kClasses[] = {
    {ParticleLook::kAllClasses, "all", "All particles"},
    {DiffuseClass::Foam, "foam", "Of diffuse particles those that ride on a liquid, and all that neither fly nor sink"},
    {DiffuseClass::Spray, "spray", "Of diffuse particles those that fly"},
    {DiffuseClass::Bubble, "bubbles", "Of diffuse particles those that are dragged along below"},
};
constexpr Choice kVectors[] = {
    {VectorColours::Length, "length", "Its length, by the gradient"},
    {VectorColours::Direction, "direction", "x, y and z as red, green and blue, grey for none"},
};
constexpr GradientKnot kSpeed[] = {
    {0, {0.02, 0.05, 0.25}}, {0.35, {0.03, 0.45, 0.55}}, {0.7, {0.75, 0.75, 0.15}}, {1, {1, 0.35, 0.05}}};
constexpr GradientKnot kWater[] = {
    {0, {0.005, 0.045, 0.19}}, {0.3, {0.015, 0.17, 0.42}}, {0.6, {0.18, 0.5, 0.75}}, {1, {0.95, 0.98, 1}}};

}  // namespace

const TypeInfo& ParticleLook::Type() {
  static constexpr Parameter kParameters[] = {
      GroupListParameter(kGroupsId, "groups",
                         "Particle groups, each with the kind that is meant; an empty list is all that no other "
                         "material names"),
      ChoiceParameter(kClassId, "class", ParticleLook::kAllClasses, kClasses,
                      "Which of the particles are meant; a material of a class goes before one of all"),
      BoolParameter(kVisibleId, "visible", true, "Off: pictures don't show these particles"),
      ChoiceParameter(kShapeId, "shape", ParticleShape::Spheres, kShapes, "What a particle is drawn as"),
      FloatParameter(kRadiusFactorId, "radius_factor", 1, "", "Factor of the radius")
          .Above(0)
          .ShownWhen(kShapeId, Relation::Is, ParticleShape::Spheres),
      FloatParameter(kDefaultRadiusId, "default_radius", 0.35, "cells", "Radius of particles that have none")
          .Above(0)
          .ShownWhen(kShapeId, Relation::Is, ParticleShape::Spheres),
      FloatParameter(kLeastSizeId, "least_size", 1, "pixels", "No sphere is drawn smaller across")
          .Between(0, 1000)
          .ShownWhen(kShapeId, Relation::Is, ParticleShape::Spheres),
      FloatParameter(kDotSizeId, "dot_size", 2, "pixels", "How large a dot is across")
          .Between(0, 1000)
          .ShownWhen(kShapeId, Relation::Is, ParticleShape::Dots),
      ChoiceParameter(kColourById, "colour_by", std::int32_t{PP::Velocity}, kSources,
                      "What gives the colour. Particles that lack it have the plain one"),
      LinkParameter(kPropertyId, "property", kLinkProperty,
                    "A property of the particles that gives the colour instead, one of your own for example"),
      ChoiceParameter(kVectorColoursId, "vector_colours", VectorColours::Length, kVectors,
                      "How a vector becomes a colour"),
      GradientParameter(kColoursId, "colours", kSpeed, "Colours from low to high"),
      FloatParameter(kLowId, "low", 0, "", "Value of the gradient's beginning"),
      FloatParameter(kHighId, "high", 0, "",
                     "Value of its end; as low: the lowest and highest that the frame's particles have"),
      VectorParameter(kColourId, "colour", {0.6, 0.6, 0.6}, "", "The plain colour, linear Rec. 709").Min(0),
      FloatParameter(kBrightnessId, "brightness", 1, "", "Factor of all colours; above 1 dots glow").Min(0),
      FloatParameter(kOpacityId, "opacity", 1, "",
                     "Share of a pixel's rays that a particle stops. Below 1 a picture wants several samples")
          .Between(0, 1),
      FloatParameter(kFadeOutId, "fade_out", 0, "frames", "The opacity falls to 0 over the last frames of a life")
          .Min(0),
      BoolParameter(kLegendId, "legend", true, "PNG pictures have a bar with what the colours mean"),
  };
  static const TypeInfo kType = {
      .id = kParticleMaterialId,
      .resource = "particles",
      .className = "ParticleMaterial",
      .label = "Particles",
      .text =
          "How particles look in pictures. Without one, water goes from deep blue to white by its speed, passive "
          "and diffuse particles are coloured by theirs, and vorticity isn't shown.",
      .role = TypeRole::Material,
      .kinds = kLinkLook,
      .parameters = kParameters,
  };
  return kType;
}

ParticleLook ParticleLook::Read(const BaseObject& m) {
  ParticleLook look{.colourBy = static_cast<std::int32_t>(m.GetInt(kColourById))};
  look.visible = m.GetBool(kVisibleId);
  look.shape = m.GetChoice<ParticleShape>(kShapeId);
  look.radiusFactor = m.GetDouble(kRadiusFactorId);
  look.defaultRadius = m.GetDouble(kDefaultRadiusId);
  look.leastSize = m.GetDouble(kLeastSizeId);
  look.dotSize = m.GetDouble(kDotSizeId);
  look.property = m.GetLink(kPropertyId);
  look.vectorColours = m.GetChoice<VectorColours>(kVectorColoursId);
  if (const Gradient* colours = m.GetGradient(kColoursId)) look.colours = *colours;
  look.low = m.GetDouble(kLowId), look.high = m.GetDouble(kHighId);
  look.colour = m.GetVector(kColourId);
  look.brightness = m.GetDouble(kBrightnessId);
  look.opacity = m.GetDouble(kOpacityId);
  look.fadeOut = m.GetDouble(kFadeOutId);
  look.legend = m.GetBool(kLegendId);
  return look;
}

ParticleLook ParticleLook::OfKind(std::int32_t kind) {
  ParticleLook look{.colourBy = PP::Velocity};
  look.visible = kind != PK_Vorticity;
  look.colours = kind == PK_Liquid ? Gradient(kWater) : Gradient(kSpeed);
  look.byFall = kind == PK_Liquid;
  return look;
}

}  // namespace orlix
