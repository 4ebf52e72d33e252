#include "host/render/SkyMap.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orlix {

void SkyMap::Build(const BaseObject& object, const Shader& shader) {
  std::vector<Vec3F> colours;
  colours.reserve(std::size_t(kWidth) * kHeight);
  std::vector<Vec3D> row(kWidth);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      row[static_cast<std::size_t>(x)] = {(x + 0.5) / kWidth, (y + 0.5) / kHeight, 0};
    }
    shader.Colours(object, Shader::PlaceKind::Texture, row, row);
    for (const Vec3D& c : row) colours.emplace_back(IsFinite(c) ? Max(c, Vec3D()) : Vec3D());
  }
  colours_ = std::move(colours);
}

Vec3D SkyMap::Colour(const Vec3D& direction) const {
  const double turn = 0.5 + std::atan2(direction.x, -direction.z) / (2 * std::numbers::pi);
  const double rise = 0.5 + std::asin(std::clamp(direction.y, -1.0, 1.0)) / std::numbers::pi;
  const double x = turn * kWidth - 0.5, y = std::clamp(rise * kHeight - 0.5, 0.0, kHeight - 1.0);
  const int column = static_cast<int>(std::floor(x)), line = std::min(static_cast<int>(y), kHeight - 2);
  const auto at = [&](int i, int j) {
    const Vec3F& c = colours_[static_cast<std::size_t>(j) * kWidth + static_cast<std::size_t>((i + kWidth) % kWidth)];
    return Vec3D(c.x, c.y, c.z);
  };
  const double fx = x - column, fy = y - line;
  return (at(column, line) * (1 - fx) + at(column + 1, line) * fx) * (1 - fy) +
         (at(column, line + 1) * (1 - fx) + at(column + 1, line + 1) * fx) * fy;
}

}  // namespace orlix
