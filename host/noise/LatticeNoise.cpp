#include "host/noise/LatticeNoise.h"

#include <cmath>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// The lattice repeats after this many units, which is where cell numbers of 32 bits do.
constexpr double kPeriod = 4294967296.0;
// Odd factors of the cell numbers, one an axis; their sum goes through an avalanche.
constexpr std::uint32_t kFactorX = 0x8da6b343u, kFactorY = 0xd8163841u, kFactorZ = 0xcb1ab31fu, kFactorT = 0x9e3779b1u;

// The finaliser of MurmurHash3 (Appleby 2011), of a number or of each lane of a vector.
template <class T>
ORLIX_INLINE T Avalanche(T h) {
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

// a becomes the mean of a and b with the weight t of b.
template <class T>
ORLIX_INLINE void Mix(T& a, const T& b, double t) {
  a = a + t * (b - a);
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

using Two = double __attribute__((vector_size(16)));
using Four = double __attribute__((vector_size(32)));
using Bits = std::uint64_t __attribute__((vector_size(32)));
using Hashes = std::uint32_t __attribute__((vector_size(16)));

// A line along x: its way from the lattice points of the lower y and z, and their hash terms without x. Lanes are the
// two layers of time of the lower z, then those of the upper one.
struct LatticeLine {
  Four y, z, t;
  double fadeY, fadeZ;
  Hashes hash;
};

// What the eight lattice points of one x around a line have, at the lower y and at the upper one. Each has one of the
// 32 vectors from the centre of a hypercube to the middles of its edges, whose scalar product with the way to the point
// of the line that lies x ahead is (slope x + first) + second.
struct LatticePlane {
  Four slope[2], first[2], second[2];
};

ORLIX_INLINE void FindPlane(const LatticeLine& line, std::uint32_t hx, LatticePlane& plane) {
  for (std::uint32_t side = 0; side < 2; ++side) {
    const Hashes hash = Avalanche(line.hash + (hx + side * kFactorY));
    const Bits k = __builtin_convertvector(hash & 31u, Bits);
    const Bits sign0 = k << 63, sign1 = (k >> 1) << 63, sign2 = (k >> 2) << 63;
    const Bits alongX = reinterpret_cast<Bits>(k < 24u);
    const Bits y = reinterpret_cast<Bits>(line.y - static_cast<double>(side)), z = reinterpret_cast<Bits>(line.z),
               t = reinterpret_cast<Bits>(line.t), one = reinterpret_cast<Bits>(Four{} + 1.0);
    const Four u = reinterpret_cast<Four>(y ^ sign0), v = reinterpret_cast<Four>((k < 16u ? y : z) ^ sign1);
    plane.slope[side] = reinterpret_cast<Four>((one ^ sign0) & alongX);
    plane.first[side] = k < 24u ? v : u + v;
    plane.second[side] = reinterpret_cast<Four>((k < 8u ? z : t) ^ sign2);
  }
}

inline double Limited(double v, double low, double high) { return v < low ? low : v > high ? high : v; }

}  // namespace

ORLIX_MULTIVERSION
void GradientNoise(const NoiseLattice& lattice, const NoisePoints& points, double frequency, double* out) {
  const TimeLayers layers = LayersAt(lattice);
  const double t = layers.fraction, ft = Fade(t);
  double along[NoisePoints::kCapacity], fade[NoisePoints::kCapacity];
  std::int32_t cell[NoisePoints::kCapacity];
  for (int i = 0; i < points.count; ++i) {
    const double p = Wrapped(points.x[i] * frequency), floored = std::floor(p);
    along[i] = p - floored, fade[i] = Fade(along[i]), cell[i] = static_cast<std::int32_t>(floored);
  }
  LatticeLine line{};
  LatticePlane before, after;  // those around cell[i - 1]
  for (int i = 0; i < points.count; ++i) {
    const std::uint32_t hx = static_cast<std::uint32_t>(cell[i]) * kFactorX;
    const bool sameLine = i > 0 && points.y[i] == points.y[i - 1] && points.z[i] == points.z[i - 1];
    if (!sameLine) {
      const double py = Wrapped(points.y[i] * frequency), pz = Wrapped(points.z[i] * frequency);
      const double cy = std::floor(py), cz = std::floor(pz), y = py - cy, z = pz - cz;
      const std::uint32_t h = static_cast<std::uint32_t>(static_cast<std::int32_t>(cy)) * kFactorY +
                              static_cast<std::uint32_t>(static_cast<std::int32_t>(cz)) * kFactorZ;
      line = {Four{} + y,
              Four{z, z, z - 1, z - 1},
              Four{t, t - 1, t, t - 1},
              Fade(y),
              Fade(z),
              Hashes{0, 0, kFactorZ, kFactorZ} + Hashes{layers.first, layers.second, layers.first, layers.second} + h};
      FindPlane(line, hx, before);
      FindPlane(line, hx + kFactorX, after);
    } else if (cell[i] != cell[i - 1]) {
      if (hx == static_cast<std::uint32_t>(cell[i - 1]) * kFactorX + kFactorX) {
        before = after;
      } else {
        FindPlane(line, hx, before);
      }
      FindPlane(line, hx + kFactorX, after);
    }
    Four value[2];
    for (int side = 0; side < 2; ++side) {
      value[side] = (before.slope[side] * along[i] + before.first[side]) + before.second[side];
      const Four ahead = (after.slope[side] * (along[i] - 1) + after.first[side]) + after.second[side];
      Mix(value[side], ahead, fade[i]);
    }
    Mix(value[0], value[1], line.fadeY);
    Two low = __builtin_shufflevector(value[0], value[0], 0, 1);
    const Two high = __builtin_shufflevector(value[0], value[0], 2, 3);
    Mix(low, high, line.fadeZ);
    double noise = low[0];
    Mix(noise, double(low[1]), ft);
    out[i] = Limited(noise, -1.0, 1.0);
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
        if (ft > 0) Mix(feature[axis], Avalanche(salt + layers.second) * kUnit, ft);
      }
      const double ex = dx + feature[0] - x, ey = dy + feature[1] - y, ez = dz + feature[2] - z;
      const double squared = ex * ex + ey * ey + ez * ez;
      nearest = squared < nearest ? squared : nearest;
    }
    out[i] = std::sqrt(nearest);
  }
}

}  // namespace orlix
