#pragma once
// Births by the liquid's particles: where a wave breaks or traps air, in proportion to what energy it has.
//
//   trapped air  e = sum |u| (1 - u/|u| . x/|x|) w / sum w,   u = (v_i - v_j) / dt,  x = x_i - x_j,  w = 1 - |x|^2 /
//   h^2 wave crest   e = curvature where the particle moves outward, v/|v| . n >= 0.6, else 0 energy       e = m |v|^2
//   / 2
//
//   n = (crest rate x crest + trapped air rate x air) x energy x time, each a potential of 0 to 1
//
// A candidate stands in a cylinder along the motion; how much liquid is about it makes it spray, foam or a bubble.

#include <atomic>

#include "fluids/foam/DiffuseBirth.h"
#include "fluids/foam/FoamSurface.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/position_based/NeighbourTable.h"

namespace orlix {

// The liquid's particles by cells, in cells from their middle.
class LiquidCells {
 public:
  void Build(const ParticleList& list, double cellSize, const Vec3D& origin, WorkerPool& pool);
  void Clear() { table_.Clear(), flat_ = {}; }
  // f(index) of particles nearer than a cell, of kMost at most and without one on the very spot.
  template <class F>
  void ForNear(const Vec3D& p, F&& f) const {
    std::int32_t places[NeighbourTable::kMostNeighbours + 16];
    const std::int32_t n = table_.Near(At(p), NeighbourTable::kMostNeighbours, places);
    for (std::int32_t i = 0; i < n; ++i) f(table_.points()[static_cast<std::size_t>(places[i])]);
  }
  // How many, counted up to most.
  std::int32_t Count(const Vec3D& p, std::int32_t most) const {
    std::int32_t places[64];
    return table_.Near(At(p), most, places);
  }

 private:
  Site At(const Vec3D& p) const {
    const Vec3D c = (p - origin_) * perCell_;
    return {static_cast<float>(c.x), static_cast<float>(c.y), static_cast<float>(c.z), 0};
  }
  Vec3D origin_;
  double perCell_ = 1;
  CountedVector<Site> flat_;
  NeighbourTable table_;
};

class ParticleSeeding {
 public:
  // neighbours about a candidate: fewer than these are spray, fewer than these foam, more bubbles.
  static constexpr std::int32_t kSprayBelow = 6, kFoamBelow = 21;
  // Candidates of all rows; beyond these none is drawn.
  static constexpr std::int64_t kMostCandidates = 20000000;

  // sortedOnly: particles outside the liquid solver's lattice make nothing.
  ParticleSeeding(const FoamSettings& settings, const FoamSurface& surface, const ParticleList& liquid,
                  const LiquidCells& cells, bool sortedOnly)
      : s_(settings), surface_(surface), list_(liquid), cells_(cells), sortedOnly_(sortedOnly) {}

  // Rows of one chunk; a weight of 0 leaves a row out.
  void Seed(const ParticleRows& rows, const double* weights, FoamRandom& random, DiffuseBirths& births) const;

  // How many candidates the rates came to.
  std::int64_t Candidates() const { return candidates_.load(); }

  // Sums of a particle, before they become potentials.
  double TrappedAir(const Vec3D& position, const Vec3D& velocity) const;
  static double Crest(double curvature, const Vec3D& velocity, const Vec3D& normal) {
    return Dot(Normalized(velocity), normal) >= 0.6 ? curvature : 0;
  }

 private:
  struct Source {
    Vec3D position, velocity, normal;  // velocity as stored
    double curvature;
  };
  void Draw(const Source& source, std::int64_t count, FoamRandom& random, DiffuseBirths& births) const;
  bool Passes(const ClassRules& rules, double curvature, double squaredSpeed, FoamRandom& random) const {
    return rules.enabled && curvature >= rules.curvature &&
           random.Scale(rules.speedVariation) * squaredSpeed >= rules.speed;
  }

  const FoamSettings& s_;
  const FoamSurface& surface_;
  const ParticleList& list_;
  const LiquidCells& cells_;
  const bool sortedOnly_;
  mutable std::atomic<std::int64_t> candidates_{0};
};

}  // namespace orlix
