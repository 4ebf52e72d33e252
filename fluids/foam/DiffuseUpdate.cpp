#include "fluids/foam/DiffuseUpdate.h"

#include <algorithm>

#include "fluids/foam/ParticleSeeding.h"
#include "fluids/particles/DiffuseClass.h"

namespace orlix {

namespace {

constexpr std::int32_t kCrowded = 20;  // neighbours of one well inside the liquid

// The zones about the surface, m.
struct Layer {
  double height, lower, upper;
  explicit Layer(const FoamSettings& s)
      : height(s.surfaceOffset * s.cellSize), lower(height - s.cellSize), upper(height + 0.5 * s.cellSize) {}
};

double DistanceByNeighbours(std::int32_t about, const Layer& layer, double cellSize) {
  return about < ParticleSeeding::kSprayBelow ? 1.0 : about < kCrowded ? 0.0 : layer.height - 2 * cellSize;
}

// The flags that follow from a distance.
std::uint16_t Converted(std::uint16_t flags, double phi, const Layer& layer, const FoamSettings& s, bool& onLayer) {
  int f = flags;
  if ((f & ParticleFlag::Ballistic) != 0 && !(phi > layer.height)) {
    f &= s.sprayToFoam ? ~ParticleFlag::Ballistic : ~ParticleFlag::Alive;
  }
  if ((f & ParticleFlag::Drag) != 0 && phi > layer.lower) {
    f &= ~ParticleFlag::Drag;
    if (phi > layer.height) f |= ParticleFlag::Ballistic;
  }
  onLayer = false;
  if ((f & kDiffuseClassBits) != 0) return static_cast<std::uint16_t>(f);
  if (phi > layer.upper) {
    f = s.foamToSpray ? f | ParticleFlag::Ballistic : f & ~ParticleFlag::Alive;
  } else if (phi > layer.lower) {
    onLayer = true;
  } else {
    f |= ParticleFlag::Drag;
  }
  return static_cast<std::uint16_t>(f);
}

// The mean of the liquid within a cell, the nearer the heavier; its own where none is near.
Vec3D VelocityAbout(const ParticleGroup& liquid, const Vec3D& p, double cellSize, const Vec3D& own,
                    std::int32_t thread) {
  Vec3D sum;
  double weights = 0;
  for (const Neighbour& near : liquid.Nearest(PK_Liquid, p, cellSize, thread)) {
    const double w = 1 - near.distanceSquared / (cellSize * cellSize);
    sum += w * liquid.list(PK_Liquid)->Velocity(near.index), weights += w;
  }
  return weights > 0 ? sum / weights : own;
}

}  // namespace

void UpdateDiffuse(const FoamSettings& s, const FoamSurface& surface, const ParticleGroup& liquid,
                   const ParticleRows& rows, std::int32_t thread) {
  const Layer layer(s);
  const bool grid = surface.HasLevelSet();
  Vec3D* positions = rows.EditPositions();
  Vec3D* velocities = rows.EditVelocities();
  std::uint16_t* flags = rows.EditFlags();
  const auto ages = rows.Property<double>(PP::Age);
  const auto old = rows.Property<Vec3D>(PP::OldPosition);
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    if ((flags[r] & ParticleFlag::Excluded) != 0) {
      flags[r] = static_cast<std::uint16_t>(flags[r] & ~ParticleFlag::Excluded);
      continue;
    }
    const double phi = grid ? surface.Distance(positions[r])
                            : DistanceByNeighbours(liquid.NearestCount(PK_Liquid, positions[r], s.cellSize, thread),
                                                   layer, s.cellSize);
    bool onLayer;
    const bool rises = (flags[r] & ParticleFlag::Drag) != 0;
    flags[r] = Converted(flags[r], phi, layer, s, onLayer);
    // Bubbles live for ever: what comes of them has a life of its class, or none where that is off.
    if (rises && (flags[r] & ParticleFlag::Drag) == 0) {
      const ClassRules& rules = (flags[r] & ParticleFlag::Ballistic) != 0 ? s.spray : s.foam;
      if (!rules.enabled) flags[r] = static_cast<std::uint16_t>(flags[r] & ~ParticleFlag::Alive);
      if (ages.Has(r)) ages.Put(r, std::min(ages.Get(r, 0), rules.life.value * s.fps));
    }
    if (s.carried && (flags[r] & ParticleFlag::Ballistic) == 0) {
      velocities[r] = VelocityAbout(liquid, positions[r], s.cellSize, velocities[r], thread);
    }
    if (!onLayer || !grid) continue;
    // Where it was before comes along: it is drawn onto the layer, not moved by the flow.
    const Vec3D to = s.Inside(positions[r] - surface.Normal(positions[r]) * (phi - layer.height));
    if (old.Has(r)) old.Put(r, old.values()[r] + (to - positions[r]));
    positions[r] = to;
  }
}

}  // namespace orlix
