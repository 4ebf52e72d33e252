#include "fluids/volume_renderer/BlackBodyTable.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

constexpr int kFirstNanometre = 380, kNanometreStep = 5;
constexpr std::size_t kMaxRows = 1000000;

// CIE 1931 colour matching functions of the 2 degree observer, 380 to 780 nm.
constexpr Vec3D kObserver[81] = {
    {0.0014, 0.0000, 0.0065}, {0.0022, 0.0001, 0.0105}, {0.0042, 0.0001, 0.0201}, {0.0076, 0.0002, 0.0362},
    {0.0143, 0.0004, 0.0679}, {0.0232, 0.0006, 0.1102}, {0.0435, 0.0012, 0.2074}, {0.0776, 0.0022, 0.3713},
    {0.1344, 0.0040, 0.6456}, {0.2148, 0.0073, 1.0391}, {0.2839, 0.0116, 1.3856}, {0.3285, 0.0168, 1.6230},
    {0.3483, 0.0230, 1.7471}, {0.3481, 0.0298, 1.7826}, {0.3362, 0.0380, 1.7721}, {0.3187, 0.0480, 1.7441},
    {0.2908, 0.0600, 1.6692}, {0.2511, 0.0739, 1.5281}, {0.1954, 0.0910, 1.2876}, {0.1421, 0.1126, 1.0419},
    {0.0956, 0.1390, 0.8130}, {0.0580, 0.1693, 0.6162}, {0.0320, 0.2080, 0.4652}, {0.0147, 0.2586, 0.3533},
    {0.0049, 0.3230, 0.2720}, {0.0024, 0.4073, 0.2123}, {0.0093, 0.5030, 0.1582}, {0.0291, 0.6082, 0.1117},
    {0.0633, 0.7100, 0.0782}, {0.1096, 0.7932, 0.0573}, {0.1655, 0.8620, 0.0422}, {0.2257, 0.9149, 0.0298},
    {0.2904, 0.9540, 0.0203}, {0.3597, 0.9803, 0.0134}, {0.4334, 0.9950, 0.0087}, {0.5121, 1.0000, 0.0057},
    {0.5945, 0.9950, 0.0039}, {0.6784, 0.9786, 0.0027}, {0.7621, 0.9520, 0.0021}, {0.8425, 0.9154, 0.0018},
    {0.9163, 0.8700, 0.0017}, {0.9786, 0.8163, 0.0014}, {1.0263, 0.7570, 0.0011}, {1.0567, 0.6949, 0.0010},
    {1.0622, 0.6310, 0.0008}, {1.0456, 0.5668, 0.0006}, {1.0026, 0.5030, 0.0003}, {0.9384, 0.4412, 0.0002},
    {0.8544, 0.3810, 0.0002}, {0.7514, 0.3210, 0.0001}, {0.6424, 0.2650, 0.0000}, {0.5419, 0.2170, 0.0000},
    {0.4479, 0.1750, 0.0000}, {0.3608, 0.1382, 0.0000}, {0.2835, 0.1070, 0.0000}, {0.2187, 0.0816, 0.0000},
    {0.1649, 0.0610, 0.0000}, {0.1212, 0.0446, 0.0000}, {0.0874, 0.0320, 0.0000}, {0.0636, 0.0232, 0.0000},
    {0.0468, 0.0170, 0.0000}, {0.0329, 0.0119, 0.0000}, {0.0227, 0.0082, 0.0000}, {0.0158, 0.0057, 0.0000},
    {0.0114, 0.0041, 0.0000}, {0.0081, 0.0029, 0.0000}, {0.0058, 0.0021, 0.0000}, {0.0041, 0.0015, 0.0000},
    {0.0029, 0.0010, 0.0000}, {0.0020, 0.0007, 0.0000}, {0.0014, 0.0005, 0.0000}, {0.0010, 0.0004, 0.0000},
    {0.0007, 0.0002, 0.0000}, {0.0005, 0.0002, 0.0000}, {0.0003, 0.0001, 0.0000}, {0.0002, 0.0001, 0.0000},
    {0.0002, 0.0001, 0.0000}, {0.0001, 0.0000, 0.0000}, {0.0001, 0.0000, 0.0000}, {0.0001, 0.0000, 0.0000},
    {0.0000, 0.0000, 0.0000}};

constexpr ColourSystem kSystems[] = {
    {"NTSC", 0.67, 0.33, 0.21, 0.71, 0.14, 0.08, 0.3101, 0.3162, 0},
    {"EBU (PAL/SECAM)", 0.64, 0.33, 0.29, 0.60, 0.15, 0.06, 0.3127, 0.3291, 0},
    {"SMPTE", 0.63, 0.34, 0.31, 0.595, 0.155, 0.07, 0.3127, 0.3291, 0},
    {"HDTV", 0.67, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3291, 0},
    {"CIE", 0.7355, 0.2645, 0.2658, 0.7243, 0.1669, 0.0085, 0.33333333, 0.33333333, 0},
    {"CIE REC 709", 0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3291, 0},
};

// X, Y, Z to the primaries' shares. Scaled by the white point, or of the primaries alone.
LMatrix ToSystem(const ColourSystem& s, bool scaledByWhite) {
  LMatrix primaries;
  primaries.v1 = {s.xr, s.yr, 1 - s.xr - s.yr};
  primaries.v2 = {s.xg, s.yg, 1 - s.xg - s.yg};
  primaries.v3 = {s.xb, s.yb, 1 - s.xb - s.yb};
  if (scaledByWhite) {
    const Vec3D white = Vec3D(s.xw, s.yw, 1 - s.xw - s.yw) / s.yw;
    const Vec3D share = primaries.Inverse().Rotate(white);
    primaries.v1 *= share.x;
    primaries.v2 *= share.y;
    primaries.v3 *= share.z;
  }
  return primaries.Inverse();
}

double LargestOf(const Vec3D& v) { return std::max({v.x, v.y, v.z}); }

Vec3D ToCones(const Vec3D& v) {
  return {0.3897 * v.x + 0.689 * v.y - 0.0787 * v.z, -0.2298 * v.x + 1.1834 * v.y + 0.0464 * v.z, v.z};
}
Vec3D FromCones(const Vec3D& v) {
  return {1.9102 * v.x - 1.1121 * v.y + 0.2019 * v.z, 0.3709 * v.x + 0.629 * v.y, v.z};
}

Vec3D Transferred(const Vec3D& c, double gamma) {
  if (gamma == 0) return {Rec709Transfer(c.x), Rec709Transfer(c.y), Rec709Transfer(c.z)};
  return {std::pow(c.x, 1 / gamma), std::pow(c.y, 1 / gamma), std::pow(c.z, 1 / gamma)};
}

}  // namespace

const ColourSystem& ColourSystemOf(int index) {
  constexpr int kCie = 4;
  return kSystems[index >= 0 && index < static_cast<int>(std::size(kSystems)) ? index : kCie];
}

double Rec709Transfer(double c) {
  if (c >= 0.018) return 1.099 * std::pow(c, 0.45) - 0.099;
  return c * 4.513774668618915;
}

Vec3D BlackBodySpectrum(double kelvin) {
  Vec3D sum;
  if (!(kelvin > 0)) return sum;
  for (int n = 0; n < 81; ++n) {
    const double metres = (kFirstNanometre + kNanometreStep * n) * 1e-9;
    const double power = 3.74183e-16 * std::pow(metres, -5.0) / (std::exp(0.014388 / (kelvin * metres)) - 1);
    if (std::isfinite(power)) sum += kObserver[n] * power;
  }
  return sum;
}

void BlackBodyTable::Build(double factor, const Vec3D& white, int colourSystem) {
  rows_.clear();
  if (!std::isfinite(lowest) || !std::isfinite(highest) || !(step > 0) || highest < lowest) return;
  const double wanted = std::min((highest - lowest) / step, static_cast<double>(kMaxRows - 1));
  const std::size_t count = static_cast<std::size_t>(wanted) + 1;
  rows_.assign(count, Vec3D());
  const ColourSystem& system = ColourSystemOf(colourSystem);
  const LMatrix matrix = ToSystem(system, normalisation == 0);
  Vec3D adaptation;
  for (std::size_t row = count; row-- > 0;) {
    const double kelvin = highest - step * static_cast<double>(count - 1 - row);
    const Vec3D spectrum = BlackBodySpectrum(kelvin * factor);
    const double scale = normalisation == 0 ? spectrum.x + spectrum.y + spectrum.z : LargestOf(spectrum);
    if (!(scale > 0)) continue;  // too cold to glow: black
    Vec3D cones = ToCones(spectrum / scale * white);
    if (row == count - 1) adaptation = {1 / cones.x, 1 / cones.y, 1 / cones.z};
    Vec3D colour = matrix.Rotate(FromCones(cones * adaptation));
    if (normalisation == 1) colour = Min(Max(colour, Vec3D()), Vec3D(1.0));
    const double lowestComponent = std::min({0.0, colour.x, colour.y, colour.z});
    colour -= Vec3D(lowestComponent);
    if (const double largest = LargestOf(colour); largest > 0) colour = colour / largest;
    if (IsFinite(colour)) rows_[row] = Transferred(colour, system.gamma);
  }
}

Vec3D BlackBodyTable::Sample(double kelvin) const {
  if (rows_.empty()) return {};
  if (!(kelvin > lowest)) return rows_.front();
  if (kelvin >= highest) return rows_.back();
  const double position = (kelvin - lowest) / (highest - lowest) * static_cast<double>(rows_.size() - 1);
  const std::size_t row = std::min(static_cast<std::size_t>(position), rows_.size() - 1);
  if (row + 1 == rows_.size()) return rows_.back();
  return rows_[row] + (rows_[row + 1] - rows_[row]) * (position - static_cast<double>(row));
}

}  // namespace orlix
