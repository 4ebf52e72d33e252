#pragma once
// The noise types by their numbers, which scenes keep.

#include <array>
#include <cstddef>

namespace orlix {

enum class NoiseType : int {
  Fbm = 3,
  Turbulence = 8,
  Gradient = 13,
  HybridMultifractal = 15,
  RidgedMultifractal = 16,
  Warped = 25,
  Cellular = 30
};

struct NoiseTypeInfo {
  NoiseType type;
  const char* key;   // what a scene file may write instead of the number
  const char* text;  // one line
};

inline constexpr std::array<NoiseTypeInfo, 7> kNoiseTypes = {{
    {NoiseType::Fbm, "fbm", "Fractional Brownian motion: a weighted sum of octaves"},
    {NoiseType::Turbulence, "turbulence", "A sum of absolute values: billows with creases"},
    {NoiseType::Gradient, "gradient", "Smooth gradient noise, each octave half as strong at twice the frequency"},
    {NoiseType::HybridMultifractal, "hybrid_multifractal",
     "Fine detail where the coarse octaves are high, smooth valleys"},
    {NoiseType::RidgedMultifractal, "ridged_multifractal", "Sharp ridges, finest along the ridges"},
    {NoiseType::Warped, "warped", "Fractional Brownian motion at places that it has moved itself: wisps and folds"},
    {NoiseType::Cellular, "cellular", "Distance to the nearest of scattered points, in octaves"},
}};

constexpr bool IsNoiseType(int number) {
  for (const NoiseTypeInfo& info : kNoiseTypes) {
    if (static_cast<int>(info.type) == number) return true;
  }
  return false;
}

// The type of a number; gradient noise for a number that is none.
constexpr NoiseType NoiseTypeOf(int number) {
  return IsNoiseType(number) ? static_cast<NoiseType>(number) : NoiseType::Gradient;
}

// True where the octaves come from the table of Noise::SetUpFractal.
constexpr bool UsesFractalTable(NoiseType type) { return type != NoiseType::Gradient; }

// The types as the rows {value, key, text} of a choice parameter:
//   constexpr auto kNoiseChoices = NoiseTypeChoices<Choice>();
//   ChoiceParameter(kNoiseTypeId, "noise_type", NoiseType::Gradient, kNoiseChoices, "Kind of noise")
template <class Row>
constexpr std::array<Row, kNoiseTypes.size()> NoiseTypeChoices() {
  std::array<Row, kNoiseTypes.size()> rows{};
  for (std::size_t i = 0; i < rows.size(); ++i)
    rows[i] = {kNoiseTypes[i].type, kNoiseTypes[i].key, kNoiseTypes[i].text};
  return rows;
}

}  // namespace orlix
