#include "host/render/SmoothNormals.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orlix {

namespace {

// Beyond this many faces around a point, as at the pole of a fine sphere, they are slivers: their own normal will do,
// and looking at all pairs would take for ever.
constexpr std::uint32_t kMaxFacesAround = 512;

double AngleAt(const Vec3D& corner, const Vec3D& a, const Vec3D& b) {
  return std::acos(std::clamp(Dot(Normalized(a - corner), Normalized(b - corner)), -1.0, 1.0));
}

}  // namespace

std::vector<Vec3F> SmoothNormals(std::span<const Vec3D> points, std::span<const std::int32_t> corners, double angle) {
  const std::size_t triangles = corners.size() / 3;
  const auto point = [&](std::size_t corner) -> const Vec3D& {
    return points[static_cast<std::size_t>(corners[corner])];
  };
  std::vector<Vec3D> face(triangles);
  for (std::size_t t = 0; t < triangles; ++t) {
    const Vec3D& a = point(3 * t);
    face[t] = Normalized(Cross(point(3 * t + 1) - a, point(3 * t + 2) - a));
  }
  // Corners by point: those of point p stand in order[first[p]] to order[first[p + 1] - 1].
  std::vector<std::uint32_t> first(points.size() + 1, 0), order(corners.size());
  for (const std::int32_t p : corners) ++first[static_cast<std::size_t>(p) + 1];
  for (std::size_t p = 0; p < points.size(); ++p) first[p + 1] += first[p];
  std::vector<std::uint32_t> next(first.begin(), first.end() - 1);
  for (std::size_t c = 0; c < corners.size(); ++c) {
    order[next[static_cast<std::size_t>(corners[c])]++] = static_cast<std::uint32_t>(c);
  }

  const double least = std::cos(std::clamp(angle, 0.0, 180.0) * (std::numbers::pi / 180)) - 1e-9;
  std::vector<double> weight(corners.size());
  for (std::size_t c = 0; c < corners.size(); ++c) {
    const std::size_t t = c / 3 * 3;
    weight[c] = AngleAt(point(c), point(t + (c + 1 - t) % 3), point(t + (c + 2 - t) % 3));
  }
  std::vector<Vec3F> normals(corners.size());
  for (std::size_t c = 0; c < corners.size(); ++c) {
    const auto p = static_cast<std::size_t>(corners[c]);
    Vec3D sum;
    for (std::uint32_t i = first[p]; i < first[p + 1] && first[p + 1] - first[p] <= kMaxFacesAround; ++i) {
      const std::uint32_t other = order[i];
      if (Dot(face[other / 3], face[c / 3]) >= least) sum += face[other / 3] * weight[other];
    }
    const Vec3D mean = Normalized(sum);
    normals[c] = Vec3F(mean == Vec3D() ? face[c / 3] : mean);
  }
  return normals;
}

}  // namespace orlix
