#include "fluids/particles/AnisotropyPass.h"

#include <algorithm>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kLeastWeight = 0.01, kLeastSpeed = 0.01, kNearlyParallel = 0.01;

void DivideByCubeRootOfProduct(double (&s)[3]) {
  const double root = FastCubeRoot(s[0] * s[1] * s[2]);
  for (double& each : s) each /= root;
}

constexpr std::size_t kTogether = 32;  // neighbours whose sums are made, and balls that are stretched
constexpr std::size_t kLanes = 4;
using Four = double __attribute__((vector_size(32)));

struct NearPoints {
  double x[kTogether], y[kTogether], z[kTogether], distance[kTogether];
};

ORLIX_INLINE void Load(Four& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }

// Adds w, w x, w y, w z, w xx, w xy, w xz, w yy, w yz and w zz of the points, whose count is one of whole vectors.
ORLIX_MULTIVERSION void AddMoments(const NearPoints& near, std::size_t count, double h, double (&moments)[10]) {
  Four sums[10] = {};
  for (std::size_t n = 0; n < count; n += kLanes) {
    Four x, y, z, q;
    Load(x, near.x + n), Load(y, near.y + n), Load(z, near.z + n), Load(q, near.distance + n);
    q /= h;
    const Four w = 1 - q * q * q, wx = w * x, wy = w * y, wz = w * z;
    sums[0] += w, sums[1] += wx, sums[2] += wy, sums[3] += wz;
    sums[4] += wx * x, sums[5] += wx * y, sums[6] += wx * z;
    sums[7] += wy * y, sums[8] += wy * z, sums[9] += wz * z;
  }
  for (int m = 0; m < 10; ++m) moments[m] += (sums[m][0] + sums[m][1]) + (sums[m][2] + sums[m][3]);
}

// The weighted covariance, from sums about the nearest point; false when there is too little to tell.
bool Covariance(std::span<const Vec3D> points, std::span<const Neighbour> near, double h, Matrix3& covariance) {
  if (near.empty()) return false;
  const Vec3D centre = points[static_cast<std::size_t>(near[0].index)];
  double moments[10] = {};
  NearPoints some;
  for (std::size_t from = 0; from < near.size(); from += kTogether) {
    const std::size_t many = std::min(near.size() - from, kTogether);
    for (std::size_t n = 0; n < many; ++n) {
      const Neighbour& each = near[from + n];
      const Vec3D x = points[static_cast<std::size_t>(each.index)] - centre;
      some.x[n] = x.x, some.y[n] = x.y, some.z[n] = x.z, some.distance[n] = each.distance;
    }
    const std::size_t count = (many + kLanes - 1) / kLanes * kLanes;
    for (std::size_t n = many; n < count; ++n)
      some.x[n] = some.y[n] = some.z[n] = 0, some.distance[n] = h;  // no weight
    AddMoments(some, count, h, moments);
  }
  const double sum = moments[0];
  if (sum < kLeastWeight) return false;
  const Vec3D m = Vec3D(moments[1], moments[2], moments[3]) / sum;
  const double xx = moments[4] / sum - m.x * m.x, xy = moments[5] / sum - m.x * m.y, xz = moments[6] / sum - m.x * m.z,
               yy = moments[7] / sum - m.y * m.y, yz = moments[8] / sum - m.y * m.z, zz = moments[9] / sum - m.z * m.z;
  covariance = {{{xx, xy, xz}, {xy, yy, yz}, {xz, yz, zz}}};
  return true;
}

// A covariance on its way to a stretch: scale holds the count of neighbours, 0 where there is too little to tell.
Anisotropy Gathered(const AnisotropySettings& settings, std::span<const Vec3D> points,
                    std::span<const Neighbour> near) {
  Anisotropy result;
  const bool told = Covariance(points, near, settings.radius * settings.radiusFactor, result.matrix);
  result.scale = told ? double(near.size()) : 0;
  return result;
}

Anisotropy StretchOf(const AnisotropySettings& settings, const EigenSystem& system, double neighbours) {
  const double largest = system.values[0], floor = largest / settings.maxRatio;
  if (!(largest > 0) || neighbours == 0) return {};  // all in one point
  double s[3] = {1 / largest, 1 / std::max(system.values[1], floor), 1 / std::max(system.values[2], floor)};
  DivideByCubeRootOfProduct(s);
  const double span = double(settings.maxNeighbours) - double(settings.minNeighbours);
  const double above = neighbours - double(settings.minNeighbours);
  const double t = above <= 0 ? 0 : span > 0 ? above / span : 1;
  if (t != 1) {
    for (double& each : s) each = std::pow(each, t);
  }
  DivideByCubeRootOfProduct(s);
  return {StretchAlong(system.vectors, s), 1 / s[0]};
}

// In place, at most kTogether.
void Stretch(const AnisotropySettings& settings, std::span<Anisotropy> gathered) {
  Matrix3 covariances[kTogether];
  EigenSystem systems[kTogether];
  for (std::size_t n = 0; n < gathered.size(); ++n) covariances[n] = gathered[n].matrix;
  FindEigenSystems({covariances, gathered.size()}, {systems, gathered.size()});
  for (std::size_t n = 0; n < gathered.size(); ++n) gathered[n] = StretchOf(settings, systems[n], gathered[n].scale);
}

}  // namespace

Anisotropy AnisotropyByNeighbourhood(const AnisotropySettings& settings, std::span<const Vec3D> points,
                                     std::span<const Neighbour> near) {
  Anisotropy result = Gathered(settings, points, near);
  Stretch(settings, {&result, 1});
  return result;
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
  std::ranges::fill(results, Anisotropy{.matrix = {}, .scale = 0});  // also of what the tree leaves out
  ParticleKdTree tree;
  tree.Build(points, pool);
  tree.SetCapacity(static_cast<std::int32_t>(settings.maxNeighbours));
  ForEachNeighbourhood(tree, pool, settings.radius * settings.radiusFactor,
                       [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t) {
                         results[static_cast<std::size_t>(i)] = Gathered(settings, points, near);
                       });
  ParallelRange(pool, 0, static_cast<int>((results.size() + kTogether - 1) / kTogether), [&](int from, int to, int) {
    for (auto b = static_cast<std::size_t>(from); b < static_cast<std::size_t>(to); ++b) {
      Stretch(settings, results.subspan(b * kTogether, std::min(kTogether, results.size() - b * kTogether)));
    }
  });
}

}  // namespace orlix
