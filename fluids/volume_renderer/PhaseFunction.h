#pragma once
// How much of the light that meets the gas turns towards the viewer, by the angle between light and ray. The values are
// not densities over the sphere: isotropic is 1, and the material's phase scale brings all to their level.
//
//   kind                       sphere mean
//   isotropic                  1
//   Henyey-Greenstein          1        Henyey, Greenstein 1941
//   Rayleigh                   4 g / 3  g is a plain factor here
//   Mie (three)                -, 1, 1  Cornette, Shanks 1992; hazy and murky of Nishita, Miyawaki, Nakamae 1987
//   Schlick                    1        Blasi, Le Saec, Schlick 1993
//   double Henyey-Greenstein   1
//   Henyey-Greenstein 2        -        with a cubed cosine

#include <cstdint>
#include <optional>

namespace orlix {

enum class PhaseKind : std::uint32_t {
  Isotropic = 0,
  HenyeyGreenstein = 1,
  Rayleigh = 2,
  Mie = 3,
  MieHazy = 4,
  MieMurky = 5,
  Schlick = 6,
  DoubleHenyeyGreenstein = 7,
  HenyeyGreensteinCubed = 8
};

class PhaseFunction {
 public:
  // None for an index of 9 or above. mix is the share of the first lobe of the double form.
  static std::optional<PhaseFunction> Make(std::uint32_t index, float mix);

  // cosine: of two unit vectors. g: -1 to 1. second: the second lobe's parameter. Not finite where a denominator is 0.
  double Evaluate(double cosine, double g, double second) const;
  PhaseKind kind() const { return kind_; }

 private:
  PhaseFunction(PhaseKind kind, double mix) : kind_(kind), mix_(mix) {}
  PhaseKind kind_;
  double mix_;
};

}  // namespace orlix
