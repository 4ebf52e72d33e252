#include "fluids/particle_operators/ParticleCorrection.h"

#include <algorithm>
#include <cmath>

#include "fluids/particles/NeighbourWalk.h"
#include "fluids/particles/OrlixParticle.h"

namespace orlix {

namespace {

constexpr double kMargin = 0.001;  // cells below a surface at which a particle is left

// One of 0 to 100 for a pair, in the order in which they ask (Steele, Lea and Flood 2014).
double RandomOf(std::uint64_t seed, std::int32_t id, std::int32_t other) {
  std::uint64_t z = seed + 0x9E3779B97F4A7C15u * ((std::uint64_t(std::uint32_t(id)) << 32 | std::uint32_t(other)) + 1);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return static_cast<double>((z ^ (z >> 31)) % 101);
}

Vec3D SoftPush(const CorrectionSettings& s, const Vec3D& x) {
  const Vec3D local = x - s.solid.origin();
  const double d = std::abs(s.solid.DistanceLocal(local)), reach = s.radius / 2;
  if (!(d > 0 && d < reach)) return {};
  const double size = reach * (8 / std::sqrt(3.0)) * s.strength * std::max(0.0, 1 - d * d / (reach * reach));
  const Vec3D push = s.solid.GradientLocal(local) * size;
  return LengthSquared(push) > reach ? Normalized(push) * reach : push;
}

void KeepOutside(const CorrectionSettings& s, const Vec3D& x, Vec3D& q) {
  if (!s.solid.HasData()) {
    for (const VolumeBase* volume : s.volumes) {
      if (volume->PushOut(q, true, kMargin)) return;
    }
  } else if (s.softBoundary) {
    q += SoftPush(s, x);
  } else {
    Vec3D local = q - s.solid.origin();
    if (s.solid.ResolveCollision(local, kMargin * s.cellSize)) q = local + s.solid.origin();
  }
}

}  // namespace

void CorrectPositions(WorkerPool& pool, const CorrectionSettings& s, ParticleList& list, const ParticleKdTree& tree,
                      const Corrected& corrected) {
  const double r2 = s.radius * s.radius, near = 0.1 * s.radius, randomStep = s.radius * 0.01 * 0.01 / s.dt;
  const auto push = [&](std::int32_t index, std::span<const Neighbour> neighbours, std::int32_t) {
    const Vec3D x = list.Position(index);
    Vec3D sum;
    for (const Neighbour& j : neighbours) {
      if (j.index == index || j.distance == 0) continue;
      if (j.distance <= near) {
        sum += Vec3D(RandomOf(s.seed, list.Id(index), list.Id(j.index)) * randomStep);
      } else {
        const double w = std::max(0.0, 1 - j.distanceSquared / r2);
        sum += (x - list.Position(j.index)) * (s.strength * s.radius * w / j.distance);
      }
    }
    const double factor = OrlixParticle(&list, index).GetRealOr(PP::ConstraintWeight, 1);
    Vec3D q = x + sum * (factor * s.amount * s.dt);
    KeepOutside(s, x, q);
    corrected.positions[static_cast<std::size_t>(index)] = q;
  };
  ForEachNeighbourhoodAt(
      tree, pool, s.radius,
      [&](std::int32_t index) {
        return corrected.weights[static_cast<std::size_t>(index)] != 0 ? &list.Position(index) : nullptr;
      },
      push);
}

void CorrectVelocities(WorkerPool& pool, const CorrectionSettings& s, ParticleList& list, const ParticleKdTree& tree,
                       const Corrected& corrected) {
  const double r2 = s.radius * s.radius;
  const auto follow = [&](std::int32_t index, std::span<const Neighbour> neighbours, std::int32_t) {
    Vec3D mean, byMass;
    double total = 0, mass = 0;
    for (const Neighbour& j : neighbours) {
      const double m = OrlixParticle(&list, j.index).GetRealOr(PP::Mass, 1);
      const double w = std::max(0.0, r2 / std::max(j.distanceSquared, 1e-5) - 1) * m;
      mean += list.Velocity(j.index) * w, total += w;
      byMass += list.Velocity(j.index) * m, mass += m;
    }
    const Vec3D fallback = s.fallbackMean ? (mass != 0 ? byMass / mass : Vec3D()) : list.Velocity(index);
    corrected.velocities[static_cast<std::size_t>(index)] = total != 0 ? mean / total : fallback;
  };
  ForEachNeighbourhoodAt(
      tree, pool, s.radius,
      [&](std::int32_t index) {
        const auto at = static_cast<std::size_t>(index);
        return corrected.weights[at] != 0 ? &corrected.positions[at] : nullptr;
      },
      follow);
}

void TakeCorrected(const Corrected& corrected, const ParticleRows& rows) {
  Vec3D *positions = rows.EditPositions(), *velocities = rows.EditVelocities();
  for (std::int32_t row = rows.begin; row < rows.end; ++row) {
    const auto at = static_cast<std::size_t>(rows.first + row);
    if (corrected.weights[at] == 0) continue;
    positions[row] = corrected.positions[at];
    velocities[row] = corrected.velocities[at];
  }
}

}  // namespace orlix
