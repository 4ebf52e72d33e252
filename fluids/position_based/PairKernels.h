#pragma once
// Sums over pairs of near particles, eight neighbours at a time, in cells and single precision.
//
//   W(d) = 315 / (64 pi H^9) (H^2 - d^2)^3           poly6 (Mueller et al. 2003), 1/cells^3
//   G(e) = 45 / (pi H^6) (H - d)^2 / (d + 0.001) e   spiky, points away from the neighbour; 0 where d^2 < 1e-6
//
// H is the kernel's radius, e the particle's place less its neighbour's, d its length. Neither stops at H: what lies
// between H and the reach of the lists adds its small negative share; beyond the reach both are 0.

#include <cstdint>
#include <span>

namespace orlix {

// Three coordinates and a number that goes with them: a neighbour is one read.
struct alignas(16) Site {
  float x = 0, y = 0, z = 0, w = 0;
};

// A density below that of rest pulls no harder than this share of it: with few neighbours the whole of the equation
// throws particles through one another, and the surface boils. What is left holds drops together.
inline constexpr float kMostTension = 0.02f;

struct PairConstants {
  PairConstants() = default;
  // restCount: particles a cell at rest density. delta: cells.
  PairConstants(double radius, double reach, double restCount, double relaxation, double tensileStrength,
                std::int32_t tensileExponent, double delta);
  float h = 1, h2 = 1, reach2 = 1;
  float density = 1;            // of a sum of (H^2 - d^2)^3: the share of the rest density
  float gradient = 1;           // of a sum of (H - d)^2 / (d + 0.001) e: the gradient of that share
  float kernel = 1, slope = 1;  // W and G of such sums, without the rest density
  float relaxation = 0;
  float tensileStrength = 0, tensileScale = 1;  // the scale makes (H^2 - d^2)^3 a share of W at delta
  std::int32_t tensileExponent = 4;
};

// A run of sorted particles with their lists: entries[starts[n]] to entries[starts[n + 1]] of particle first + n, in
// whole eights; those that fill up point to a site that is far from all.
struct PairBlock {
  std::int32_t first = 0, count = 0;
  const std::int32_t* starts = nullptr;
  const std::int32_t* entries = nullptr;
};

namespace pair_kernels {

// Appends the indices of [from, to) but self that are nearer than the square root of reach2 and not at the same place.
// out has room for eight more than fit; gives the new count, and stops at most or a little above.
std::int32_t FindNear(const Site* sites, std::int32_t from, std::int32_t to, const Site& centre, std::int32_t self,
                      float reach2, std::int32_t most, std::int32_t* out, std::int32_t count);
// multipliers[i] = the place with lambda = -C / (sum |grad C|^2 + relaxation), C = density / rest density - 1 (Macklin
// and Mueller 2013, equations 8 to 11) and at least -kMostTension.
void Multipliers(const PairConstants& c, const PairBlock& block, const Site* sites, Site* multipliers);
// corrections[i], cells: the sum of (lambda_i + lambda_j + s) grad C, s = -k (W / W(delta))^n against clusters
// (equations 12 to 14).
void Corrections(const PairConstants& c, const PairBlock& block, const Site* multipliers, Site* corrections);
// vorticities[i] = sum (v_j - v_i) x G, and in w its length over the sum of W (m^-3, perVolume of one a cell cubed).
// densities[i]: the share of the rest density.
void Vorticities(const PairConstants& c, const PairBlock& block, const Site* sites, const Site* velocities,
                 float perVolume, Site* vorticities, float* densities);
// The same without the vorticity.
void Densities(const PairConstants& c, const PairBlock& block, const Site* sites, float* densities);
// changes[i] = share sum (v_j - v_i) W / rest density (XSPH, Monaghan 1989), shares of each particle; confinements
// [i] = N, the sum of G w_j made shorter than 1, where w_j is that of the velocities' sites (null: not asked for).
void Velocities(const PairConstants& c, const PairBlock& block, const Site* sites, const Site* velocities,
                const float* shares, Site* changes, Site* confinements);

}  // namespace pair_kernels
}  // namespace orlix
