#pragma once
// What decides where a liquid throws off foam, spray and bubbles, as the kernels take it (Ihmsen, Akinci, Akinci,
// Teschner 2012, "Unified spray, foam and air bubbles for particle-based fluids").

#include <cstdint>
#include <limits>

#include "globals/Random.h"
#include "globals/Vec.h"

namespace orlix {

enum class FoamSource : std::int32_t { Mesh = 0, Particles = 1 };

// A value and the share of it that chance may take away.
struct Varied {
  double value = 0, variation = 0;
};
// A potential rises from 0 at low to 1 at high.
struct PotentialRange {
  double low = 0, high = 1;
  double Of(double e) const {
    const double span = high - low;
    if (span <= 0) return e > low ? 1 : 0;
    return ((e < high ? e : high) - (e < low ? e : low)) / span;
  }
};

// One stream of chance: all that a piece of the work draws.
class FoamRandom {
 public:
  explicit FoamRandom(MersenneTwister generator) : generator_(generator) {}
  double Rand() { return generator_.Uniform(); }
  // 1 less a chance share; draws nothing without a share.
  double Scale(double share) { return share == 0 ? 1.0 : 1 - Rand() * share; }
  double Vary(const Varied& x) { return x.variation == 0 ? x.value : x.value - Rand() * x.value * x.variation; }

 private:
  MersenneTwister generator_;
};

// What a class asks of a place.
struct ClassRules {
  bool enabled = true;
  double curvature = 0;  // 1/m, at least
  double speed = 0;      // squared, at least
  double speedVariation = 0;
  double second = 0;  // squared, at least: of foam the vorticity, of spray again the speed; on meshes
  double secondVariation = 0;
  Varied life;  // s
};

struct FoamSettings {
  FoamSource source = FoamSource::Mesh;
  ClassRules foam, spray;
  bool bubbles = true;
  bool foamToSpray = true, sprayToFoam = true;
  double surfaceOffset = 0;  // cells
  double sprayMass = 0.3, sprayDrag = 0.3;
  Varied sprayBoost, sprayAngle;                 // a factor; radians
  double sprayKick = 0, sprayKickVariation = 0;  // m/s
  bool sprayKeepSpeed = false;
  double crestRate = 0, trappedAirRate = 0;  // 1/s, of one liquid particle
  PotentialRange crest, trappedAir, energy;
  double sampleSpacing = 0;  // m
  std::int32_t curvatureSmoothing = 0;

  double cellSize = 1;     // m, of the scene
  double surfaceCell = 1;  // m, of the surface's level set
  double dt = 0;           // s, of the last sub-step
  double frameTime = 0;    // s, that passed since the last time
  std::int32_t fps = 24;
  double gravity = 9.81;  // m/s^2, of spray's first step
  // Within the solver's closed faces, m.
  Vec3D roomLow{-std::numeric_limits<double>::infinity()}, roomHigh{std::numeric_limits<double>::infinity()};
  Vec3D Inside(const Vec3D& p) const { return Min(Max(p, roomLow), roomHigh); }
  bool carried = false;  // no grid's velocity carries foam and bubbles: they take that of the particles about them
};

}  // namespace orlix
