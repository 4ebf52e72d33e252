#pragma once
// The places at which a volume emits: a jittered lattice in each voxel, finer or coarser by how deep the voxel lies.
//
//   a voxel is deep when its distance is below deepBelow; then it has the deep lattice and looks for particles at the
//   distance of the shallow one, otherwise the other way round
//   a place is refused outside the band, where the deep lattice owns the ground, and too close to a particle that was
//   there before
//   a voxel lacks what its lattice has more than it holds; of that the share is emitted that the whole band lacks,
//   since particles that stroll across the borders of voxels would be made up for again and again
//
//   LatticeFill fill;  fill.deep = LatticeOf(h, 1, 1), ...
//   if (fill.Reaches(d)) fill.Walk(corner, d, near, fill.Looked(d).count - held, lacks.Share(), random, places, ...);

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

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

// What the voxels of a band lack of their places: all together, and those alone that lack some.
struct BandLacks {
  double all = 0, some = 0;

  double Share() const { return some > 0 ? std::clamp(all / some, 0.0, 1.0) : 1; }
};

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

  // How much of a voxel whose centre has this distance lies in the band, as if the band's sides were level there.
  double ShareInBand(double d) const {
    const auto below = [&](double side) { return std::clamp(0.5 - (d - side) / cellSize, 0.0, 1.0); };
    return unlimited ? below(outer) : std::max(0.0, below(outer) - below(inner));
  }
  // A voxel that holds so many of so many at most. More than twice its places count as twice, and none that lie about
  // the band's sides.
  void AddLack(double d, std::int32_t held, std::int32_t most, BandLacks& lacks) const {
    const double share = ShareInBand(d), places = share * most;
    const double lack = std::max(places - held, share < kWhole ? 0 : -places);
    lacks.all += lack, lacks.some += std::max(lack, 0.0);
  }

  // Emits the share of lack at the voxel's places, from its corner (simulation space), x fastest; a place outside the
  // band isn't lacked. near: what was there before. places: to work in. accept(place) -> bool; emit(place). Three draws
  // a place: z, y, x; one more where the share isn't 1.
  template <class Accept, class Emit>
  void Walk(const Vec3D& corner, double d, std::span<const Vec3D> near, std::int64_t lack, double share,
            MersenneTwister& random, std::vector<Vec3D>& places, Accept&& accept, Emit&& emit) const;

 private:
  static constexpr double kWhole = 0.999;  // distances are rounded

  double Jitter(MersenneTwister& random) const { return (2 * random.Uniform() - 1) * jitter; }
  bool InBand(double d) const { return d - outer < 0 && (unlimited || !(d - inner < 0)); }
};

template <class Accept, class Emit>
void LatticeFill::Walk(const Vec3D& corner, double d, std::span<const Vec3D> near, std::int64_t lack, double share,
                       MersenneTwister& random, std::vector<Vec3D>& places, Accept&& accept, Emit&& emit) const {
  const bool isDeep = IsDeep(d);
  const double step = Filled(d).spacing, start = step * 0.5;
  places.clear();
  for (double z = start; z < cellSize; z += step) {
    for (double y = start; y < cellSize; y += step) {
      for (double x = start; x < cellSize; x += step) {
        const double jitterZ = Jitter(random), jitterY = Jitter(random), jitterX = Jitter(random);
        const Vec3D place = corner + Vec3D(x + jitterX, y + jitterY, z + jitterZ);
        const double distance = levelSet.Sample(levelSet.IndexOfWorld(place));
        if (!InBand(distance)) {
          --lack;
        } else if (isDeep || !(distance < deepBelow)) {
          places.push_back(place);
        }
      }
    }
  }
  if (share != 1) lack = static_cast<std::int64_t>(std::floor(static_cast<double>(lack) * share + random.Uniform()));
  const double closest = Looked(d).minimumDistance * Looked(d).minimumDistance;
  const auto crowded = [&](const Vec3D& place) {
    return std::any_of(near.begin(), near.end(),
                       [&](const Vec3D& other) { return LengthSquared(place - other) < closest; });
  };
  for (const Vec3D& place : places) {
    if (lack < 1) return;
    if (crowded(place) || !accept(place)) continue;
    emit(place);
    --lack;
  }
}

}  // namespace orlix
