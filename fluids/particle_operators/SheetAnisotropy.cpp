#include "fluids/particle_operators/SheetAnisotropy.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr double kLeastShare = 0.25, kLeastStretch = 0.5, kMostStretch = 10;

}  // namespace

SheetAnisotropy SheetAnisotropyAt(const ParticleList& list, std::span<const Neighbour> near, double radius) {
  const auto weightOf = [&](const Neighbour& n) { return std::max(0.0, 1 - n.distanceSquared / (radius * radius)); };
  double sum = 0;
  Vec3D mean;
  for (const Neighbour& n : near) {
    const double w = weightOf(n);
    sum += w, mean += list.Position(n.index) * w;
  }
  if (!(sum > 0)) return {};
  mean = mean / sum;
  Matrix3 covariance{{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}};
  for (const Neighbour& n : near) {
    const Vec3D x = list.Position(n.index) - mean, wx = x * (weightOf(n) / sum);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) covariance.m[r][c] += wx[r] * x[c];
    }
  }
  EigenSystem system = EigenSystemOf(covariance);
  if (system.values[2] > system.values[1]) {
    std::swap(system.values[1], system.values[2]);
    std::swap(system.vectors[1], system.vectors[2]);
  }
  const double largest = system.values[0];
  if (!(largest > 0)) return {};
  SheetAnisotropy result;
  result.scale = std::max(system.values[2], 0.0) / largest;
  double s[3];
  for (int k = 0; k < 3; ++k) s[k] = 1 / std::max(system.values[k], kLeastShare * largest);
  const double root = FastCubeRoot(s[0] * s[1] * s[2]);
  for (double& each : s) each = std::clamp(each / root, kLeastStretch, kMostStretch);
  result.stretches = {s[0], s[1], s[2]};
  result.matrix = StretchAlong(system.vectors, s);
  return result;
}

void WriteAnisotropy(const ParticleRows& rows, std::int32_t row, const SheetAnisotropy& anisotropy) {
  rows.NeedProperty<double>(PP::Anisotropy).Put(row, anisotropy.scale);
  rows.NeedProperty<Vec3D>(PP::StretchRow0).Put(row, anisotropy.matrix.Row(0));
  rows.NeedProperty<Vec3D>(PP::StretchRow1).Put(row, anisotropy.matrix.Row(1));
  rows.NeedProperty<Vec3D>(PP::StretchRow2).Put(row, anisotropy.matrix.Row(2));
  rows.NeedProperty<Vec3D>(PP::Stretches).Put(row, anisotropy.stretches);
}

}  // namespace orlix
