#pragma once
// Sums over points near eight places at once: what a reconstruction takes of its particles. Places are the lanes,
// points come one after the other, so that each place's sums are added in the order of the points on every machine.
//
// Tables hold eight values a point, one for each place.

#include <cstdint>
#include <vector>

#include "fluids/particles/SymmetricMatrix.h"

namespace orlix {

inline constexpr int kPlaces = 8;

struct PlaceRow {
  alignas(64) double at[kPlaces];
  double& operator[](int place) { return at[place]; }
  double operator[](int place) const { return at[place]; }
};

// Eight places and the box that holds them.
struct EightPlaces {
  PlaceRow x, y, z;
  Vec3D low, high;

  void Set(int place, const Vec3D& p) { x[place] = p.x, y[place] = p.y, z[place] = p.z; }
  Vec3D Get(int place) const { return {x[place], y[place], z[place]}; }
  void FindBox();
};

// Some points, and where they stand in the cloud that they are of.
struct NearPoints {
  std::vector<double> x, y, z;
  std::vector<std::int32_t> slot;
  int count = 0;

  // Room for n, and for the rest of a vector beyond them.
  void Need(std::size_t n);
};

// A particle's ball, drawn out: an offset from its centre, times the matrix, is one in a space in which it is round.
struct StretchedBall {
  Vec3D centre;
  Matrix3 stretch;
};

namespace place_sums {

// Appends the points of [0, count) that lie nearer to the box than the root of limit. All four arrays can be read, and
// are, up to a whole number of eights.
void KeepNear(const double* x, const double* y, const double* z, const std::int32_t* slots, int count, const Vec3D& low,
              const Vec3D& high, double limit, NearPoints& out);
// Squared distances of all points; how many are below the limit.
void Distances(const NearPoints& points, const EightPlaces& places, double limit, double* squared,
               std::int64_t* counts);
// How many values of each place are below that place's bound.
void CountBelow(const double* squared, int points, const PlaceRow& bounds, std::int64_t* counts);
// (1 - s^power)^3 with s = value x scale, power 1 or 2; 0 where a value isn't below the place's bound.
void Weigh(const double* values, int points, const PlaceRow& bounds, double scale, int power, double* weights);
// Of sum[0] the weights, of the others weight times offset from the place. ratios: a factor of each slot's, or null.
void AddOffsets(const NearPoints& points, const EightPlaces& places, const double* ratios, const double* weights,
                PlaceRow (&sums)[4]);
// Weight times ratio alone.
void AddWeights(const NearPoints& points, const double* ratios, const double* weights, PlaceRow& sum);
// The squared lengths of offsets through the points' stretches; infinity where distances aren't below the bounds.
void StretchedLengths(const NearPoints& points, const StretchedBall* balls, const EightPlaces& places,
                      const double* squared, const PlaceRow& bounds, double* lengths);
// As AddOffsets with these offsets.
void AddStretchedOffsets(const NearPoints& points, const StretchedBall* balls, const EightPlaces& places,
                         const double* weights, PlaceRow (&sums)[4]);

}  // namespace place_sums
}  // namespace orlix
