#include "host/noise/LatticeNoise.h"

#include <cmath>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// The lattice repeats after this many units, which is where cell numbers of 32 bits do.
constexpr double kPeriod = 4294967296.0;
// Odd factors of the cell numbers, one an axis; their sum goes through an avalanche.
constexpr std::uint32_t kFactorX = 0x8da6b343u, kFactorY = 0xd8163841u, kFactorZ = 0xcb1ab31fu, kFactorT = 0x9e3779b1u;

// The finaliser of MurmurHash3 (Appleby 2011).
inline std::uint32_t Avalanche(std::uint32_t h) {
  h ^= h >> 16;
  h *= 0x85ebca6bu;
  h ^= h >> 13;
  h *= 0xc2b2ae35u;
  return h ^ (h >> 16);
}

// v on a circle of the lattice's length, [-2^31, 2^31); 0 where v is too large to tell.
inline double Wrapped(double v) {
  const double w = v - std::floor(v * (1 / kPeriod) + 0.5) * kPeriod;
  return w >= -kPeriod / 2 && w < kPeriod / 2 ? w : 0;
}

// Perlin 2002: first and second derivative vanish at 0 and 1.
inline double Fade(double t) { return t * t * t * (t * (t * 6 - 15) + 10); }

inline double Mix(double a, double b, double t) { return a + t * (b - a); }

// The scalar product with one of the 32 vectors from the centre of a hypercube to the middles of its edges.
inline double Slope(std::uint32_t hash, double x, double y, double z, double t) {
  const std::uint32_t k = hash & 31u;
  const double u = k < 24u ? x : y, v = k < 16u ? y : z, w = k < 8u ? z : t;
  return ((k & 1u) ? -u : u) + ((k & 2u) ? -v : v) + ((k & 4u) ? -w : w);
}

// The two layers of lattice time around a time, as hash terms, and the place between them.
struct TimeLayers {
  std::uint32_t first, second;
  double fraction;
};

TimeLayers LayersAt(const NoiseLattice& lattice) {
  const double time = Wrapped(lattice.time), floored = std::floor(time);
  std::int64_t layer = static_cast<std::int64_t>(floored), next = layer + 1;
  if (lattice.timeRepeat > 0) {
    const auto positive = [&](std::int64_t v) {
      return (v % lattice.timeRepeat + lattice.timeRepeat) % lattice.timeRepeat;
    };
    layer = positive(layer), next = positive(next);
  }
  return {static_cast<std::uint32_t>(layer) * kFactorT + lattice.seed,
          static_cast<std::uint32_t>(next) * kFactorT + lattice.seed, time - floored};
}

// The eight corners of a cell in one layer of time, t away from it.
inline double CellSlopes(std::uint32_t hx, std::uint32_t hy, std::uint32_t hz, std::uint32_t ht, double x, double y,
                         double z, double t, double fx, double fy, double fz) {
  double along[4];
  for (int corner = 0; corner < 4; ++corner) {
    const int cy = corner & 1, cz = corner >> 1;
    const std::uint32_t h = hx + (hy + (cy ? kFactorY : 0)) + (hz + (cz ? kFactorZ : 0)) + ht;
    along[corner] =
        Mix(Slope(Avalanche(h), x, y - cy, z - cz, t), Slope(Avalanche(h + kFactorX), x - 1, y - cy, z - cz, t), fx);
  }
  return Mix(Mix(along[0], along[1], fy), Mix(along[2], along[3], fy), fz);
}

inline double Limited(double v, double low, double high) { return v < low ? low : v > high ? high : v; }

}  // namespace

ORLIX_MULTIVERSION
void GradientNoise(const NoiseLattice& lattice, const NoisePoints& points, double frequency, double* out) {
  const TimeLayers layers = LayersAt(lattice);
  const double ft = Fade(layers.fraction);
  for (int i = 0; i < points.count; ++i) {
    const double px = Wrapped(points.x[i] * frequency), py = Wrapped(points.y[i] * frequency),
                 pz = Wrapped(points.z[i] * frequency);
    const double cx = std::floor(px), cy = std::floor(py), cz = std::floor(pz);
    const double x = px - cx, y = py - cy, z = pz - cz;
    const double fx = Fade(x), fy = Fade(y), fz = Fade(z);
    const std::uint32_t hx = static_cast<std::uint32_t>(static_cast<std::int32_t>(cx)) * kFactorX,
                        hy = static_cast<std::uint32_t>(static_cast<std::int32_t>(cy)) * kFactorY,
                        hz = static_cast<std::uint32_t>(static_cast<std::int32_t>(cz)) * kFactorZ;
    double value = CellSlopes(hx, hy, hz, layers.first, x, y, z, layers.fraction, fx, fy, fz);
    if (layers.fraction > 0) {
      value = Mix(value, CellSlopes(hx, hy, hz, layers.second, x, y, z, layers.fraction - 1, fx, fy, fz), ft);
    }
    out[i] = Limited(value, -1.0, 1.0);
  }
}

ORLIX_MULTIVERSION
void CellularNoise(const NoiseLattice& lattice, const NoisePoints& points, double frequency, double* out) {
  const TimeLayers layers = LayersAt(lattice);
  const double ft = Fade(layers.fraction);
  constexpr double kUnit = 1.0 / 4294967296.0;
  for (int i = 0; i < points.count; ++i) {
    const double px = Wrapped(points.x[i] * frequency), py = Wrapped(points.y[i] * frequency),
                 pz = Wrapped(points.z[i] * frequency);
    const double cx = std::floor(px), cy = std::floor(py), cz = std::floor(pz);
    const double x = px - cx, y = py - cy, z = pz - cz;
    const std::uint32_t base = static_cast<std::uint32_t>(static_cast<std::int32_t>(cx)) * kFactorX +
                               static_cast<std::uint32_t>(static_cast<std::int32_t>(cy)) * kFactorY +
                               static_cast<std::uint32_t>(static_cast<std::int32_t>(cz)) * kFactorZ;
    double nearest = 1;
    for (int cell = 0; cell < 27; ++cell) {
      const int dx = cell % 3 - 1, dy = cell / 3 % 3 - 1, dz = cell / 9 - 1;
      const std::uint32_t h = base + static_cast<std::uint32_t>(dx) * kFactorX +
                              static_cast<std::uint32_t>(dy) * kFactorY + static_cast<std::uint32_t>(dz) * kFactorZ;
      double feature[3];
      for (std::uint32_t axis = 0; axis < 3; ++axis) {
        const std::uint32_t salt = h + axis * 0x632be5abu;
        feature[axis] = Avalanche(salt + layers.first) * kUnit;
        if (ft > 0) feature[axis] = Mix(feature[axis], Avalanche(salt + layers.second) * kUnit, ft);
      }
      const double ex = dx + feature[0] - x, ey = dy + feature[1] - y, ez = dz + feature[2] - z;
      const double squared = ex * ex + ey * ey + ez * ez;
      nearest = squared < nearest ? squared : nearest;
    }
    out[i] = std::sqrt(nearest);
  }
}

}  // namespace orlix
