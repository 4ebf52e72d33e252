#include "fluids/dynamics/FluidObject.h"

#include <span>

namespace orlix {

namespace {

constexpr int kDensity = 1001, kViscosity = 1019, kViscosityPreset = 1025, kDensityPreset = 1026;
constexpr int kAnchorMode = 1027, kAnchor = 1028;
constexpr std::int64_t kCustomViscosity = 0, kCustomDensity = 1027;

struct Preset {
  std::int64_t id;
  double value;
};
constexpr Preset kViscosities[] = {
    {1, 0.00092}, {2, 0.00089},  {3, 0.00117}, {4, 0.001375}, {5, 0.16376},  {6, 0.05692}, {7, 0.00117},
    {9, 0.00161}, {10, 0.00194}, {11, 0.066},  {12, 2.0},     {13, 0.00066}, {14, 0.5148}, {15, 2.715},
    {16, 0.0032}, {17, 0.00179}, {18, 0.3021}, {19, 0.3021},  {20, 250.0},   {21, 50.0},   {22, 45.0},
};
constexpr Preset kDensities[] = {
    {1028, 998.21},  {1029, 1004.0}, {1030, 1025.0}, {1031, 868.0},  {1032, 920.0},  {1033, 910.0},  {1034, 1035.0},
    {1036, 13570.0}, {1037, 804.0},  {1038, 120.0},  {1039, 1420.0}, {1040, 803.0},  {1041, 990.0},  {1042, 905.0},
    {1043, 800.0},   {1044, 1008.0}, {1045, 1900.0}, {1046, 1035.0}, {1047, 1300.0}, {1048, 1400.0}, {1049, 1352.0},
};

// Gives the preset that is chosen now.
std::int64_t FollowPreset(BaseObject& object, int presetId, std::int64_t known, std::int64_t custom, int valueId,
                          std::span<const Preset> presets) {
  const std::int64_t chosen = object.GetInt(presetId);
  if (chosen == known) {
    object.Set(presetId, custom);
    return custom;
  }
  for (const Preset& preset : presets) {
    if (preset.id == chosen) object.Set(valueId, preset.value);
  }
  return chosen;
}

}  // namespace

void FluidObject::Init(BaseObject& object) {
  viscosityPreset_ = object.GetInt(kViscosityPreset);
  densityPreset_ = object.GetInt(kDensityPreset);
}

Status FluidObject::Update(BaseObject& object, const BaseTime&) {
  if (object.dirtyCount() == seen_) return {};
  viscosityPreset_ =
      FollowPreset(object, kViscosityPreset, viscosityPreset_, kCustomViscosity, kViscosity, kViscosities);
  densityPreset_ = FollowPreset(object, kDensityPreset, densityPreset_, kCustomDensity, kDensity, kDensities);
  switch (object.GetInt(kAnchorMode)) {
    case 0:
      object.Set(kAnchor, Vec3D());
      break;
    case 1:
      object.Set(kAnchor, Vec3D(0.5));
      break;
    case 2:
      object.Set(kAnchor, Vec3D(0.5, 0, 0.5));
      break;
    default:
      break;
  }
  seen_ = object.dirtyCount();
  return {};
}

}  // namespace orlix
