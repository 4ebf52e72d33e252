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

#include "fluids/foam/DiffuseBirth.h"
#include "fluids/foam/FoamSurface.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class ParticleSeeding {
 public:
  // neighbours about a candidate: fewer than these are spray, fewer than these foam, more bubbles.
  static constexpr std::int32_t kSprayBelow = 6, kFoamBelow = 21;

  // The group's tree of liquid is there. sortedOnly: particles outside the liquid solver's lattice make nothing.
  ParticleSeeding(const FoamSettings& settings, const FoamSurface& surface, const ParticleGroup& group, bool sortedOnly)
      : s_(settings), surface_(surface), group_(group), list_(*group.list(PK_Liquid)), sortedOnly_(sortedOnly) {}

  // Rows of one chunk; a weight of 0 leaves a row out.
  void Seed(const ParticleRows& rows, const double* weights, FoamRandom& random, DiffuseBirths& births,
            std::int32_t thread) const;

  // Sums of a particle, before they become potentials.
  double TrappedAir(const Vec3D& position, const Vec3D& velocity, std::int32_t thread) const;
  static double Crest(double curvature, const Vec3D& velocity, const Vec3D& normal) {
    return Dot(Normalized(velocity), normal) >= 0.6 ? curvature : 0;
  }

 private:
  struct Source {
    Vec3D position, velocity, normal;  // velocity as stored
    double curvature;
  };
  void Draw(const Source& source, std::int64_t count, FoamRandom& random, DiffuseBirths& births,
            std::int32_t thread) const;
  bool Passes(const ClassRules& rules, double curvature, double squaredSpeed, FoamRandom& random) const {
    return rules.enabled && curvature >= rules.curvature &&
           random.Scale(rules.speedVariation) * squaredSpeed >= rules.speed;
  }

  const FoamSettings& s_;
  const FoamSurface& surface_;
  const ParticleGroup& group_;
  const ParticleList& list_;
  const bool sortedOnly_;
};

}  // namespace orlix
