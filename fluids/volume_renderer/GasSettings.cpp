#include "fluids/volume_renderer/GasSettings.h"

#include <algorithm>

#include "host/noise/NoiseTypes.h"

namespace orlix {

namespace {

constexpr Choice kInterpolations[] = {
    {0, "linear", "Trilinear"},
    {1, "cosine", "Eased trilinear"},
    {2, "cubic", "Cubic"},
    {3, "monotone", "Monotone cubic"},
    {4, "bspline", "Quadratic B-spline, blurs"},
};
constexpr Choice kPhases[] = {
    {0, "isotropic", "The same in all directions"},
    {1, "henyey_greenstein", "One lobe, ahead for g above 0"},
    {2, "rayleigh", "Ahead and behind; g is a factor"},
    {3, "mie", "Cornette-Shanks"},
    {4, "mie_hazy", "Hazy"},
    {5, "mie_murky", "Murky, a sharp lobe ahead"},
    {6, "schlick", "As Henyey-Greenstein, cheaper"},
    {7, "double_henyey_greenstein", "Two lobes"},
    {8, "henyey_greenstein_cubed", "With a cubed cosine"},
};
constexpr Choice kSpaces[] = {{0, "host", "Host units"}, {1, "simulation", "Metres"}};
constexpr Choice kFlames[] = {{0, "temperature", "Where it is hot"}, {1, "third", "Where the third channel is"}};
constexpr Choice kFireColours[] = {{0, "black_body", "By temperature"}, {1, "gradient", "By the gradient"}};
constexpr Choice kSystems[] = {{0, "ntsc", "NTSC"},   {1, "ebu", "EBU (PAL/SECAM)"},
                               {2, "smpte", "SMPTE"}, {3, "hdtv", "HDTV"},
                               {4, "cie", "CIE"},     {5, "rec709", "Rec. 709"}};
constexpr auto kNoises = NoiseTypeChoices<Choice>();
constexpr GradientKnot kWhite[] = {{0, {1, 1, 1}}, {1, {1, 1, 1}}};
constexpr GradientKnot kRamp[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};
constexpr GradientKnot kFire[] = {{0, {0, 0, 0}}, {0.25, {0.35, 0.02, 0}}, {0.6, {1, 0.35, 0.03}}, {1, {1, 0.9, 0.55}}};

constexpr Parameter kParameters[] = {
    LinkParameter(kGasDensityId, "density", kLinkChannel, "Channel of the smoke"),
    LinkParameter(kGasTemperatureId, "temperature", kLinkChannel, "Channel of the temperature"),
    LinkParameter(kGasThirdId, "third", kLinkChannel, "A further channel, for flames"),
    LinkParameter(kGasColourId, "colour", kLinkChannel, "Vector channel of the smoke's colour"),
    LinkParameter(kGasVelocityId, "velocity", kLinkChannel | kLinkSolver, "Velocity along which samples are shifted"),
    LinkParameter(kGasFireVelocityId, "fire_velocity", kLinkChannel | kLinkSolver, "Velocity of the fire's shift"),

    FloatParameter(2150, "copy_scale", 1.0, "", "Resolution of the render's copies against the channels")
        .Between(0.01, 8),
    BoolParameter(2151, "full_preview", false, "Quick looks keep the channels' own resolution"),
    ChoiceParameter(2152, "copy_interpolation", 0, kInterpolations, "Interpolation of copies of another resolution"),
    FloatParameter(2153, "jitter", 1.0, "steps", "Random start of a ray, against banding").Between(0, 1),
    FloatParameter(2154, "fine_step", 2.0, "cells", "Step inside the gas").Above(0),
    FloatParameter(2155, "coarse_step", 5.0, "cells", "Step in empty space; at least the fine one").Above(0),
    IntParameter(2156, "quality", 0, "", "Kept; no step reads it").Hidden(),
    BoolParameter(2157, "stop_when_opaque", true, "End a ray where nothing shines through any more"),
    ListParameter(kGasExcludedLightsId, "excluded_lights", kLinkLight, "Lights that don't light the gas"),
    BoolParameter(2159, "trapezoid", true, "Average each step with the one before"),

    FloatParameter(2201, "fallback_density", 0.02, "", "Density of flames where there is no smoke").Min(0),
    FloatParameter(2202, "smoke_shift", 0.05, "s", "Shift of smoke samples along the velocity"),
    BoolParameter(2226, "use_gradient", true, "Kept; no step reads it").Hidden(),
    GradientParameter(kGasSmokeGradientId, "smoke_gradient", kWhite, "Colour of the smoke by density"),
    BoolParameter(2250, "raw_density", true, "Take the density as it is; noise is worked into the copy"),
    FloatParameter(2251, "density_multiplier", 1.0, "", "Factor of the density").Min(0),
    GradientParameter(kGasDensityCurveId, "density_curve", kRamp, "Remap of the density, when it isn't taken raw"),
    IntParameter(2253, "density_blur", 0, "", "Blur of the density: rounds").Between(0, 100),
    FloatParameter(2254, "density_blur_sigma", 0.7, "cells", "Blur of the density: width").Between(0, 50),
    ListParameter(2255, "density_filters", kLinkConstraint, "Constraints that scale the density"),

    BoolParameter(2301, "noise", false, "Noise that multiplies the density"),
    ChoiceParameter(2302, "noise_space", 0, kSpaces, "Where the noise stands"),
    GradientParameter(kGasNoiseCurveId, "noise_curve", {}, "Remap of the noise"),
    IntParameter(2304, "noise_seed", 0, "", "Seed of the noise"),
    ChoiceParameter(2305, "noise_type", 13, kNoises, "Kind of noise"),
    FloatParameter(2306, "noise_size", 1.0, "", "Size of the noise's features").Above(0),
    VectorParameter(2307, "noise_scale", {1, 1, 1}, "", "Size by axis").Above(0),
    FloatParameter(2308, "noise_octaves", 3.0, "", "Octaves").Between(1, 50),
    FloatParameter(2309, "noise_speed", 0.0, "1/s", "How fast the noise changes"),
    IntParameter(2310, "noise_time_repeat", 0, "", "Time after which the noise repeats; 0 never").Min(0),
    FloatParameter(2311, "noise_detail", 1.0, "", "Weight of fine octaves").Between(0, 1),
    FloatParameter(2312, "noise_radius", 1.0, "", "Radius of a sample: wide ones lose detail").Min(0),
    BoolParameter(2313, "noise_absolute", false, "Fold the noise about its middle"),
    FloatParameter(2314, "noise_low", 0.0, "", "Value that becomes 0"),
    FloatParameter(2315, "noise_high", 1.0, "", "Value that becomes 1"),
    FloatParameter(2316, "noise_brightness", 0.0, "", "Added to the noise"),
    FloatParameter(2317, "noise_contrast", 1.0, "", "Contrast of the noise about its middle"),

    VectorParameter(2350, "ambient", {0, 0, 0}, "", "Light from everywhere").Min(0),
    VectorParameter(2351, "absorption", {0.1, 0.1, 0.1}, "1/host unit", "Light that a density of 1 takes away").Min(0),
    VectorParameter(2352, "scattering", {0.6, 0.6, 0.6}, "1/host unit", "Light that a density of 1 turns to the eye")
        .Min(0),
    ChoiceParameter(2353, "phase", 1, kPhases, "In which directions light is turned"),
    FloatParameter(2354, "phase_g", 0.6, "", "Ahead (1) or behind (-1)")
        .Between(-1, 1)
        .ShownWhen(2353, Relation::IsNot, 0),
    FloatParameter(2355, "phase_scale", 1.0, "", "Factor of the phase function").Min(0),
    FloatParameter(2356, "phase_second", 0.0, "", "g of the second lobe")
        .Between(-1, 1)
        .ShownWhen(2353, Relation::Is, 7),
    ListParameter(2357, "absorption_filters", kLinkConstraint, "Constraints that scale the absorption"),
    ListParameter(2358, "scattering_filters", kLinkConstraint, "Constraints that scale the scattering"),
    ListParameter(2359, "phase_filters", kLinkConstraint, "Constraints that scale g"),
    ListParameter(2360, "phase_scale_filters", kLinkConstraint, "Constraints that scale the phase function"),

    FloatParameter(2450, "shadow_jitter", 1.0, "steps", "Random start of rays to lights").Between(0, 1),
    FloatParameter(2451, "shadow_fine_step", 2.0, "cells", "Step inside the gas, to lights").Above(0),
    FloatParameter(2452, "shadow_coarse_step", 5.0, "cells", "Step in empty space, to lights").Above(0),
    VectorParameter(2453, "shadow_density", {0.1, 0.1, 0.1}, "1/host unit", "How dark the gas shades itself").Min(0),
    VectorParameter(2454, "shadow_colour", {1, 1, 1}, "", "Colour that shadows take away").Min(0),
    FloatParameter(2455, "light_map_scale", 0.5, "", "Resolution of the light maps against the grid's")
        .Between(0.02, 2),
    BoolParameter(2456, "grey_absorption", false, "Coloured smoke absorbs like its brightest component"),
    IntParameter(2457, "light_map_blur", 0, "", "Blur of the light maps: rounds").Between(0, 100),
    FloatParameter(2458, "light_map_blur_sigma", 0.7, "cells", "Blur of the light maps: width")
        .Between(0, 50)
        .ShownWhen(2457, Relation::Above, 0),
    FloatParameter(2459, "light_map_factor", 1.0, "", "Kept; no step reads it").Hidden(),
    BoolParameter(2460, "shadow_trapezoid", false, "Average each step to a light with the one before"),
    ListParameter(2461, "shadow_filters", kLinkConstraint, "Constraints that scale the shadow density"),
    VectorParameter(2462, "swatch", {0, 0, 0}, "", "Colour swatch of an interface").Hidden(),
    IntParameter(2463, "diffuse_maps", 1, "", "Kept; no step reads it").Hidden(),

    BoolParameter(2500, "surface_shadows", true, "Surfaces shade the gas"),
    BoolParameter(2501, "cast_shadows", false, "The gas shades surfaces"),
    FloatParameter(2502, "cast_strength", 0.1, "", "Strength of the gas's shadow")
        .Between(0, 1)
        .ShownWhen(2501, Relation::Is, 1),
    FloatParameter(2503, "cast_jitter", 1.0, "steps", "Random start in the gas's shadow").Between(0, 1),
    FloatParameter(2504, "cast_fine_step", 2.0, "cells", "Step inside the gas, in its shadow").Above(0),
    FloatParameter(2505, "cast_coarse_step", 5.0, "cells", "Step in empty space, in its shadow").Above(0),
    VectorParameter(2506, "cast_colour", {1, 1, 1}, "", "Colour of the gas's shadow: black is dark, white none").Min(0),
    FloatParameter(2507, "surface_shadow_strength", 1.0, "", "Strength of shadows on the gas")
        .Min(0)
        .ShownWhen(2500, Relation::Is, 1),
    VectorParameter(2508, "surface_shadow_colour", {1, 1, 1}, "", "Weight of the shadow's components")
        .Min(0)
        .ShownWhen(2500, Relation::Is, 1),

    IntParameter(2550, "fire_mode", 0, "", "Kept; no step reads it").Hidden(),
    FloatParameter(2553, "fire_shift", 0.02, "s", "Shift of fire samples along the velocity"),
    FloatParameter(2554, "gather_boost", 5.0, "", "Factor of the gas's light on surfaces around").Min(0),
    ChoiceParameter(2556, "flame_source", 0, kFlames, "What makes a flame"),
    ChoiceParameter(2600, "fire_colour", 0, kFireColours, "Colour of flames"),
    GradientParameter(kGasFireGradientId, "fire_gradient", kFire, "Colour of flames by temperature"),
    ChoiceParameter(2603, "colour_system", 4, kSystems, "Primaries of black-body colours"),
    VectorParameter(2604, "white_balance", {1, 1, 1}, "", "Factors of X, Y, Z").Min(0),
    FloatParameter(2605, "fire_intensity", 1.0, "", "Factor of the fire's light, and of its temperature in the table")
        .Min(0),
    FloatParameter(2606, "temperature_scale", 1.0, "", "Factor of the temperature").Min(0),
    FloatParameter(2650, "flame_threshold", 0.0, "K", "Temperature from which there is a flame"),
    IntParameter(2652, "temperature_blur", 0, "", "Blur of the temperature: rounds").Between(0, 100),
    FloatParameter(2653, "temperature_blur_sigma", 0.0, "cells", "Blur of the temperature: width").Between(0, 50),
    ListParameter(2654, "fire_filters", kLinkConstraint, "Constraints that scale the temperature"),
    IntParameter(2702, "third_blur", 0, "", "Blur of the third channel: rounds").Between(0, 100),
    FloatParameter(2703, "third_blur_sigma", 0.0, "cells", "Blur of the third channel: width").Between(0, 50),
    ListParameter(2704, "third_filters", kLinkConstraint, "Constraints that scale the third channel"),
    FloatParameter(2750, "flame_strength", 0.0, "", "Brightness of flames").Min(0),
    FloatParameter(2752, "fire_light_reach", 100.0, "host units", "How far flames light the smoke").Above(0),
    ChoiceParameter(2753, "fire_light_colour", 0, kFireColours, "Colour of the flames' light"),
    GradientParameter(kGasFireLightGradientId, "fire_light_gradient", kFire, "Colour of the flames' light"),
    FloatParameter(2755, "fire_light_scale", 1.0, "", "Factor of the temperature in the flames' light").Min(0),
    FloatParameter(2756, "flame_absorption", 0.0, "1/host unit", "Light that flames take away").Min(0),
    FloatParameter(2757, "fire_light_strength", 0.0, "", "Strength of the flames' light on the smoke").Min(0),
    GradientParameter(kGasFireMapGradientId, "fire_map_gradient", {}, "Remap of the flames' light"),
    BoolParameter(2760, "fire_light_phase", false, "The phase function turns the flames' light too"),

    FloatParameter(2800, "post_amount", 0.0, "", "Amount of the post gradient"),
    GradientParameter(kGasPostGradientId, "post_gradient", kRamp, "Colour by opacity, added"),
    FloatParameter(2802, "post_add", 0.0, "", "Added light by opacity"),
    FloatParameter(2803, "post_contrast", 0.0, "", "Contrast of the transparency, less 1"),
    FloatParameter(2804, "post_saturation", 1.0, "", "Saturation").Min(0),
    BoolParameter(2862, "march", true, "March at all"),
    BoolParameter(2863, "seen_by_gather", true, "Seen by rays that gather light around surfaces"),
    BoolParameter(2864, "seen_by_refraction", true, "Seen through surfaces"),
    BoolParameter(2865, "seen_by_camera", true, "Seen by the camera"),
    BoolParameter(2866, "seen_by_reflection", true, "Seen in mirrors"),
    BoolParameter(2867, "seen_by_occlusion", true, "Seen by rays that look for open sky"),
};

StepSettings ReadSteps(const BaseObject& m, int jitter, int fine, int coarse) {
  StepSettings steps;
  steps.jitter = m.GetDouble(jitter);
  steps.fine = m.GetDouble(fine);
  steps.coarse = std::max(steps.fine, m.GetDouble(coarse));
  return steps;
}

GasNoiseSettings ReadNoise(const BaseObject& m) {
  GasNoiseSettings n;
  n.enabled = m.GetBool(2301);
  n.hostSpace = m.GetInt(2302) == 0;
  n.seed = static_cast<std::int32_t>(m.GetInt(2304));
  n.type = static_cast<std::int32_t>(m.GetInt(2305));
  n.frequency = 1 / m.GetDouble(2306);
  n.scale = Vec3D(1.0) / m.GetVector(2307);
  n.octaves = static_cast<std::int32_t>(m.GetInt(2308));
  n.speed = m.GetDouble(2309);
  n.timeRepeat = static_cast<std::int32_t>(m.GetInt(2310));
  n.detailAttenuation = m.GetDouble(2311);
  n.sampleRadius = m.GetDouble(2312);
  n.absolute = m.GetBool(2313);
  n.lowClip = m.GetDouble(2314);
  n.highClip = m.GetDouble(2315);
  n.brightness = m.GetDouble(2316);
  n.contrast = m.GetDouble(2317);
  return n;
}

BlurSettings ReadBlur(const BaseObject& m, int iterations, int sigma) {
  return {static_cast<std::int32_t>(m.GetInt(iterations)), m.GetDouble(sigma)};
}

void ReadFire(const BaseObject& m, GasSettings& s) {
  s.flameFromThird = m.GetInt(2556) == 1;
  s.flameStrength = m.GetDouble(2750);
  s.flameAbsorption = m.GetDouble(2756);
  s.flameThreshold = m.GetDouble(2650);
  s.fireGradient = m.GetInt(2600) != 0;
  s.fireLightGradient = m.GetInt(2753) != 0;
  s.colourSystem = static_cast<std::int32_t>(m.GetInt(2603));
  s.whiteBalance = m.GetVector(2604);
  s.fireIntensity = m.GetDouble(2605);
  s.temperatureScale = m.GetDouble(2606);
  s.fireLightScale = m.GetDouble(2755);
  s.fireLightReach = m.GetDouble(2752);
  s.fireLightStrength = m.GetDouble(2757);
  s.fireLightPhase = m.GetBool(2760);
  s.gatherBoost = m.GetDouble(2554);
}

void ReadShadows(const BaseObject& m, GasSettings& s) {
  s.shadowSteps = ReadSteps(m, 2450, 2451, 2452);
  s.shadowSteps.trapezoid = m.GetBool(2460);
  s.cast = ReadSteps(m, 2503, 2504, 2505);
  s.cast.trapezoid = s.shadowSteps.trapezoid;
  s.shadowDensity = m.GetVector(2453);
  s.shadowColour = m.GetVector(2454);
  s.mapResolution = m.GetDouble(2455);
  s.mapBlur = ReadBlur(m, 2457, 2458);
  s.surfaceShadows = m.GetBool(2500);
  s.surfaceShadowStrength = m.GetDouble(2507);
  s.surfaceShadowColour = m.GetVector(2508);
  s.castsShadows = m.GetBool(2501);
  s.castStrength = m.GetDouble(2502);
  s.castColour = m.GetVector(2506);
}

}  // namespace

const TypeInfo& GasMaterialType() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = kGasMaterialId;
    type.resource = "zq_shader_gas";
    type.alias = "gas";
    type.className = "C4D_GasRenderer_Material";
    type.label = "Gas Renderer";
    type.text = "How smoke and fire look: marches rays through the channels that it links, with lights and shadows.";
    type.role = TypeRole::Material;
    type.kinds = kLinkMaterial;
    type.parameters = kParameters;
    return type;
  }();
  return kType;
}

GasSettings GasSettings::Read(const BaseObject& m) {
  GasSettings s;
  s.copyScale = m.GetDouble(2150);
  s.copyInterpolation = static_cast<std::int32_t>(m.GetInt(2152));
  s.densityBlur = ReadBlur(m, 2253, 2254);
  s.temperatureBlur = ReadBlur(m, 2652, 2653);
  s.thirdBlur = ReadBlur(m, 2702, 2703);
  s.steps = ReadSteps(m, 2153, 2154, 2155);
  s.steps.trapezoid = m.GetBool(2159);
  s.stopWhenOpaque = m.GetBool(2157);
  s.rawDensity = m.GetBool(2250);
  s.densityMultiplier = m.GetDouble(2251);
  s.fallbackDensity = m.GetDouble(2201);
  s.ambient = m.GetVector(2350);
  s.absorption = m.GetVector(2351);
  s.scattering = m.GetVector(2352);
  s.greyAbsorption = m.GetBool(2456);
  s.phase = static_cast<std::uint32_t>(std::clamp<std::int64_t>(m.GetInt(2353), 0, 255));
  s.phaseG = m.GetDouble(2354);
  s.phaseScale = m.GetDouble(2355);
  s.phaseSecond = m.GetDouble(2356);
  s.noise = ReadNoise(m);
  s.smokeShift = m.GetDouble(2202);
  s.fireShift = m.GetDouble(2553);
  ReadShadows(m, s);
  ReadFire(m, s);
  s.postAmount = m.GetDouble(2800);
  s.postAdd = m.GetDouble(2802);
  s.postContrast = m.GetDouble(2803) + 1;
  s.postSaturation = m.GetDouble(2804);
  s.march = m.GetBool(2862);
  s.seenByGather = m.GetBool(2863);
  s.seenByRefraction = m.GetBool(2864);
  s.seenByCamera = m.GetBool(2865);
  s.seenByReflection = m.GetBool(2866);
  s.seenByOcclusion = m.GetBool(2867);
  return s;
}

}  // namespace orlix
