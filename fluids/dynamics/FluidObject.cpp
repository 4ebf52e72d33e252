#include "fluids/dynamics/FluidObject.h"

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "fluids/dynamics/Substances.h"

namespace orlix {

using AnchorMode = FluidSolver::AnchorMode;

namespace {

constexpr std::int64_t kCustom = static_cast<std::int64_t>(Substance::Custom);

// The preset of a value: where it stands, and what its numbers and values are.
struct Preset {
  int presetId, valueId;
  std::int64_t offset;  // of its numbers, from those of the substances
  double SubstanceInfo::*value;
};
constexpr Preset kViscosity{FluidSolver::kViscosityPresetId, Grid_Viscosity::kViscosityId, 0,
                            &SubstanceInfo::viscosity};
constexpr Preset kDensity{FluidSolver::kDensityPresetId, Grid_Incompressibility::kDensityId, kDensityPresetOffset,
                          &SubstanceInfo::density};

// Gives the preset that is chosen now. Who sets a value beside a preset at the start wants the value.
std::int64_t FollowPreset(BaseObject& object, const Preset& preset, std::int64_t known, bool atStart) {
  const std::int64_t chosen = object.GetInt(preset.presetId);
  if (chosen == known || (atStart && object.WasGiven(preset.valueId))) {
    object.Set(preset.presetId, kCustom + preset.offset);
    return kCustom + preset.offset;
  }
  for (const SubstanceInfo& info : kSubstances) {
    const bool is = static_cast<std::int64_t>(info.substance) + preset.offset == chosen;
    if (is && info.*preset.value > 0) object.Set(preset.valueId, info.*preset.value);
  }
  return chosen;
}

}  // namespace

void FluidObject::Init(BaseObject& object) {
  viscosityPreset_ = object.GetInt(kViscosity.presetId);
  densityPreset_ = object.GetInt(kDensity.presetId);
}

Status FluidObject::Update(BaseObject& object, const BaseTime&) {
  if (object.dirtyCount() == seen_) return {};
  const bool atStart = seen_ == 0;
  viscosityPreset_ = FollowPreset(object, kViscosity, viscosityPreset_, atStart);
  densityPreset_ = FollowPreset(object, kDensity, densityPreset_, atStart);
  // Who sets an anchor and no mode wants it kept.
  if (atStart && object.WasGiven(FluidSolver::kAnchorId) && !object.WasGiven(FluidSolver::kAnchorModeId)) {
    object.Set(FluidSolver::kAnchorModeId, static_cast<std::int64_t>(AnchorMode::Custom));
  }
  switch (object.GetChoice<AnchorMode>(FluidSolver::kAnchorModeId)) {
    case AnchorMode::Corner:
      object.Set(FluidSolver::kAnchorId, Vec3D());
      break;
    case AnchorMode::Centre:
      object.Set(FluidSolver::kAnchorId, Vec3D(0.5));
      break;
    case AnchorMode::Bottom:
      object.Set(FluidSolver::kAnchorId, Vec3D(0.5, 0, 0.5));
      break;
    case AnchorMode::Custom:
      break;
  }
  seen_ = object.dirtyCount();
  return {};
}

}  // namespace orlix
