#pragma once
// The settings of the gas material: its parameter table, and what the marcher takes from it.

#include <cstdint>
#include <iterator>

#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"

namespace orlix {

inline constexpr int kGasMaterialId = 1300062;

// Constraint lists that scale values at a point, by what they scale.
enum GasFilter {
  kFilterDensity,
  kFilterShadow,
  kFilterAbsorption,
  kFilterScattering,
  kFilterPhase,
  kFilterPhaseScale,
  kFilterScatterAmount,
  kFilterScatterDensity,
  kFilterScatterPhase,
  kFilterScatterPhaseScale,
  kFilterFire,
  kFilterThird,
  kGasFilters
};

struct GasNoiseSettings {
  bool enabled = false;
  bool hostSpace = true;
  std::int32_t seed = 0, type = 13, octaves = 3, timeRepeat = 0;
  double frequency = 1;  // 1 / the parameter
  Vec3D scale{1, 1, 1};  // 1 / the parameter
  double speed = 0, detailAttenuation = 1, sampleRadius = 1;
  bool absolute = false;
  double lowClip = 0, highClip = 1, brightness = 0, contrast = 1;
};

struct BlurSettings {
  std::int32_t iterations = 0;
  double sigma = 0;  // cells
};

// A march's own steps, in cells until Build multiplies them by the cell.
struct StepSettings {
  double fine = 2, coarse = 5;
  double jitter = 1;
  bool trapezoid = false;
};

// Light that scatters many times.
struct ScatteringSettings {
  bool enabled = false;
  bool homogeneous = false;  // a medium of the mean density
  double mapScale = 1;       // of the density grid's resolution
  double lengthScale = 1, densityScale = 1;
  double widthScale = 1;                                           // host units for a width of 1
  bool ownAbsorption = false, ownSpread = false, ownStep = false;  // instead of the march's
  double absorption = 0.1, scattering = 0.6;
  double spread = 2.0943951023931953;
  double leastDepth = 0.01;  // optical depth
  double step = 2;           // cells
  double baseWidth = 0.6;    // cells
  double phaseG = 0.01, phaseScale = 0.01;
};

// The values of the material's choices.
enum class NoiseSpace { Host, Simulation };
enum class FlameSource { Temperature, Third };
enum class FireColour { BlackBody, Gradient };
enum class ColourSystemName { Ntsc, Ebu, Smpte, Hdtv, Cie, Rec709 };

struct GasSettings {
  static constexpr int kDensityId = 2200, kTemperatureId = 2551, kThirdId = 2552, kColourId = 2225, kVelocityId = 2203,
                       kFireVelocityId = 2555, kCopyScaleId = 2150, kFullPreviewId = 2151, kCopyInterpolationId = 2152,
                       kJitterId = 2153, kFineStepId = 2154, kCoarseStepId = 2155, kStopWhenOpaqueId = 2157,
                       kExcludedLightsId = 2158, kTrapezoidId = 2159, kFallbackDensityId = 2201, kSmokeShiftId = 2202,
                       kSmokeGradientId = 2227, kRawDensityId = 2250, kDensityMultiplierId = 2251,
                       kDensityCurveId = 2252, kDensityBlurId = 2253, kDensityBlurSigmaId = 2254,
                       kDensityFiltersId = 2255, kNoiseId = 2301, kNoiseSpaceId = 2302, kNoiseCurveId = 2303,
                       kNoiseSeedId = 2304, kNoiseTypeId = 2305, kNoiseSizeId = 2306, kNoiseScaleId = 2307,
                       kNoiseOctavesId = 2308, kNoiseSpeedId = 2309, kNoiseTimeRepeatId = 2310, kNoiseDetailId = 2311,
                       kNoiseRadiusId = 2312, kNoiseAbsoluteId = 2313, kNoiseLowId = 2314, kNoiseHighId = 2315,
                       kNoiseBrightnessId = 2316, kNoiseContrastId = 2317, kAmbientId = 2350, kAbsorptionId = 2351,
                       kScatteringId = 2352, kPhaseId = 2353, kPhaseGId = 2354, kPhaseScaleId = 2355,
                       kPhaseSecondId = 2356, kAbsorptionFiltersId = 2357, kScatteringFiltersId = 2358,
                       kPhaseFiltersId = 2359, kPhaseScaleFiltersId = 2360, kScatterId = 2400,
                       kScatterHomogeneousId = 2401, kScatterMapScaleId = 2402, kScatterLengthScaleId = 2403,
                       kScatterAbsorptionId = 2405, kScatterScatteringId = 2406, kScatterSpreadId = 2407,
                       kScatterLeastDepthId = 2408, kScatterStepId = 2409, kScatterWidthId = 2410,
                       kScatterDensityId = 2411, kScatterUseAbsorptionId = 2412, kScatterUseStepId = 2413,
                       kScatterUsePhaseId = 2414, kScatterPhaseGId = 2415, kScatterPhaseScaleId = 2416,
                       kScatterFiltersId = 2417, kScatterDensityFiltersId = 2418, kScatterPhaseFiltersId = 2419,
                       kScatterPhaseScaleFiltersId = 2420, kShadowJitterId = 2450, kShadowFineStepId = 2451,
                       kShadowCoarseStepId = 2452, kShadowDensityId = 2453, kShadowColourId = 2454,
                       kLightMapScaleId = 2455, kGreyAbsorptionId = 2456, kLightMapBlurId = 2457,
                       kLightMapBlurSigmaId = 2458, kShadowTrapezoidId = 2460, kShadowFiltersId = 2461,
                       kSurfaceShadowsId = 2500, kCastShadowsId = 2501, kCastStrengthId = 2502, kCastJitterId = 2503,
                       kCastFineStepId = 2504, kCastCoarseStepId = 2505, kCastColourId = 2506,
                       kSurfaceShadowStrengthId = 2507, kSurfaceShadowColourId = 2508, kFireShiftId = 2553,
                       kGatherBoostId = 2554, kFlameSourceId = 2556, kFireColourId = 2600, kFireGradientId = 2602,
                       kColourSystemId = 2603, kWhiteBalanceId = 2604, kFireIntensityId = 2605,
                       kTemperatureScaleId = 2606, kFlameThresholdId = 2650, kTemperatureBlurId = 2652,
                       kTemperatureBlurSigmaId = 2653, kFireFiltersId = 2654, kThirdBlurId = 2702,
                       kThirdBlurSigmaId = 2703, kThirdFiltersId = 2704, kFlameStrengthId = 2750,
                       kFireLightReachId = 2752, kFireLightColourId = 2753, kFireLightGradientId = 2754,
                       kFireLightScaleId = 2755, kFlameAbsorptionId = 2756, kFireLightStrengthId = 2757,
                       kFireMapGradientId = 2759, kFireLightPhaseId = 2760, kPostAmountId = 2800,
                       kPostGradientId = 2801, kPostAddId = 2802, kPostContrastId = 2803, kPostSaturationId = 2804,
                       kMarchId = 2862, kSeenByGatherId = 2863, kSeenByRefractionId = 2864, kSeenByCameraId = 2865,
                       kSeenByReflectionId = 2866, kSeenByOcclusionId = 2867, kPresetId = 2100, kDiffuseMapsId = 2463,
                       kUnitLengthId = 2900, kUnitDensityId = 2901, kSkyLightId = 2902, kSkyRaysId = 2903,
                       kGlowOnSurfacesId = 2904, kGlowPointsId = 2905, kColourShaderId = 2906, kDensityShaderId = 2907;
  // The lists by GasFilter.
  static constexpr int kFilterIds[] = {kDensityFiltersId,           kShadowFiltersId,         kAbsorptionFiltersId,
                                       kScatteringFiltersId,        kPhaseFiltersId,          kPhaseScaleFiltersId,
                                       kScatterFiltersId,           kScatterDensityFiltersId, kScatterPhaseFiltersId,
                                       kScatterPhaseScaleFiltersId, kFireFiltersId,           kThirdFiltersId};
  static_assert(std::size(kFilterIds) == kGasFilters);
  static const TypeInfo& Type();

  // Length (host units) and density that absorption, scattering, shadows and glow are given for. A length of 0 stands
  // for a tenth of the container.
  double unitLength = 1, unitDensity = 1;
  double copyScale = 1;
  std::int32_t copyInterpolation = 0;
  BlurSettings densityBlur, temperatureBlur, thirdBlur, mapBlur;
  StepSettings steps, shadowSteps, cast;
  bool stopWhenOpaque = true;
  // Smoke.
  bool rawDensity = true;
  double densityMultiplier = 1, fallbackDensity = 0.02;
  Vec3D ambient, absorption{0.1}, scattering{0.6};
  bool greyAbsorption = false;
  std::uint32_t phase = 1;
  double phaseG = 0.6, phaseScale = 1, phaseSecond = 0;
  ScatteringSettings scatter;
  GasNoiseSettings noise;
  double smokeShift = 0.05, fireShift = 0.02;  // s along the velocity
  // Light of the sky in the gas, and from how many directions.
  double skyLight = 0;
  std::int32_t skyRays = 24;
  // Light maps and shadows.
  bool diffuseMaps = true;
  Vec3D shadowDensity{0.1}, shadowColour{1, 1, 1};
  double mapResolution = 0.5;  // of the grid's
  bool surfaceShadows = true;
  double surfaceShadowStrength = 1;
  Vec3D surfaceShadowColour{1, 1, 1};
  bool castsShadows = false;
  double castStrength = 0.1;
  Vec3D castColour{1, 1, 1};
  // Fire.
  bool flameFromThird = false;
  double flameStrength = 0, flameAbsorption = 0, flameThreshold = 0;
  bool fireGradient = false, fireLightGradient = false;
  std::int32_t colourSystem = 4;
  Vec3D whiteBalance{1, 1, 1};
  double fireIntensity = 1, temperatureScale = 1;
  double fireLightScale = 1, fireLightReach = 100, fireLightStrength = 0;
  bool fireLightPhase = false;
  double gatherBoost = 5;
  std::int32_t glowPoints = 0;  // of each sample of a surface; 0: rays meet flames by chance
  // Post step.
  double postAmount = 0, postAdd = 0, postContrast = 1, postSaturation = 1;
  // Which rays see the gas.
  bool march = true, seenByGather = true, seenByRefraction = true, seenByCamera = true, seenByReflection = true,
       seenByOcclusion = true;

  // Steps that would never end are raised: the coarse step is at least the fine one.
  static GasSettings Read(const BaseObject& material);
  // Brings what is given for the unit's length and density to host units and the density as it is.
  void ApplyUnits(double length);

 private:
  void ReadNoise(const BaseObject& material);
  void ReadScattering(const BaseObject& material);
  void ReadShadows(const BaseObject& material);
  void ReadFire(const BaseObject& material);
};

}  // namespace orlix
