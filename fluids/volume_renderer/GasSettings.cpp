#include "fluids/volume_renderer/GasSettings.h"

#include <algorithm>
#include <vector>

#include "fluids/grids/Interpolation.h"
#include "fluids/volume_renderer/GasPresets.h"
#include "fluids/volume_renderer/PhaseFunction.h"
#include "host/noise/NoiseTypes.h"

namespace orlix {

namespace {

constexpr Choice kInterpolations[] = {
    {Interpolation::Trilinear, "linear", "Trilinear"},
    {Interpolation::Cosine, "cosine", "Eased trilinear"},
    {Interpolation::Cubic, "cubic", "Cubic"},
    {Interpolation::MonotoneCubic, "monotone", "Monotone cubic"},
    {Interpolation::QuadraticBSpline, "bspline", "Quadratic B-spline, blurs"},
};
constexpr Choice kPhases[] = {
    {PhaseKind::Isotropic, "isotropic", "The same in all directions"},
    {PhaseKind::HenyeyGreenstein, "henyey_greenstein", "One lobe, ahead for g above 0"},
    {PhaseKind::Rayleigh, "rayleigh", "Ahead and behind; g is a factor"},
    {PhaseKind::Mie, "mie", "Cornette-Shanks"},
    {PhaseKind::MieHazy, "mie_hazy", "Hazy"},
    {PhaseKind::MieMurky, "mie_murky", "Murky, a sharp lobe ahead"},
    {PhaseKind::Schlick, "schlick", "As Henyey-Greenstein, cheaper"},
    {PhaseKind::DoubleHenyeyGreenstein, "double_henyey_greenstein", "Two lobes"},
    {PhaseKind::HenyeyGreensteinCubed, "henyey_greenstein_cubed", "With a cubed cosine"},
};
constexpr Choice kSpaces[] = {{NoiseSpace::Host, "host", "Host units"},
                              {NoiseSpace::Simulation, "simulation", "Metres"}};
constexpr Choice kFlames[] = {{FlameSource::Temperature, "temperature", "Where it is hot"},
                              {FlameSource::Third, "third", "Where the third channel is"}};
constexpr Choice kFireColours[] = {{FireColour::BlackBody, "black_body", "By temperature"},
                                   {FireColour::Gradient, "gradient", "By the gradient"}};
constexpr Choice kSystems[] = {
    {ColourSystemName::Ntsc, "ntsc", "NTSC"},    {ColourSystemName::Ebu, "ebu", "EBU (PAL/SECAM)"},
    {ColourSystemName::Smpte, "smpte", "SMPTE"}, {ColourSystemName::Hdtv, "hdtv", "HDTV"},
    {ColourSystemName::Cie, "cie", "CIE"},       {ColourSystemName::Rec709, "rec709", "Rec. 709"}};
constexpr auto kNoises = NoiseTypeChoices<Choice>();
constexpr GradientKnot kWhite[] = {{0, {1, 1, 1}}, {1, {1, 1, 1}}};
constexpr GradientKnot kRamp[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};
constexpr GradientKnot kFire[] = {{0, {0, 0, 0}}, {0.25, {0.35, 0.02, 0}}, {0.6, {1, 0.35, 0.03}}, {1, {1, 0.9, 0.55}}};

constexpr double kLeastStep = 0.01;  // cells: a ray through a thousand of them ends within 100,000 steps

StepSettings ReadSteps(const BaseObject& m, int jitter, int fine, int coarse) {
  StepSettings steps;
  steps.jitter = m.GetDouble(jitter);
  steps.fine = std::max(m.GetDouble(fine), kLeastStep);
  steps.coarse = std::max(steps.fine, m.GetDouble(coarse));
  return steps;
}

BlurSettings ReadBlur(const BaseObject& m, int iterations, int sigma) {
  return {static_cast<std::int32_t>(m.GetInt(iterations)), m.GetDouble(sigma)};
}

}  // namespace

const TypeInfo& GasSettings::Type() {
  static const std::vector<Choice> kPresets = GasPresetChoices();
  static const Parameter kParameters[] = {
      ChoiceParameter(kPresetId, "preset", 0, kPresets, "A look to start from; what else is set changes it"),
      LinkParameter(kDensityId, "density", kLinkChannel, "Channel of the smoke"),
      LinkParameter(kTemperatureId, "temperature", kLinkChannel, "Channel of the temperature"),
      LinkParameter(kThirdId, "third", kLinkChannel, "A further channel, for flames"),
      LinkParameter(kColourId, "colour", kLinkChannel, "Vector channel of the smoke's colour"),
      LinkParameter(kVelocityId, "velocity", kLinkChannel | kLinkSolver, "Velocity along which samples are shifted"),
      LinkParameter(kFireVelocityId, "fire_velocity", kLinkChannel | kLinkSolver, "Velocity of the fire's shift"),

      FloatParameter(kUnitLengthId, "unit_length", 1.0, "host units",
                     "Length that absorption, scattering, shadows and glow are given for; 0: a tenth of the container")
          .Min(0),
      FloatParameter(kUnitDensityId, "unit_density", 1.0, "", "Density that they are given for").Above(0),
      LinkParameter(kColourShaderId, "colour_shader", kLinkShader, "A shader that multiplies the smoke's colour"),
      LinkParameter(kDensityShaderId, "density_shader", kLinkShader, "A shader that multiplies the density"),

      FloatParameter(kCopyScaleId, "copy_scale", 1.0, "", "Resolution of the render's copies against the channels")
          .Between(0.01, 8),
      BoolParameter(kFullPreviewId, "full_preview", false, "Quick looks keep the channels' own resolution"),
      ChoiceParameter(kCopyInterpolationId, "copy_interpolation", Interpolation::Trilinear, kInterpolations,
                      "Interpolation of copies of another resolution"),
      FloatParameter(kJitterId, "jitter", 1.0, "steps", "Random start of a ray, against banding").Between(0, 1),
      FloatParameter(kFineStepId, "fine_step", 2.0, "cells", "Step inside the gas").Min(kLeastStep),
      FloatParameter(kCoarseStepId, "coarse_step", 5.0, "cells", "Step in empty space; at least the fine one")
          .Min(kLeastStep),
      IntParameter(2156, "quality", 0, "", "Kept; no step reads it").Hidden().Unread(),
      BoolParameter(kStopWhenOpaqueId, "stop_when_opaque", true, "End a ray where nothing shines through any more"),
      ListParameter(kExcludedLightsId, "excluded_lights", kLinkLight, "Lights that don't light the gas"),
      BoolParameter(kTrapezoidId, "trapezoid", true, "Average each step with the one before"),

      FloatParameter(kFallbackDensityId, "fallback_density", 0.02, "", "Density of flames where there is no smoke")
          .Min(0),
      FloatParameter(kSmokeShiftId, "smoke_shift", 0.05, "s", "Shift of smoke samples along the velocity"),
      BoolParameter(2226, "use_gradient", true, "Kept; no step reads it").Hidden().Unread(),
      GradientParameter(kSmokeGradientId, "smoke_gradient", kWhite, "Colour of the smoke by density"),
      BoolParameter(kRawDensityId, "raw_density", true, "Take the density as it is; noise is worked into the copy"),
      FloatParameter(kDensityMultiplierId, "density_multiplier", 1.0, "", "Factor of the density").Min(0),
      GradientParameter(kDensityCurveId, "density_curve", kRamp, "Remap of the density, when it isn't taken raw"),
      IntParameter(kDensityBlurId, "density_blur", 0, "", "Blur of the density: rounds").Between(0, 100),
      FloatParameter(kDensityBlurSigmaId, "density_blur_sigma", 0.7, "cells", "Blur of the density: width")
          .Between(0, 50),
      ListParameter(kDensityFiltersId, "density_filters", kLinkConstraint, "Constraints that scale the density"),

      BoolParameter(kNoiseId, "noise", false, "Noise that multiplies the density"),
      ChoiceParameter(kNoiseSpaceId, "noise_space", NoiseSpace::Host, kSpaces, "Where the noise stands"),
      GradientParameter(kNoiseCurveId, "noise_curve", {}, "Remap of the noise"),
      IntParameter(kNoiseSeedId, "noise_seed", 0, "", "Seed of the noise"),
      ChoiceParameter(kNoiseTypeId, "noise_type", NoiseType::Gradient, kNoises, "Kind of noise"),
      FloatParameter(kNoiseSizeId, "noise_size", 1.0, "", "Size of the noise's features").Above(0),
      VectorParameter(kNoiseScaleId, "noise_scale", {1, 1, 1}, "", "Size by axis").Above(0),
      FloatParameter(kNoiseOctavesId, "noise_octaves", 3.0, "", "Octaves").Between(1, 50),
      FloatParameter(kNoiseSpeedId, "noise_speed", 0.0, "1/s", "How fast the noise changes"),
      IntParameter(kNoiseTimeRepeatId, "noise_time_repeat", 0, "", "Time after which the noise repeats; 0 never")
          .Min(0),
      FloatParameter(kNoiseDetailId, "noise_detail", 1.0, "", "Weight of fine octaves").Between(0, 1),
      FloatParameter(kNoiseRadiusId, "noise_radius", 1.0, "", "Radius of a sample: wide ones lose detail").Min(0),
      BoolParameter(kNoiseAbsoluteId, "noise_absolute", false, "Fold the noise about its middle"),
      FloatParameter(kNoiseLowId, "noise_low", 0.0, "", "Value that becomes 0"),
      FloatParameter(kNoiseHighId, "noise_high", 1.0, "", "Value that becomes 1"),
      FloatParameter(kNoiseBrightnessId, "noise_brightness", 0.0, "", "Added to the noise"),
      FloatParameter(kNoiseContrastId, "noise_contrast", 1.0, "", "Contrast of the noise about its middle"),

      VectorParameter(kAmbientId, "ambient", {0, 0, 0}, "", "Light from everywhere").Min(0),
      VectorParameter(kAbsorptionId, "absorption", {0.1, 0.1, 0.1}, "1/host unit",
                      "Light that a density of 1 takes away")
          .Min(0),
      VectorParameter(kScatteringId, "scattering", {0.6, 0.6, 0.6}, "1/host unit",
                      "Light that a density of 1 turns to the eye")
          .Min(0),
      ChoiceParameter(kPhaseId, "phase", PhaseKind::HenyeyGreenstein, kPhases, "In which directions light is turned"),
      FloatParameter(kPhaseGId, "phase_g", 0.6, "", "Ahead (1) or behind (-1)")
          .Between(-1, 1)
          .ShownWhen(kPhaseId, Relation::IsNot, 0),
      FloatParameter(kPhaseScaleId, "phase_scale", 1.0, "", "Factor of the phase function").Min(0),
      FloatParameter(kPhaseSecondId, "phase_second", 0.0, "", "g of the second lobe")
          .Between(-1, 1)
          .ShownWhen(kPhaseId, Relation::Is, 7),
      ListParameter(kAbsorptionFiltersId, "absorption_filters", kLinkConstraint,
                    "Constraints that scale the absorption"),
      ListParameter(kScatteringFiltersId, "scattering_filters", kLinkConstraint,
                    "Constraints that scale the scattering"),
      ListParameter(kPhaseFiltersId, "phase_filters", kLinkConstraint, "Constraints that scale g"),
      ListParameter(kPhaseScaleFiltersId, "phase_scale_filters", kLinkConstraint,
                    "Constraints that scale the phase function"),

      BoolParameter(kScatterId, "multiple_scattering", false, "Light that scatters many times inside the gas"),
      BoolParameter(kScatterHomogeneousId, "scatter_homogeneous", false,
                    "Take the gas for one of its mean density throughout: faster, without shape"),
      FloatParameter(kScatterMapScaleId, "scatter_map_scale", 1.0, "", "Resolution of its maps against the grid's")
          .Between(0.02, 2),
      FloatParameter(kScatterLengthScaleId, "scatter_length_scale", 1.0, "",
                     "Factor of the ways of light: long ways spread wide and lose light; small for large gases")
          .Between(0, 1e6),
      FloatParameter(2404, "scatter_jitter", 1.0, "", "Kept; no step reads it").Hidden().Unread(),
      FloatParameter(kScatterAbsorptionId, "scatter_absorption", 0.1, "1/host unit",
                     "Light that a density of 1 takes away on the way")
          .Min(0)
          .ShownWhen(kScatterUseAbsorptionId, Relation::Is, 0),
      FloatParameter(kScatterScatteringId, "scatter_scattering", 0.6, "1/host unit",
                     "Light that a density of 1 turns on the way; 0 gives no light")
          .Min(0),
      FloatParameter(kScatterSpreadId, "scatter_spread", 2.0943951023931953, "radians",
                     "How far light turns: wide angles spread it to all sides")
          .Between(1e-4, 100)
          .ShownWhen(kScatterUsePhaseId, Relation::Is, 0),
      FloatParameter(kScatterLeastDepthId, "scatter_least_depth", 0.01, "",
                     "Optical depth up to which the edge of the gas adds nothing")
          .Min(0),
      FloatParameter(kScatterStepId, "scatter_step", 2.0, "cells", "Its own step")
          .Min(kLeastStep)
          .ShownWhen(kScatterUseStepId, Relation::Is, 0),
      FloatParameter(kScatterWidthId, "scatter_width", 0.6, "cells", "Blur of the sharpest of its maps").Between(0, 10),
      FloatParameter(kScatterDensityId, "scatter_density", 1.0, "", "Factor of the density").Min(0),
      BoolParameter(kScatterUseAbsorptionId, "scatter_use_absorption", true, "Take the material's absorption"),
      BoolParameter(kScatterUseStepId, "scatter_use_step", true, "Take the material's fine step"),
      BoolParameter(kScatterUsePhaseId, "scatter_use_phase", true, "Take scatter_phase_g for the spread"),
      FloatParameter(kScatterPhaseGId, "scatter_phase_g", 0.01, "", "Ahead (1) or behind (-1)").Between(-1, 1),
      FloatParameter(kScatterPhaseScaleId, "scatter_phase_scale", 0.01, "", "Strength of the scattered light").Min(0),
      ListParameter(kScatterFiltersId, "scatter_filters", kLinkConstraint, "Constraints that scale its scattering"),
      ListParameter(kScatterDensityFiltersId, "scatter_density_filters", kLinkConstraint,
                    "Constraints that scale its density"),
      ListParameter(kScatterPhaseFiltersId, "scatter_phase_filters", kLinkConstraint, "Constraints that scale its g"),
      ListParameter(kScatterPhaseScaleFiltersId, "scatter_phase_scale_filters", kLinkConstraint,
                    "Constraints that scale its strength"),

      FloatParameter(kShadowJitterId, "shadow_jitter", 1.0, "steps", "Random start of rays to lights").Between(0, 1),
      FloatParameter(kShadowFineStepId, "shadow_fine_step", 2.0, "cells", "Step inside the gas, to lights")
          .Min(kLeastStep),
      FloatParameter(kShadowCoarseStepId, "shadow_coarse_step", 5.0, "cells", "Step in empty space, to lights")
          .Min(kLeastStep),
      VectorParameter(kShadowDensityId, "shadow_density", {0.1, 0.1, 0.1}, "1/host unit",
                      "How dark the gas shades itself")
          .Min(0),
      VectorParameter(kShadowColourId, "shadow_colour", {1, 1, 1}, "", "Colour that shadows take away").Min(0),
      FloatParameter(kLightMapScaleId, "light_map_scale", 0.5, "", "Resolution of the light maps against the grid's")
          .Between(0.02, 2),
      BoolParameter(kGreyAbsorptionId, "grey_absorption", false, "Coloured smoke absorbs like its brightest component"),
      IntParameter(kLightMapBlurId, "light_map_blur", 0, "", "Blur of the light maps: rounds").Between(0, 100),
      FloatParameter(kLightMapBlurSigmaId, "light_map_blur_sigma", 0.7, "cells", "Blur of the light maps: width")
          .Between(0, 50)
          .ShownWhen(kLightMapBlurId, Relation::Above, 0),
      FloatParameter(2459, "light_map_factor", 1.0, "", "Kept; no step reads it").Hidden().Unread(),
      BoolParameter(kShadowTrapezoidId, "shadow_trapezoid", false, "Average each step to a light with the one before"),
      ListParameter(kShadowFiltersId, "shadow_filters", kLinkConstraint, "Constraints that scale the shadow density"),
      VectorParameter(2462, "swatch", {0, 0, 0}, "", "Colour swatch of an interface").Hidden().Unread(),
      IntParameter(kDiffuseMapsId, "diffuse_maps", 1, "", "Light maps even out the grain of their jitter")
          .Between(0, 1),
      FloatParameter(kSkyLightId, "sky_light", 0.0, "",
                     "Light of the sky in the gas, shaded by the gas; 1 is all of it")
          .Min(0),
      IntParameter(kSkyRaysId, "sky_rays", 24, "", "Directions that it comes from")
          .Between(1, 1024)
          .ShownWhen(kSkyLightId, Relation::Above, 0),

      BoolParameter(kSurfaceShadowsId, "surface_shadows", true, "Surfaces shade the gas"),
      BoolParameter(kCastShadowsId, "cast_shadows", false, "The gas shades surfaces"),
      FloatParameter(kCastStrengthId, "cast_strength", 0.1, "", "Strength of the gas's shadow")
          .Between(0, 1)
          .ShownWhen(kCastShadowsId, Relation::Is, 1),
      FloatParameter(kCastJitterId, "cast_jitter", 1.0, "steps", "Random start in the gas's shadow").Between(0, 1),
      FloatParameter(kCastFineStepId, "cast_fine_step", 2.0, "cells", "Step inside the gas, in its shadow")
          .Min(kLeastStep),
      FloatParameter(kCastCoarseStepId, "cast_coarse_step", 5.0, "cells", "Step in empty space, in its shadow")
          .Min(kLeastStep),
      VectorParameter(kCastColourId, "cast_colour", {1, 1, 1}, "",
                      "Colour of the gas's shadow: black is dark, white none")
          .Min(0),
      FloatParameter(kSurfaceShadowStrengthId, "surface_shadow_strength", 1.0, "", "Strength of shadows on the gas")
          .Min(0)
          .ShownWhen(kSurfaceShadowsId, Relation::Is, 1),
      VectorParameter(kSurfaceShadowColourId, "surface_shadow_colour", {1, 1, 1}, "",
                      "Weight of the shadow's components")
          .Min(0)
          .ShownWhen(kSurfaceShadowsId, Relation::Is, 1),

      IntParameter(2550, "fire_mode", 0, "", "Kept; no step reads it").Hidden().Unread(),
      FloatParameter(kFireShiftId, "fire_shift", 0.02, "s", "Shift of fire samples along the velocity"),
      FloatParameter(kGatherBoostId, "gather_boost", 5.0, "", "Factor of the gas's light on surfaces around").Min(0),
      BoolParameter(kGlowOnSurfacesId, "glow_on_surfaces", false,
                    "Flames light surfaces by points of their power, without grain, instead of by rays that meet them"),
      IntParameter(kGlowPointsId, "glow_points", 2, "", "Points of the flames for each sample of a surface")
          .Between(1, 256)
          .ShownWhen(kGlowOnSurfacesId, Relation::Is, 1),
      ChoiceParameter(kFlameSourceId, "flame_source", FlameSource::Temperature, kFlames, "What makes a flame"),
      ChoiceParameter(kFireColourId, "fire_colour", FireColour::BlackBody, kFireColours, "Colour of flames"),
      GradientParameter(kFireGradientId, "fire_gradient", kFire, "Colour of flames by temperature"),
      ChoiceParameter(kColourSystemId, "colour_system", ColourSystemName::Cie, kSystems,
                      "Primaries of black-body colours"),
      VectorParameter(kWhiteBalanceId, "white_balance", {1, 1, 1}, "", "Factors of X, Y, Z").Min(0),
      FloatParameter(kFireIntensityId, "fire_intensity", 1.0, "",
                     "Factor of the fire's light, and of its temperature in the table")
          .Min(0),
      FloatParameter(kTemperatureScaleId, "temperature_scale", 1.0, "", "Factor of the temperature").Min(0),
      FloatParameter(kFlameThresholdId, "flame_threshold", 0.0, "K", "Temperature from which there is a flame"),
      IntParameter(kTemperatureBlurId, "temperature_blur", 0, "", "Blur of the temperature: rounds").Between(0, 100),
      FloatParameter(kTemperatureBlurSigmaId, "temperature_blur_sigma", 0.0, "cells", "Blur of the temperature: width")
          .Between(0, 50),
      ListParameter(kFireFiltersId, "fire_filters", kLinkConstraint, "Constraints that scale the temperature"),
      IntParameter(kThirdBlurId, "third_blur", 0, "", "Blur of the third channel: rounds").Between(0, 100),
      FloatParameter(kThirdBlurSigmaId, "third_blur_sigma", 0.0, "cells", "Blur of the third channel: width")
          .Between(0, 50),
      ListParameter(kThirdFiltersId, "third_filters", kLinkConstraint, "Constraints that scale the third channel"),
      FloatParameter(kFlameStrengthId, "flame_strength", 0.0, "", "Brightness of flames").Min(0),
      FloatParameter(kFireLightReachId, "fire_light_reach", 100.0, "host units", "How far flames light the smoke")
          .Above(0),
      ChoiceParameter(kFireLightColourId, "fire_light_colour", FireColour::BlackBody, kFireColours,
                      "Colour of the flames' light"),
      GradientParameter(kFireLightGradientId, "fire_light_gradient", kFire, "Colour of the flames' light"),
      FloatParameter(kFireLightScaleId, "fire_light_scale", 1.0, "", "Factor of the temperature in the flames' light")
          .Min(0),
      FloatParameter(kFlameAbsorptionId, "flame_absorption", 0.0, "1/host unit", "Light that flames take away").Min(0),
      FloatParameter(kFireLightStrengthId, "fire_light_strength", 0.0, "", "Strength of the flames' light on the smoke")
          .Min(0),
      GradientParameter(kFireMapGradientId, "fire_map_gradient", {}, "Remap of the flames' light"),
      BoolParameter(kFireLightPhaseId, "fire_light_phase", false, "The phase function turns the flames' light too"),

      FloatParameter(kPostAmountId, "post_amount", 0.0, "", "Amount of the post gradient"),
      GradientParameter(kPostGradientId, "post_gradient", kRamp, "Colour by opacity, added"),
      FloatParameter(kPostAddId, "post_add", 0.0, "", "Added light by opacity"),
      FloatParameter(kPostContrastId, "post_contrast", 0.0, "", "Contrast of the transparency, less 1"),
      FloatParameter(kPostSaturationId, "post_saturation", 1.0, "", "Saturation").Min(0),
      BoolParameter(kMarchId, "march", true, "March at all"),
      BoolParameter(kSeenByGatherId, "seen_by_gather", true, "Seen by rays that gather light around surfaces"),
      BoolParameter(kSeenByRefractionId, "seen_by_refraction", true, "Seen through surfaces"),
      BoolParameter(kSeenByCameraId, "seen_by_camera", true, "Seen by the camera"),
      BoolParameter(kSeenByReflectionId, "seen_by_reflection", true, "Seen in mirrors"),
      BoolParameter(kSeenByOcclusionId, "seen_by_occlusion", true,
                    "Kept; no ray of this renderer looks for open sky alone")
          .Hidden()
          .Unread(),
  };
  static const TypeInfo kType = {
      .id = kGasMaterialId,
      .resource = "zq_shader_gas",
      .alias = "gas",
      .className = "C4D_GasRenderer_Material",
      .label = "Gas Renderer",
      .text = "How smoke and fire look: marches rays through the channels that it links, with lights and shadows.",
      .role = TypeRole::Material,
      .kinds = kLinkLook,
      .parameters = kParameters,
      .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<GasPresets>(); },
  };
  return kType;
}

void GasSettings::ReadNoise(const BaseObject& m) {
  GasNoiseSettings& n = noise;
  n.enabled = m.GetBool(kNoiseId);
  n.hostSpace = m.GetChoice<NoiseSpace>(kNoiseSpaceId) == NoiseSpace::Host;
  n.seed = static_cast<std::int32_t>(m.GetInt(kNoiseSeedId));
  n.type = static_cast<std::int32_t>(m.GetInt(kNoiseTypeId));
  n.frequency = 1 / m.GetDouble(kNoiseSizeId);
  n.scale = Vec3D(1.0) / m.GetVector(kNoiseScaleId);
  n.octaves = static_cast<std::int32_t>(m.GetInt(kNoiseOctavesId));
  n.speed = m.GetDouble(kNoiseSpeedId);
  n.timeRepeat = static_cast<std::int32_t>(m.GetInt(kNoiseTimeRepeatId));
  n.detailAttenuation = m.GetDouble(kNoiseDetailId);
  n.sampleRadius = m.GetDouble(kNoiseRadiusId);
  n.absolute = m.GetBool(kNoiseAbsoluteId);
  n.lowClip = m.GetDouble(kNoiseLowId);
  n.highClip = m.GetDouble(kNoiseHighId);
  n.brightness = m.GetDouble(kNoiseBrightnessId);
  n.contrast = m.GetDouble(kNoiseContrastId);
}

void GasSettings::ReadScattering(const BaseObject& m) {
  scatter.enabled = m.GetBool(kScatterId);
  scatter.homogeneous = m.GetBool(kScatterHomogeneousId);
  scatter.mapScale = m.GetDouble(kScatterMapScaleId);
  scatter.lengthScale = m.GetDouble(kScatterLengthScaleId);
  scatter.absorption = m.GetDouble(kScatterAbsorptionId);
  scatter.scattering = m.GetDouble(kScatterScatteringId);
  scatter.spread = m.GetDouble(kScatterSpreadId);
  scatter.leastDepth = m.GetDouble(kScatterLeastDepthId);
  scatter.step = m.GetDouble(kScatterStepId);
  scatter.baseWidth = m.GetDouble(kScatterWidthId);
  scatter.densityScale = m.GetDouble(kScatterDensityId);
  scatter.ownAbsorption = !m.GetBool(kScatterUseAbsorptionId);
  scatter.ownStep = !m.GetBool(kScatterUseStepId);
  scatter.ownSpread = !m.GetBool(kScatterUsePhaseId);
  scatter.phaseG = m.GetDouble(kScatterPhaseGId);
  scatter.phaseScale = m.GetDouble(kScatterPhaseScaleId);
}

void GasSettings::ReadFire(const BaseObject& m) {
  flameFromThird = m.GetChoice<FlameSource>(kFlameSourceId) == FlameSource::Third;
  flameStrength = m.GetDouble(kFlameStrengthId);
  flameAbsorption = m.GetDouble(kFlameAbsorptionId);
  flameThreshold = m.GetDouble(kFlameThresholdId);
  fireGradient = m.GetChoice<FireColour>(kFireColourId) == FireColour::Gradient;
  fireLightGradient = m.GetChoice<FireColour>(kFireLightColourId) == FireColour::Gradient;
  colourSystem = static_cast<std::int32_t>(m.GetInt(kColourSystemId));
  whiteBalance = m.GetVector(kWhiteBalanceId);
  fireIntensity = m.GetDouble(kFireIntensityId);
  temperatureScale = m.GetDouble(kTemperatureScaleId);
  fireLightScale = m.GetDouble(kFireLightScaleId);
  fireLightReach = m.GetDouble(kFireLightReachId);
  fireLightStrength = m.GetDouble(kFireLightStrengthId);
  fireLightPhase = m.GetBool(kFireLightPhaseId);
  gatherBoost = m.GetDouble(kGatherBoostId);
  glowPoints = m.GetBool(kGlowOnSurfacesId) ? static_cast<std::int32_t>(m.GetInt(kGlowPointsId)) : 0;
}

void GasSettings::ReadShadows(const BaseObject& m) {
  shadowSteps = ReadSteps(m, kShadowJitterId, kShadowFineStepId, kShadowCoarseStepId);
  shadowSteps.trapezoid = m.GetBool(kShadowTrapezoidId);
  cast = ReadSteps(m, kCastJitterId, kCastFineStepId, kCastCoarseStepId);
  cast.trapezoid = shadowSteps.trapezoid;
  shadowDensity = m.GetVector(kShadowDensityId);
  shadowColour = m.GetVector(kShadowColourId);
  mapResolution = m.GetDouble(kLightMapScaleId);
  mapBlur = ReadBlur(m, kLightMapBlurId, kLightMapBlurSigmaId);
  surfaceShadows = m.GetBool(kSurfaceShadowsId);
  surfaceShadowStrength = m.GetDouble(kSurfaceShadowStrengthId);
  surfaceShadowColour = m.GetVector(kSurfaceShadowColourId);
  castsShadows = m.GetBool(kCastShadowsId);
  castStrength = m.GetDouble(kCastStrengthId);
  castColour = m.GetVector(kCastColourId);
}

void GasSettings::ApplyUnits(double length) {
  const double factor = 1 / (length * unitDensity);
  for (Vec3D* value : {&absorption, &scattering, &shadowDensity}) *value *= factor;
  flameAbsorption *= factor, flameStrength *= factor;
  // Its own absorption and scattering stand in its formulas beside ways: they stay, depths and ways are brought there.
  scatter.densityScale *= factor;
  scatter.lengthScale /= length, scatter.widthScale = length;
  if (!scatter.ownAbsorption) scatter.absorption = (absorption.x + absorption.y + absorption.z) / 3 / factor;
  fireLightReach *= length, fallbackDensity *= unitDensity;
}

GasSettings GasSettings::Read(const BaseObject& m) {
  GasSettings s;
  s.unitLength = m.GetDouble(kUnitLengthId);
  s.unitDensity = m.GetDouble(kUnitDensityId);
  s.skyLight = m.GetDouble(kSkyLightId);
  s.skyRays = static_cast<std::int32_t>(m.GetInt(kSkyRaysId));
  s.diffuseMaps = m.GetInt(kDiffuseMapsId) != 0;
  s.copyScale = m.GetDouble(kCopyScaleId);
  s.copyInterpolation = static_cast<std::int32_t>(m.GetInt(kCopyInterpolationId));
  s.densityBlur = ReadBlur(m, kDensityBlurId, kDensityBlurSigmaId);
  s.temperatureBlur = ReadBlur(m, kTemperatureBlurId, kTemperatureBlurSigmaId);
  s.thirdBlur = ReadBlur(m, kThirdBlurId, kThirdBlurSigmaId);
  s.steps = ReadSteps(m, kJitterId, kFineStepId, kCoarseStepId);
  s.steps.trapezoid = m.GetBool(kTrapezoidId);
  s.stopWhenOpaque = m.GetBool(kStopWhenOpaqueId);
  s.rawDensity = m.GetBool(kRawDensityId);
  s.densityMultiplier = m.GetDouble(kDensityMultiplierId);
  s.fallbackDensity = m.GetDouble(kFallbackDensityId);
  s.ambient = m.GetVector(kAmbientId);
  s.absorption = m.GetVector(kAbsorptionId);
  s.scattering = m.GetVector(kScatteringId);
  s.greyAbsorption = m.GetBool(kGreyAbsorptionId);
  s.phase = static_cast<std::uint32_t>(std::clamp<std::int64_t>(m.GetInt(kPhaseId), 0, 255));
  s.phaseG = m.GetDouble(kPhaseGId);
  s.phaseScale = m.GetDouble(kPhaseScaleId);
  s.phaseSecond = m.GetDouble(kPhaseSecondId);
  s.ReadNoise(m);
  s.ReadScattering(m);
  s.smokeShift = m.GetDouble(kSmokeShiftId);
  s.fireShift = m.GetDouble(kFireShiftId);
  s.ReadShadows(m);
  s.ReadFire(m);
  s.postAmount = m.GetDouble(kPostAmountId);
  s.postAdd = m.GetDouble(kPostAddId);
  s.postContrast = m.GetDouble(kPostContrastId) + 1;
  s.postSaturation = m.GetDouble(kPostSaturationId);
  s.march = m.GetBool(kMarchId);
  s.seenByGather = m.GetBool(kSeenByGatherId);
  s.seenByRefraction = m.GetBool(kSeenByRefractionId);
  s.seenByCamera = m.GetBool(kSeenByCameraId);
  s.seenByReflection = m.GetBool(kSeenByReflectionId);
  s.seenByOcclusion = m.GetBool(kSeenByOcclusionId);
  return s;
}

}  // namespace orlix
