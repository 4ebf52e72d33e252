#pragma once
// The settings of the gas material: its parameter table, and what the marcher takes from it.

#include <cstdint>

#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"

namespace orlix {

inline constexpr int kGasMaterialId = 1300062;

const TypeInfo& GasMaterialType();

// Links of the material.
inline constexpr int kGasDensityId = 2200;
inline constexpr int kGasVelocityId = 2203;
inline constexpr int kGasColourId = 2225;
inline constexpr int kGasTemperatureId = 2551;
inline constexpr int kGasThirdId = 2552;
inline constexpr int kGasFireVelocityId = 2555;
// Gradients.
inline constexpr int kGasSmokeGradientId = 2227;
inline constexpr int kGasDensityCurveId = 2252;
inline constexpr int kGasNoiseCurveId = 2303;
inline constexpr int kGasFireGradientId = 2602;
inline constexpr int kGasFireLightGradientId = 2754;
inline constexpr int kGasFireMapGradientId = 2759;
inline constexpr int kGasPostGradientId = 2801;
inline constexpr int kGasExcludedLightsId = 2158;

// Constraint lists that scale values at a point, by what they scale.
enum GasFilter {
  kFilterDensity,
  kFilterShadow,
  kFilterAbsorption,
  kFilterScattering,
  kFilterPhase,
  kFilterPhaseScale,
  kFilterFire,
  kFilterThird,
  kGasFilters
};
inline constexpr int kGasFilterIds[kGasFilters] = {2255, 2461, 2357, 2358, 2359, 2360, 2654, 2704};

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

struct GasSettings {
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
  GasNoiseSettings noise;
  double smokeShift = 0.05, fireShift = 0.02;  // s along the velocity
  // Light maps and shadows.
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
  // Post step.
  double postAmount = 0, postAdd = 0, postContrast = 1, postSaturation = 1;
  // Which rays see the gas.
  bool march = true, seenByGather = true, seenByRefraction = true, seenByCamera = true, seenByReflection = true,
       seenByOcclusion = true;

  // Steps that would never end are raised: the coarse step is at least the fine one.
  static GasSettings Read(const BaseObject& material);
};

}  // namespace orlix
