#include "fluids/particles/AnisotropyPass.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr double kLeastWeight = 0.01, kLeastSpeed = 0.01, kNearlyParallel = 0.01;

void DivideByCubeRootOfProduct(double (&s)[3]) {
  const double root = FastCubeRoot(s[0] * s[1] * s[2]);
  for (double& each : s) each /= root;
}

// The weighted covariance; false when there is too little to tell.
bool Covariance(std::span<const Vec3D> points, std::span<const Neighbour> near, double h, Matrix3& covariance) {
  double sum = 0;
  Vec3D mean;
  const auto weightOf = [h](const Neighbour& n) {
    const double q = n.distance / h;
    return 1 - q * q * q;
  };
  for (const Neighbour& n : near) {
    const double w = weightOf(n);
    sum += w;
    mean += points[static_cast<std::size_t>(n.index)] * w;
  }
  if (sum < kLeastWeight) return false;
  mean = mean / sum;
  covariance = {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}};
  for (const Neighbour& n : near) {
    const Vec3D x = points[static_cast<std::size_t>(n.index)] - mean, wx = x * (weightOf(n) / sum);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) covariance.m[r][c] += wx[r] * x[c];
    }
  }
  return true;
}

}  // namespace

Anisotropy AnisotropyByNeighbourhood(const AnisotropySettings& settings, std::span<const Vec3D> points,
                                     std::span<const Neighbour> near) {
  Matrix3 covariance;
  if (!Covariance(points, near, settings.radius * settings.radiusFactor, covariance)) return {};
  const EigenSystem system = EigenSystemOf(covariance);
  const double largest = system.values[0], floor = largest / settings.maxRatio;
  if (!(largest > 0)) return {};  // all in one point
  double s[3] = {1 / largest, 1 / std::max(system.values[1], floor), 1 / std::max(system.values[2], floor)};
  DivideByCubeRootOfProduct(s);
  const double span = double(settings.maxNeighbours) - double(settings.minNeighbours);
  const double above = double(near.size()) - double(settings.minNeighbours);
  const double t = above <= 0 ? 0 : span > 0 ? above / span : 1;
  for (double& each : s) each = std::pow(each, t);
  DivideByCubeRootOfProduct(s);
  return {StretchAlong(system.vectors, s), 1 / s[0]};
}

Anisotropy AnisotropyByVelocity(const AnisotropySettings& settings, const Vec3D& velocity) {
  const double speed = Length(velocity);
  if (!(speed > kLeastSpeed)) return {};
  const double a = 1 + std::min(std::cbrt(settings.maxRatio) - 1, speed * settings.velocityStretch);
  const Vec3D u = velocity / speed;
  Vec3D p = Cross(u, Vec3D(0, 1, 0));
  if (LengthSquared(p) < kNearlyParallel) p = Cross(u, Vec3D(1, 0, 0));
  p = Normalized(p);
  const Vec3D rows[3] = {u / (a * a), p * a, Normalized(Cross(p, u)) * a};
  Anisotropy result;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) result.matrix.m[r][c] = rows[r][c];
  }
  result.scale = a * a;
  return result;
}

void RunAnisotropyPass(const AnisotropySettings& settings, std::span<const Vec3D> points, WorkerPool& pool,
                       std::span<Anisotropy> results) {
  if (settings.mode == AnisotropySettings::Mode::ByVelocity) {
    ParallelRange(pool, 0, static_cast<int>(points.size()), [&](int from, int to, int) {
      for (auto i = static_cast<std::size_t>(from); i < static_cast<std::size_t>(to); ++i) {
        results[i] = AnisotropyByVelocity(settings, points[i]);
      }
    });
    return;
  }
  ParticleKdTree tree;
  tree.Build(points, pool);
  tree.SetCapacity(static_cast<std::int32_t>(settings.maxNeighbours));
  ForEachNeighbourhood(tree, pool, settings.radius * settings.radiusFactor,
                       [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t) {
                         results[static_cast<std::size_t>(i)] = AnisotropyByNeighbourhood(settings, points, near);
                       });
}

}  // namespace orlix
