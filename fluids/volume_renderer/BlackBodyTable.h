#pragma once
// Colours of a black body by temperature (Planck 1901), through the CIE 1931 observer, adapted to the hottest row as
// white, in a colour system, with a transfer curve. Built once a frame, then read by interpolation.

#include <vector>

#include "globals/Vec.h"

namespace orlix {

// Chromaticities (CIE x, y) of the primaries and the white point.
struct ColourSystem {
  const char* name;
  double xr, yr, xg, yg, xb, yb, xw, yw;
  double gamma;  // 0: the Rec. 709 curve
};
// 0 NTSC, 1 EBU, 2 SMPTE, 3 HDTV, 5 Rec. 709; any other index: CIE.
const ColourSystem& ColourSystemOf(int index);

// Rec. 709's transfer curve, with the slope at the dark end that joins its two pieces.
double Rec709Transfer(double c);

// X, Y, Z of a black body, in no particular unit; 0 where the spectrum vanishes below the smallest number.
Vec3D BlackBodySpectrum(double kelvin);

class BlackBodyTable {
 public:
  double lowest = 297, highest = 5000, step = 5;  // K
  int normalisation = 0;                          // 0 by X + Y + Z, 1 by the largest

  // factor scales the temperature; white is multiplied onto X, Y, Z. Limits that aren't finite or steps not above 0
  // leave the table unbuilt; the rows are limited to a million.
  void Build(double factor, const Vec3D& white, int colourSystem);
  bool built() const { return !rows_.empty(); }
  std::size_t rows() const { return rows_.size(); }
  // Black when the table isn't built; the first and last row beyond its ends.
  Vec3D Sample(double kelvin) const;

 private:
  std::vector<Vec3D> rows_;  // ascending temperatures
};

}  // namespace orlix
