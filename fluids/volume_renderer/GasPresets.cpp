#include "fluids/volume_renderer/GasPresets.h"

#include "fluids/volume_renderer/GasSettings.h"
#include "fluids/volume_renderer/PhaseFunction.h"

namespace orlix {

namespace {

using S = GasSettings;

// Absorption, scattering and the gas's own shadow.
void SetMedium(BaseObject& m, const Vec3D& absorption, const Vec3D& scattering, const Vec3D& shadow) {
  m.Set(S::kUnitLengthId, 0.0);
  m.Set(S::kPhaseId, PhaseKind::Isotropic);
  m.Set(S::kAbsorptionId, absorption), m.Set(S::kScatteringId, scattering), m.Set(S::kShadowDensityId, shadow);
  m.Set(S::kSmokeShiftId, 0.0), m.Set(S::kFireShiftId, 0.0);
  m.Set(S::kFineStepId, 1.0), m.Set(S::kCoarseStepId, 4.0);
  m.Set(S::kSkyLightId, 1.0);
  m.Set(S::kCastShadowsId, std::int64_t(1)), m.Set(S::kCastStrengthId, 1.0), m.Set(S::kCastColourId, Vec3D());
}

// Light that scatters many times: how dense the gas is for it, how fast it fades with its way, how strong it is.
void SetScattering(BaseObject& m, double density, double fade, double strength) {
  m.Set(S::kScatterId, std::int64_t(1));
  m.Set(S::kScatterUsePhaseId, std::int64_t(0)), m.Set(S::kScatterUseAbsorptionId, std::int64_t(0));
  m.Set(S::kScatterScatteringId, 0.1), m.Set(S::kScatterAbsorptionId, 0.001);
  m.Set(S::kScatterDensityId, density), m.Set(S::kScatterLengthScaleId, fade);
  m.Set(S::kScatterPhaseScaleId, strength), m.Set(S::kScatterMapScaleId, 0.5);
}

void SetColour(BaseObject& m, const Vec3D& thin, const Vec3D& thick) {
  const GradientKnot knots[] = {{0, thin}, {1, thick}};
  m.Set(S::kSmokeGradientId, GradientValue(std::make_shared<Gradient>(knots)));
}

void SetFlames(BaseObject& m, double threshold, double strength, std::span<const GradientKnot> colours) {
  m.Set(S::kFireColourId, FireColour::Gradient), m.Set(S::kFireLightColourId, FireColour::Gradient);
  for (const int row : {S::kFireGradientId, S::kFireLightGradientId}) {
    m.Set(row, GradientValue(std::make_shared<Gradient>(colours)));
  }
  m.Set(S::kFlameThresholdId, threshold), m.Set(S::kFlameStrengthId, strength);
  m.Set(S::kFireLightStrengthId, 1.0), m.Set(S::kFireLightReachId, 2.5);
  m.Set(S::kGlowOnSurfacesId, std::int64_t(1)), m.Set(S::kSeenByGatherId, std::int64_t(0));
  m.Set(S::kGatherBoostId, 60.0), m.Set(S::kGlowPointsId, std::int64_t(4));
}

constexpr GradientKnot kWoodFire[] = {
    {0, {0, 0, 0}}, {0.35, {0.15, 0.012, 0}}, {0.55, {0.9, 0.16, 0.01}}, {0.8, {1, 0.42, 0.06}}, {1, {1, 0.75, 0.3}}};

void ThinSmoke(BaseObject& m) { SetMedium(m, Vec3D(0.5), Vec3D(0.3, 0.32, 0.35), Vec3D(0.4)); }
void ThickSmoke(BaseObject& m) {
  SetMedium(m, Vec3D(3.0), Vec3D(0.5), Vec3D(1.8));
  SetColour(m, {0.6, 0.6, 0.62}, {0.42, 0.42, 0.44});
  SetScattering(m, 10, 0.07, 0.03);
}
void WhiteCloud(BaseObject& m) {
  SetMedium(m, Vec3D(9.0), Vec3D(3.2), Vec3D(4.5));
  SetScattering(m, 45, 0.07, 0.09);
}
void Steam(BaseObject& m) {
  SetMedium(m, Vec3D(1.2), Vec3D(0.6), Vec3D(0.5));
  m.Set(S::kPhaseId, PhaseKind::HenyeyGreenstein), m.Set(S::kPhaseGId, 0.3);
  SetScattering(m, 8, 0.05, 0.05);
}
void Mist(BaseObject& m) {
  SetMedium(m, Vec3D(0.18), Vec3D(0.16, 0.17, 0.18), Vec3D(0.1));
  m.Set(S::kPhaseId, PhaseKind::HenyeyGreenstein), m.Set(S::kPhaseGId, 0.5);
}
void Dust(BaseObject& m) {
  SetMedium(m, Vec3D(3.0), Vec3D(1.3), Vec3D(1.3));
  SetColour(m, {0.62, 0.42, 0.22}, {0.5, 0.31, 0.14});
  m.Set(S::kGreyAbsorptionId, std::int64_t(1));
  SetScattering(m, 10, 0.1, 0.03);
}
void Soot(BaseObject& m) {
  SetMedium(m, Vec3D(5.0), Vec3D(1.0), Vec3D(3.0));
  SetColour(m, {0.09, 0.08, 0.075}, {0.04, 0.036, 0.034});
  m.Set(S::kAbsorptionId, Vec3D(80.0)), m.Set(S::kScatteringId, Vec3D(4.0, 3.8, 3.6));
}
void ColouredSmoke(BaseObject& m) {
  SetMedium(m, Vec3D(3.0), Vec3D(1.8), Vec3D(1.2));
  m.Set(S::kGreyAbsorptionId, std::int64_t(1));
  SetScattering(m, 10, 0.06, 0.06);
}
void Fire(BaseObject& m) {
  SetMedium(m, Vec3D(2.0), Vec3D(0.5), Vec3D(0.8));
  SetFlames(m, 650, 14, kWoodFire);
  m.Set(S::kFlameAbsorptionId, 0.5), m.Set(S::kFallbackDensityId, 0.25);
}
void Fireball(BaseObject& m) {
  SetMedium(m, Vec3D(8.0), Vec3D(1.0), Vec3D(2.0));
  SetColour(m, {0.5, 0.45, 0.42}, {0.3, 0.27, 0.25});
  SetFlames(m, 800, 5, kWoodFire);
  m.Set(S::kFlameAbsorptionId, 2.0), m.Set(S::kFallbackDensityId, 0.3);
  SetScattering(m, 10, 0.1, 0.03);
}

constexpr GasPreset kPresets[] = {
    {"thin smoke", "Wisps that one sees through", &ThinSmoke},
    {"thick smoke", "A grey plume that is opaque after a tenth of its container", &ThickSmoke},
    {"white cloud", "A cumulus: bright inside, soft at its edge", &WhiteCloud},
    {"steam", "White, brighter against the light", &Steam},
    {"mist", "A haze in which lights get beams", &Mist},
    {"dust", "Sand and dry earth", &Dust},
    {"soot", "Black smoke of burning oil", &Soot},
    {"coloured smoke", "For a colour channel or gradient: colours stay bright and bleed into each other",
     &ColouredSmoke},
    {"fire", "Flames from 650 K on, with little smoke; they light what is around", &Fire},
    {"fireball", "Burning fuel that turns to dark smoke, lit by its own fire", &Fireball},
};

}  // namespace

std::span<const GasPreset> AllGasPresets() { return kPresets; }

std::vector<Choice> GasPresetChoices() {
  std::vector<Choice> choices = {{0, "none", "The defaults"}};
  for (const GasPreset& preset : kPresets) {
    choices.push_back({static_cast<std::int64_t>(choices.size()), preset.name, preset.text});
  }
  return choices;
}

const GasPreset* FindGasPreset(const std::string& name) {
  for (const GasPreset& preset : kPresets) {
    if (name == preset.name) return &preset;
  }
  return nullptr;
}

int GasPresets::PresetRow() const { return GasSettings::kPresetId; }

void GasPresets::ApplyPreset(BaseObject& object) const {
  const auto number = object.GetInt(GasSettings::kPresetId);
  object.type().ForEachParameter([&](const Parameter& row) {
    const bool links = row.type == ParameterType::Link || row.type == ParameterType::InExclude;
    if (row.HoldsValue() && !links) object.Set(row.id, DefaultOf(row));
  });
  if (number >= 1 && number <= std::int64_t(std::size(kPresets))) kPresets[number - 1].apply(object);
}

}  // namespace orlix
