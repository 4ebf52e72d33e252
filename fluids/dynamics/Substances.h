#pragma once
// Substances whose viscosity and density a fluid can take by name. A substance has one number as a preset of viscosity,
// and kDensityPresetOffset more as a preset of density.

#include <array>
#include <cstdint>
#include <span>

#include "host/description/Parameter.h"

namespace orlix {

enum class Substance : std::int64_t {
  Custom = 0,
  Water = 1,
  PoolWater = 2,
  SeaWater = 3,
  Turpentine = 4,
  ThickOil = 5,
  CanolaOil = 6,
  Brine = 7,
  Keep = 8,
  Mercury = 9,
  Propanol = 10,
  Foam = 11,
  Honey = 12,
  Solvent = 13,
  FuelOil = 14,
  GearOil = 15,
  Diesel = 16,
  ColdWater = 17,
  Acid = 18,
  Glue = 19,
  PeanutButter = 20,
  Ketchup = 21,
  Chocolate = 22
};
inline constexpr std::int64_t kDensityPresetOffset = 1027;

struct SubstanceInfo {
  Substance substance;
  const char* key;
  const char* text;
  double viscosity = 0, density = 0;  // Pa s, kg/m^3; 0 leaves the value as it is
};

inline constexpr SubstanceInfo kSubstances[] = {
    {Substance::Custom, "custom", "The value as typed"},
    {Substance::Water, "water", "0.00092 Pa s, 998.21 kg/m^3", 0.00092, 998.21},
    {Substance::PoolWater, "pool_water", "0.00089 Pa s, 1004 kg/m^3", 0.00089, 1004.0},
    {Substance::SeaWater, "sea_water", "0.00117 Pa s, 1025 kg/m^3", 0.00117, 1025.0},
    {Substance::Turpentine, "turpentine", "0.001375 Pa s, 868 kg/m^3", 0.001375, 868.0},
    {Substance::ThickOil, "thick_oil", "0.16376 Pa s, 920 kg/m^3", 0.16376, 920.0},
    {Substance::CanolaOil, "canola_oil", "0.05692 Pa s, 910 kg/m^3", 0.05692, 910.0},
    {Substance::Brine, "brine", "0.00117 Pa s, 1035 kg/m^3", 0.00117, 1035.0},
    {Substance::Keep, "keep", "The value stays"},
    {Substance::Mercury, "mercury", "0.00161 Pa s, 13570 kg/m^3", 0.00161, 13570.0},
    {Substance::Propanol, "propanol", "0.00194 Pa s, 804 kg/m^3", 0.00194, 804.0},
    {Substance::Foam, "foam", "0.066 Pa s, 120 kg/m^3", 0.066, 120.0},
    {Substance::Honey, "honey", "2 Pa s, 1420 kg/m^3", 2.0, 1420.0},
    {Substance::Solvent, "solvent", "0.00066 Pa s, 803 kg/m^3", 0.00066, 803.0},
    {Substance::FuelOil, "fuel_oil", "0.5148 Pa s, 990 kg/m^3", 0.5148, 990.0},
    {Substance::GearOil, "gear_oil", "2.715 Pa s, 905 kg/m^3", 2.715, 905.0},
    {Substance::Diesel, "diesel", "0.0032 Pa s, 800 kg/m^3", 0.0032, 800.0},
    {Substance::ColdWater, "cold_water", "0.00179 Pa s, 1008 kg/m^3", 0.00179, 1008.0},
    {Substance::Acid, "acid", "0.3021 Pa s, 1900 kg/m^3", 0.3021, 1900.0},
    {Substance::Glue, "glue", "0.3021 Pa s, 1035 kg/m^3", 0.3021, 1035.0},
    {Substance::PeanutButter, "peanut_butter", "250 Pa s, 1300 kg/m^3", 250.0, 1300.0},
    {Substance::Ketchup, "ketchup", "50 Pa s, 1400 kg/m^3", 50.0, 1400.0},
    {Substance::Chocolate, "chocolate", "45 Pa s, 1352 kg/m^3", 45.0, 1352.0},
};

inline constexpr auto kViscosityPresets = [] {
  std::array<Choice, std::size(kSubstances)> choices;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    choices[i] = {kSubstances[i].substance, kSubstances[i].key, kSubstances[i].text};
  }
  return choices;
}();

// There is no preset of density that keeps the value.
inline constexpr auto kDensityPresets = [] {
  std::array<Choice, std::size(kSubstances) - 1> choices;
  std::size_t count = 0;
  for (const SubstanceInfo& info : kSubstances) {
    if (info.substance == Substance::Keep) continue;
    choices[count++] = {static_cast<std::int64_t>(info.substance) + kDensityPresetOffset, info.key, info.text};
  }
  return choices;
}();

}  // namespace orlix
