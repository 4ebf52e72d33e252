#include "fluids/surfacing/PlaceSums.h"

#include "fluids/particles/KdNodes.h"
#include "globals/Multiversion.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#define ORLIX_LANES places_baseline
#define ORLIX_LANES_TARGET
#define ORLIX_LANES_BYTES 16
#include "fluids/surfacing/PlaceLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#undef ORLIX_LANES_BYTES
#if defined(__x86_64__)
#define ORLIX_LANES places_avx2
#define ORLIX_LANES_TARGET __attribute__((target("avx2")))
#define ORLIX_LANES_BYTES 32
#include "fluids/surfacing/PlaceLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#undef ORLIX_LANES_BYTES
#define ORLIX_LANES places_avx512
#define ORLIX_LANES_TARGET __attribute__((target("avx2,avx512f,avx512dq,avx512vl")))
#define ORLIX_LANES_BYTES 64
#include "fluids/surfacing/PlaceLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#undef ORLIX_LANES_BYTES
#endif

namespace orlix {

namespace {

struct PlaceKernels {
  decltype(&places_baseline::KeepNear) keepNear;
  decltype(&places_baseline::Distances) distances;
  decltype(&places_baseline::CountBelow) countBelow;
  decltype(&places_baseline::Weigh) weigh;
  decltype(&places_baseline::AddOffsets) addOffsets;
  decltype(&places_baseline::AddWeights) addWeights;
  decltype(&places_baseline::StretchedLengths) stretchedLengths;
  decltype(&places_baseline::AddStretchedOffsets) addStretchedOffsets;
};

#define ORLIX_KERNELS_OF(lanes)                                                                               \
  {                                                                                                           \
    lanes::KeepNear, lanes::Distances, lanes::CountBelow, lanes::Weigh, lanes::AddOffsets, lanes::AddWeights, \
        lanes::StretchedLengths, lanes::AddStretchedOffsets                                                   \
  }

PlaceKernels ChoosePlaceKernels() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl")) return ORLIX_KERNELS_OF(places_avx512);
  if (__builtin_cpu_supports("avx2")) return ORLIX_KERNELS_OF(places_avx2);
#endif
  return ORLIX_KERNELS_OF(places_baseline);
}

const PlaceKernels& ThePlaceKernels() {
  static const PlaceKernels kKernels = ChoosePlaceKernels();
  return kKernels;
}

}  // namespace

void EightPlaces::FindBox() {
  low = high = Get(0);
  for (int n = 1; n < kPlaces; ++n) low = Min(low, Get(n)), high = Max(high, Get(n));
}

void NearPoints::Need(std::size_t n) {
  if (n + kPlaces <= x.size()) return;
  const std::size_t size = n + n / 2 + kPlaces;
  x.resize(size), y.resize(size), z.resize(size), slot.resize(size);
}

namespace place_sums {

void KeepNear(const double* x, const double* y, const double* z, const std::int32_t* slots, int count, const Vec3D& low,
              const Vec3D& high, double limit, NearPoints& out) {
  out.Need(std::size_t(out.count) + std::size_t(count));
  ThePlaceKernels().keepNear(x, y, z, slots, count, low, high, limit, out);
}
void Distances(const NearPoints& points, const EightPlaces& places, double limit, double* squared,
               std::int64_t* counts) {
  ThePlaceKernels().distances(points, places, limit, squared, counts);
}
void CountBelow(const double* squared, int points, const PlaceRow& bounds, std::int64_t* counts) {
  ThePlaceKernels().countBelow(squared, points, bounds, counts);
}
void Weigh(const double* values, int points, const PlaceRow& bounds, double scale, int power, double* weights) {
  ThePlaceKernels().weigh(values, points, bounds, scale, power, weights);
}
void AddOffsets(const NearPoints& points, const EightPlaces& places, const double* ratios, const double* weights,
                PlaceRow (&sums)[4]) {
  ThePlaceKernels().addOffsets(points, places, ratios, weights, sums);
}
void AddWeights(const NearPoints& points, const double* ratios, const double* weights, PlaceRow& sum) {
  ThePlaceKernels().addWeights(points, ratios, weights, sum);
}
void StretchedLengths(const NearPoints& points, const StretchedBall* balls, const EightPlaces& places,
                      const double* squared, const PlaceRow& bounds, double* lengths) {
  ThePlaceKernels().stretchedLengths(points, balls, places, squared, bounds, lengths);
}
void AddStretchedOffsets(const NearPoints& points, const StretchedBall* balls, const EightPlaces& places,
                         const double* weights, PlaceRow (&sums)[4]) {
  ThePlaceKernels().addStretchedOffsets(points, balls, places, weights, sums);
}

}  // namespace place_sums
}  // namespace orlix
