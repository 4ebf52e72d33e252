#pragma once
// The host's procedural noise: a value in [0, 1] for each point of space and time, the same for the same seed.
//
//   Noise noise(seed);
//   noise.SetUpFractal(50, 0.77, 1.0);             // only for the fractal types, and only where the default won't do
//   double v = noise.Sample(NoiseType::Fbm, point, {.time = 0.5, .octaves = 4});
//
// Features have a size of about 1 in the units of the point; a caller scales. Noise lattices repeat after 2^32 units.
// Sampling changes nothing in the object, so that all workers may share one.
//
// Sources: lattice gradient noise with the quintic fade of Perlin ("Improving noise", 2002), in four dimensions with
// the 32 gradients of Perlin ("Noise hardware", 2001); the sum of absolute values of Perlin ("An image synthesizer",
// 1985); fractional Brownian motion, hybrid and ridged multifractals and domain distortion of Musgrave (in Ebert et
// al., "Texturing and Modeling", 2003, ch. 14 and 16); cells of Worley ("A cellular texture basis function", 1996).

#include <array>
#include <cstdint>
#include <span>

#include "globals/Vec.h"
#include "host/noise/NoiseTypes.h"

namespace orlix {

struct NoiseArguments {
  double time = 0;  // lattice units: the pattern is another one after about 1
  int octaves = 3;  // limited to 1..Noise::kMaxOctaves
  // Folds the value about its middle: |2 v - 1|. Creases where the plain noise passes 0.5.
  bool absolute = false;
  // An octave's weight falls by detailAttenuation (limited to 0..1) from each octave to the next for a sample of radius
  // 1; a wider sample loses detail faster, with the exponent sampleRadius (at least 0).
  double sampleRadius = 1;
  double detailAttenuation = 1;
  int timeRepeat = 0;  // above 0: the noise repeats after this much time
};

class Noise {
 public:
  static constexpr int kMaxOctaves = 50;

  // The fractal table starts as SetUpFractal(kMaxOctaves, 2, 1).
  explicit Noise(std::uint32_t seed = 0);

  // Octave i of a fractal type has the frequency lacunarity^i and the weight frequency^-exponent (Musgrave). A
  // lacunarity below 1 adds octaves of lower frequency and more weight. At most kMaxOctaves; a lacunarity that isn't
  // above 0 or values that aren't finite change nothing.
  void SetUpFractal(int octaves, double lacunarity, double exponent);

  // In [0, 1]. A point or time that isn't finite counts as 0.
  double Sample(NoiseType type, const Vec3D& point, const NoiseArguments& arguments) const;

  // out[i] = Sample(type, start + i x step, arguments), faster.
  void SampleRow(NoiseType type, const Vec3D& start, const Vec3D& step, const NoiseArguments& arguments,
                 std::span<double> out) const;

  // out[i] = Sample(type, {x[i], y[i], z[i]}, arguments), faster; most so where neighbours share y and z.
  void SamplePoints(NoiseType type, const double* x, const double* y, const double* z, const NoiseArguments& arguments,
                    std::span<double> out) const;

 private:
  struct Octaves {
    int count = 0;
    std::array<double, kMaxOctaves> frequency, weight;
    double weightSum = 0;
  };
  struct Block;  // some points of a row
  Octaves OctavesOf(NoiseType type, const NoiseArguments& arguments) const;
  void Fbm(const Octaves& octaves, const NoiseArguments& arguments, std::uint32_t salt, Block& block) const;
  void Turbulence(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  void Hybrid(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  void Ridged(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  void Warped(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  void Cellular(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  void Evaluate(NoiseType type, const Octaves& octaves, const NoiseArguments& arguments, Block& block) const;
  // point(i) gives where out[i] is sampled.
  template <class Point>
  void SampleBlocks(NoiseType type, const NoiseArguments& arguments, std::span<double> out, Point&& point) const;

  std::uint32_t seed_;
  int tableSize_ = 0;
  std::array<double, kMaxOctaves> frequency_, weight_;
};

}  // namespace orlix
