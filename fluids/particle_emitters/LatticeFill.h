#pragma once
// The places at which a volume emits: a jittered lattice in each voxel, finer or coarser by how deep the voxel lies.
//
//   a voxel is deep when its distance is below deepBelow; then it has the deep lattice and looks for particles at the
//   distance of the shallow one, otherwise the other way round
//   a place is refused outside the band, where the deep lattice owns the ground, and too close to a particle that was
//   there before
//
//   LatticeFill fill;  fill.deep = LatticeOf(h, 1, 1), ...
//   if (fill.Reaches(d)) { wanted = fill.Looked(d).count - near.size(); fill.Walk(corner, d, near, wanted, ...); }

#include <algorithm>
#include <cmath>
#include <span>

#include "fluids/level_sets/LevelSetView.h"
#include "globals/Random.h"

namespace orlix {

struct EmissionLattice {
  double spacing = 0;
  double minimumDistance = 0;  // between particles
  std::int32_t count = 0;      // places in a voxel
};
// A voxel of edge h cut in 2^subdivision along each axis; separation is the minimum distance in spacings.
inline EmissionLattice LatticeOf(double h, std::int32_t subdivision, double separation) {
  const std::int32_t perAxis = 1 << subdivision;
  const double spacing = h / perAxis;
  return {spacing, spacing * separation, perAxis * perAxis * perAxis};
}

struct LatticeFill {
  LevelSetView levelSet;
  double cellSize = 0;  // m, of a voxel
  double jitter = 0;    // m, at most, on each axis
  EmissionLattice deep, shallow;
  double inner = 0, outer = 0;  // the band of distances that emits, m
  double deepBelow = 0;         // m
  bool unlimited = true;        // the band has no inner limit
  bool wholeBand = true;

  bool IsDeep(double d) const { return d < deepBelow; }
  // The lattice that fills a voxel at this distance, and the one by which it looks for particles.
  const EmissionLattice& Filled(double d) const { return IsDeep(d) ? deep : shallow; }
  const EmissionLattice& Looked(double d) const { return IsDeep(d) ? shallow : deep; }

  // The greatest distance at which any voxel looks for particles.
  double Widest() const { return std::max(deep.minimumDistance, shallow.minimumDistance); }

  // Whether a voxel whose centre has this distance may emit; a voxel's edge of slack.
  bool Reaches(double d) const {
    if (wholeBand) return d - (cellSize + outer) < 0;
    return d - cellSize < 0 || unlimited || !(d - inner < 0);
  }

  // Visits the voxel's places from its corner (simulation space), x fastest, until wanted are emitted or refused by the
  // band. near: what was there before. accept(place) -> bool; emit(place). Three draws a place: z, y, x.
  template <class Accept, class Emit>
  void Walk(const Vec3D& corner, double d, std::span<const Vec3D> near, std::int64_t wanted, MersenneTwister& random,
            Accept&& accept, Emit&& emit) const;

 private:
  double Jitter(MersenneTwister& random) const { return (2 * random.Uniform() - 1) * jitter; }
  bool InBand(double d) const { return d - outer < 0 && (unlimited || !(d - inner < 0)); }
};

template <class Accept, class Emit>
void LatticeFill::Walk(const Vec3D& corner, double d, std::span<const Vec3D> near, std::int64_t wanted,
                       MersenneTwister& random, Accept&& accept, Emit&& emit) const {
  const bool isDeep = IsDeep(d);
  const double step = Filled(d).spacing, start = step * 0.5;
  const double closest = Looked(d).minimumDistance * Looked(d).minimumDistance;
  const auto crowded = [&](const Vec3D& place) {
    for (const Vec3D& other : near) {
      if (LengthSquared(place - other) < closest) return true;
    }
    return false;
  };
  for (double z = start; z < cellSize; z += step) {
    for (double y = start; y < cellSize; y += step) {
      for (double x = start; x < cellSize; x += step) {
        if (wanted < 1) return;
        const double jitterZ = Jitter(random), jitterY = Jitter(random), jitterX = Jitter(random);
        const Vec3D place = corner + Vec3D(x + jitterX, y + jitterY, z + jitterZ);
        const double distance = levelSet.Sample(levelSet.IndexOfWorld(place));
        if (!InBand(distance)) {
          --wanted;
          continue;
        }
        if (!isDeep && distance < deepBelow) continue;
        if (crowded(place) || !accept(place)) continue;
        emit(place);
        --wanted;
      }
    }
  }
}

}  // namespace orlix
