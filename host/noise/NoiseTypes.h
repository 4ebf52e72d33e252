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
  int number;
  const char* key;   // what a scene file may write instead of the number
  const char* text;  // one line
};

inline constexpr std::array<NoiseTypeInfo, 7> kNoiseTypes = {{
    {3, "fbm", "Fractional Brownian motion: a weighted sum of octaves"},
    {8, "turbulence", "A sum of absolute values: billows with creases"},
    {13, "gradient", "Smooth gradient noise, each octave half as strong at twice the frequency"},
    {15, "hybrid_multifractal", "Fine detail where the coarse octaves are high, smooth valleys"},
    {16, "ridged_multifractal", "Sharp ridges, finest along the ridges"},
    {25, "warped", "Fractional Brownian motion at places that it has moved itself: wisps and folds"},
    {30, "cellular", "Distance to the nearest of scattered points, in octaves"},
}};

constexpr bool IsNoiseType(int number) {
  for (const NoiseTypeInfo& type : kNoiseTypes) {
    if (type.number == number) return true;
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
//   ChoiceParameter(1004, "noise_type", 13, kNoiseChoices, "Kind of noise")
template <class Row>
constexpr std::array<Row, kNoiseTypes.size()> NoiseTypeChoices() {
  std::array<Row, kNoiseTypes.size()> rows{};
  for (std::size_t i = 0; i < rows.size(); ++i)
    rows[i] = {kNoiseTypes[i].number, kNoiseTypes[i].key, kNoiseTypes[i].text};
  return rows;
}

}  // namespace orlix
