// The loops of PairKernels. This file has no guard: PairKernels.cpp includes it once for each instruction set, with
// ORLIX_LANES the namespace and ORLIX_LANES_TARGET the attribute of all functions. Sums keep eight parts whatever the
// instruction set, so that all versions give the same bits.

namespace orlix {
namespace ORLIX_LANES {

constexpr int kLanes = 8;
using F = float __attribute__((vector_size(32)));
using M = std::int32_t __attribute__((vector_size(32)));
using Q = float __attribute__((vector_size(16)));

struct Lanes {
  F x, y, z, w;
};

// Eight sites, turned so that each coordinate is a vector.
ORLIX_INLINE ORLIX_LANES_TARGET void Gather(Lanes& out, const Site* sites, const std::int32_t* index) {
  F row[4];
  for (int l = 0; l < 4; ++l) {
    Q low, high;
    __builtin_memcpy(&low, sites + index[l], sizeof low);
    __builtin_memcpy(&high, sites + index[l + 4], sizeof high);
    row[l] = __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
  }
  const F a = __builtin_shufflevector(row[0], row[1], 0, 8, 1, 9, 4, 12, 5, 13);
  const F b = __builtin_shufflevector(row[0], row[1], 2, 10, 3, 11, 6, 14, 7, 15);
  const F c = __builtin_shufflevector(row[2], row[3], 0, 8, 1, 9, 4, 12, 5, 13);
  const F d = __builtin_shufflevector(row[2], row[3], 2, 10, 3, 11, 6, 14, 7, 15);
  out.x = __builtin_shufflevector(a, c, 0, 1, 8, 9, 4, 5, 12, 13);
  out.y = __builtin_shufflevector(a, c, 2, 3, 10, 11, 6, 7, 14, 15);
  out.z = __builtin_shufflevector(b, d, 0, 1, 8, 9, 4, 5, 12, 13);
  out.w = __builtin_shufflevector(b, d, 2, 3, 10, 11, 6, 7, 14, 15);
}

ORLIX_INLINE ORLIX_LANES_TARGET void Root(F& v) {
#if defined(ORLIX_LANES_AVX)
  v = _mm256_sqrt_ps(v);
#else
  for (int l = 0; l < kLanes; ++l) v[l] = __builtin_sqrtf(v[l]);
#endif
}

ORLIX_INLINE ORLIX_LANES_TARGET float Sum(const F& v) {
  return ((v[0] + v[4]) + (v[1] + v[5])) + ((v[2] + v[6]) + (v[3] + v[7]));
}

// What eight neighbours of a place are to it, without constants.
struct Pairs {
  Lanes other;
  F x, y, z;  // e
  F d2, w, g;
};

template <bool kSlope>
ORLIX_INLINE ORLIX_LANES_TARGET void Relate(Pairs& p, const PairConstants& c, const Site* sites,
                                            const std::int32_t* index, const Site& centre) {
  Gather(p.other, sites, index);
  p.x = centre.x - p.other.x, p.y = centre.y - p.other.y, p.z = centre.z - p.other.z;
  p.d2 = p.x * p.x + p.y * p.y + p.z * p.z;
  const F u = c.h2 - p.d2;
  const M near = p.d2 < c.reach2;
  p.w = near ? u * u * u : F{};
  if constexpr (kSlope) {
    F d = p.d2;
    Root(d);
    const F v = c.h - d;
    p.g = (near & (p.d2 >= 1e-6f)) ? v * v / (d + 0.001f) : F{};
  }
}

ORLIX_LANES_TARGET std::int32_t FindNear(const Site* sites, std::int32_t from, std::int32_t to, const Site& centre,
                                         std::int32_t self, float reach2, std::int32_t most, std::int32_t* out,
                                         std::int32_t count) {
  static constexpr std::int32_t kEight[kLanes] = {0, 1, 2, 3, 4, 5, 6, 7};
  M step;
  __builtin_memcpy(&step, kEight, sizeof step);
  for (std::int32_t n = from; n < to && count < most; n += kLanes) {
    const M index = step + n;
    // Sites are readable for eight beyond the last.
    std::int32_t all[kLanes];
    __builtin_memcpy(all, &index, sizeof all);
    Lanes p;
    Gather(p, sites, all);
    const F x = p.x - centre.x, y = p.y - centre.y, z = p.z - centre.z;
    const F d2 = x * x + y * y + z * z;
    const M near = (d2 < reach2) & (d2 > 0.0f) & (index < to) & (index != self);
#if defined(ORLIX_LANES_AVX512)
    const __mmask8 bits = _mm256_movepi32_mask(reinterpret_cast<__m256i>(near));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + count),
                        _mm256_maskz_compress_epi32(bits, reinterpret_cast<__m256i>(index)));
    count += __builtin_popcount(bits);
#else
    for (int l = 0; l < kLanes; ++l) {
      out[count] = all[l];
      count -= near[l];  // -1 where it is near
    }
#endif
  }
  return count;
}

ORLIX_LANES_TARGET void Multipliers(const PairConstants& c, const PairBlock& block, const Site* sites,
                                    Site* multipliers) {
  for (std::int32_t n = 0; n < block.count; ++n) {
    const Site& centre = sites[block.first + n];
    F w{}, squares{}, x{}, y{}, z{};
    for (std::int32_t at = block.starts[n]; at < block.starts[n + 1]; at += kLanes) {
      Pairs p;
      Relate<true>(p, c, sites, block.entries + at, centre);
      w += p.w;
      squares += p.g * p.g * p.d2;
      x += p.g * p.x, y += p.g * p.y, z += p.g * p.z;
    }
    Site& out = multipliers[block.first + n];
    out = centre;
    out.w = 0;
    if (block.starts[n] == block.starts[n + 1]) continue;
    const float sx = Sum(x), sy = Sum(y), sz = Sum(z);
    const float square = c.gradient * c.gradient * (Sum(squares) + (sx * sx + sy * sy + sz * sz));
    const float excess = c.density * Sum(w) - 1;
    out.w = -(excess > -kMostTension ? excess : -kMostTension) / (square + c.relaxation);
  }
}

// w to the power of the exponent's size.
ORLIX_INLINE ORLIX_LANES_TARGET void Power(F& s, const F& base, std::int32_t exponent) {
  F square = base;
  s = F{} + 1.0f;
  for (std::int32_t bits = exponent < 0 ? -exponent : exponent; bits != 0; bits >>= 1) {
    if (bits & 1) s *= square;
    square *= square;
  }
  if (exponent < 0) s = 1.0f / s;
}

ORLIX_LANES_TARGET void Corrections(const PairConstants& c, const PairBlock& block, const Site* multipliers,
                                    Site* corrections) {
  for (std::int32_t n = 0; n < block.count; ++n) {
    const Site& centre = multipliers[block.first + n];
    F x{}, y{}, z{};
    for (std::int32_t at = block.starts[n]; at < block.starts[n + 1]; at += kLanes) {
      Pairs p;
      Relate<true>(p, c, multipliers, block.entries + at, centre);
      F lambda = centre.w + p.other.w;
      if (c.tensileStrength != 0) {
        F s;
        Power(s, p.w * c.tensileScale, c.tensileExponent);
        lambda -= c.tensileStrength * s;
      }
      const F g = p.g != 0.0f ? lambda * p.g : F{};
      x += g * p.x, y += g * p.y, z += g * p.z;
    }
    // The gradient of the density points to the neighbour, e away from it.
    corrections[block.first + n] = {-c.gradient * Sum(x), -c.gradient * Sum(y), -c.gradient * Sum(z), 0};
  }
}

ORLIX_LANES_TARGET void Vorticities(const PairConstants& c, const PairBlock& block, const Site* sites,
                                    const Site* velocities, float perVolume, Site* vorticities, float* densities) {
  for (std::int32_t n = 0; n < block.count; ++n) {
    const std::int32_t i = block.first + n;
    const Site &centre = sites[i], &v = velocities[i];
    F w{}, x{}, y{}, z{};
    for (std::int32_t at = block.starts[n]; at < block.starts[n + 1]; at += kLanes) {
      Pairs p;
      Relate<true>(p, c, sites, block.entries + at, centre);
      Lanes u;
      Gather(u, velocities, block.entries + at);
      u.x -= v.x, u.y -= v.y, u.z -= v.z;
      w += p.w;
      x += p.g * (u.y * p.z - u.z * p.y);
      y += p.g * (u.z * p.x - u.x * p.z);
      z += p.g * (u.x * p.y - u.y * p.x);
    }
    const float sum = Sum(w);
    densities[i] = c.density * sum;
    const float ox = c.slope * Sum(x), oy = c.slope * Sum(y), oz = c.slope * Sum(z);
    const float length = __builtin_sqrtf(ox * ox + oy * oy + oz * oz);
    vorticities[i] = {ox, oy, oz, length / (0.0001f + perVolume * c.kernel * sum)};
  }
}

ORLIX_LANES_TARGET void Densities(const PairConstants& c, const PairBlock& block, const Site* sites, float* densities) {
  for (std::int32_t n = 0; n < block.count; ++n) {
    const Site& centre = sites[block.first + n];
    F w{};
    for (std::int32_t at = block.starts[n]; at < block.starts[n + 1]; at += kLanes) {
      Pairs p;
      Relate<false>(p, c, sites, block.entries + at, centre);
      w += p.w;
    }
    densities[block.first + n] = c.density * Sum(w);
  }
}

ORLIX_LANES_TARGET void Velocities(const PairConstants& c, const PairBlock& block, const Site* sites,
                                   const Site* velocities, const float* shares, Site* changes, Site* confinements) {
  for (std::int32_t n = 0; n < block.count; ++n) {
    const std::int32_t i = block.first + n;
    const Site &centre = sites[i], &v = velocities[i];
    F x{}, y{}, z{}, nx{}, ny{}, nz{};
    for (std::int32_t at = block.starts[n]; at < block.starts[n + 1]; at += kLanes) {
      Pairs p;
      Relate<true>(p, c, sites, block.entries + at, centre);
      Lanes u;
      Gather(u, velocities, block.entries + at);
      x += p.w * (u.x - v.x), y += p.w * (u.y - v.y), z += p.w * (u.z - v.z);
      if (!confinements) continue;
      const F g = p.g * u.w;
      nx += g * p.x, ny += g * p.y, nz += g * p.z;
    }
    const float share = shares[i] * c.density;
    changes[i] = {share * Sum(x), share * Sum(y), share * Sum(z), 0};
    if (!confinements) continue;
    const float sx = c.slope * Sum(nx), sy = c.slope * Sum(ny), sz = c.slope * Sum(nz);
    const float length = __builtin_sqrtf(sx * sx + sy * sy + sz * sz) + 0.001f;
    confinements[i] = {sx / length, sy / length, sz / length, 0};
  }
}

}  // namespace ORLIX_LANES
}  // namespace orlix
