#pragma once
// Births on the liquid's mesh: each triangle is covered with a lattice of samples, and one that is curved and fast
// enough throws off spray, or makes foam where it also swirls.

#include "fluids/advection/VelocityTrace.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/foam/DiffuseBirth.h"
#include "fluids/foam/FoamSurface.h"

namespace orlix {

// The solver's velocity. Metres and simulation space.
struct FoamField {
  VelocityView velocity;
  Vec3D origin;         // of its lattice
  double cellSize = 1;  // m

  Vec3D At(const Vec3D& p) const { return velocity.At((p - origin) / cellSize); }
  // 1/s, central over two cells; zero nearer than a cell to the lattice's border.
  Vec3D Curl(const Vec3D& p) const;
};

class MeshSeeding {
 public:
  // What lets a sample pass and where it lies; filled by Keeps.
  MeshSeeding(const FoamSettings& settings, const FoamSurface& surface, const FoamField& field,
              std::span<Constraint* const> constraints, const iBase* caller)
      : s_(settings), surface_(surface), field_(field), constraints_(constraints), caller_(caller) {}

  void Seed(std::int32_t triangle, FoamRandom& random, DiffuseBirths& births, std::int32_t thread) const;

 private:
  struct Triangle {
    Vec3D corner[3], normal;
    double curvature[3];
  };
  Triangle TriangleOf(std::int32_t index) const;
  // corners of the triangle in its plane's coordinates, sample and base in them.
  void SeedAt(const Triangle& t, const double weights[3], FoamRandom& random, DiffuseBirths& births,
              std::int32_t thread) const;

  const FoamSettings& s_;
  const FoamSurface& surface_;
  const FoamField& field_;
  std::span<Constraint* const> constraints_;
  const iBase* caller_;
};

}  // namespace orlix
