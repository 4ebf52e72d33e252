#include "fluids/position_based/PairKernels.h"

#include <cmath>
#include <numbers>

#include "globals/Multiversion.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#define ORLIX_LANES pairs_baseline
#define ORLIX_LANES_TARGET
#include "fluids/position_based/PairLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#if defined(__x86_64__)
#define ORLIX_LANES_AVX
#define ORLIX_LANES pairs_avx2
#define ORLIX_LANES_TARGET __attribute__((target("avx2")))
#include "fluids/position_based/PairLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#define ORLIX_LANES_AVX512
#define ORLIX_LANES pairs_avx512
#define ORLIX_LANES_TARGET __attribute__((target("avx2,popcnt,avx512f,avx512dq,avx512vl")))
#include "fluids/position_based/PairLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#undef ORLIX_LANES_AVX
#undef ORLIX_LANES_AVX512
#endif

namespace orlix {

namespace {

struct PairFunctions {
  decltype(&pairs_baseline::FindNear) findNear;
  decltype(&pairs_baseline::Multipliers) multipliers;
  decltype(&pairs_baseline::Corrections) corrections;
  decltype(&pairs_baseline::Vorticities) vorticities;
  decltype(&pairs_baseline::Densities) densities;
  decltype(&pairs_baseline::Velocities) velocities;
};

#define ORLIX_PAIR_KERNELS_OF(lanes) \
  { lanes::FindNear, lanes::Multipliers, lanes::Corrections, lanes::Vorticities, lanes::Densities, lanes::Velocities }

PairFunctions ChoosePairFunctions() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl")) {
    return ORLIX_PAIR_KERNELS_OF(pairs_avx512);
  }
  if (__builtin_cpu_supports("avx2")) return ORLIX_PAIR_KERNELS_OF(pairs_avx2);
#endif
  return ORLIX_PAIR_KERNELS_OF(pairs_baseline);
}

const PairFunctions& ThePairFunctions() {
  static const PairFunctions kFunctions = ChoosePairFunctions();
  return kFunctions;
}

}  // namespace

PairConstants::PairConstants(double radius, double reach, double restCount, double relaxationOf,
                             double tensileStrengthOf, std::int32_t tensileExponentOf, double delta)
    : h(static_cast<float>(radius)),
      h2(static_cast<float>(radius * radius)),
      reach2(static_cast<float>(reach * reach)),
      relaxation(static_cast<float>(relaxationOf)),
      tensileStrength(static_cast<float>(tensileStrengthOf)),
      tensileExponent(tensileExponentOf) {
  const double w = 315 / (64 * std::numbers::pi * std::pow(radius, 9));
  const double g = 45 / (std::numbers::pi * std::pow(radius, 6));
  kernel = static_cast<float>(w), slope = static_cast<float>(g);
  density = static_cast<float>(w / restCount), gradient = static_cast<float>(g / restCount);
  tensileScale = static_cast<float>(1 / std::pow(radius * radius - 3 * delta * delta, 3));
}

namespace pair_kernels {

std::int32_t FindNear(const Site* sites, std::int32_t from, std::int32_t to, const Site& centre, std::int32_t self,
                      float reach2, std::int32_t most, std::int32_t* out, std::int32_t count) {
  return ThePairFunctions().findNear(sites, from, to, centre, self, reach2, most, out, count);
}
void Multipliers(const PairConstants& c, const PairBlock& block, const Site* sites, Site* multipliers) {
  ThePairFunctions().multipliers(c, block, sites, multipliers);
}
void Corrections(const PairConstants& c, const PairBlock& block, const Site* multipliers, Site* corrections) {
  ThePairFunctions().corrections(c, block, multipliers, corrections);
}
void Vorticities(const PairConstants& c, const PairBlock& block, const Site* sites, const Site* velocities,
                 float perVolume, Site* vorticities, float* densities) {
  ThePairFunctions().vorticities(c, block, sites, velocities, perVolume, vorticities, densities);
}
void Densities(const PairConstants& c, const PairBlock& block, const Site* sites, float* densities) {
  ThePairFunctions().densities(c, block, sites, densities);
}
void Velocities(const PairConstants& c, const PairBlock& block, const Site* sites, const Site* velocities,
                const float* shares, Site* changes, Site* confinements) {
  ThePairFunctions().velocities(c, block, sites, velocities, shares, changes, confinements);
}

}  // namespace pair_kernels
}  // namespace orlix
