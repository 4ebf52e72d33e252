#pragma once
// The two noises on a lattice that everything else is summed from. Both work on blocks of points, with the same bits
// for a point alone as in a block.

#include <cstdint>

namespace orlix {

struct NoisePoints {
  static constexpr int kCapacity = 32;
  int count = 0;
  double x[kCapacity], y[kCapacity], z[kCapacity];
};

// Where the lattice of one octave lies in time, and its seed.
struct NoiseLattice {
  std::uint32_t seed = 0;
  double time = 0;     // finite
  int timeRepeat = 0;  // above 0: the lattice repeats after this many units of time
};

// Gradient noise, in [-1, 1] with mean 0 and 0 at lattice points; twice continuously differentiable. out has room for
// points.count values.
void GradientNoise(const NoiseLattice& lattice, const NoisePoints& points, double frequency, double* out);

// Distance to the nearest feature point, one of which wanders in each cell of the unit lattice; limited to 1, within
// which the 27 cells around a point hold every candidate. In [0, 1], continuous.
void CellularNoise(const NoiseLattice& lattice, const NoisePoints& points, double frequency, double* out);

}  // namespace orlix
