// The loops of PlaceSums. This file has no guard: PlaceSums.cpp includes it once for each instruction set, with
// ORLIX_LANES the namespace, ORLIX_LANES_TARGET the attribute of all functions and ORLIX_LANES_BYTES the size of a
// vector. The vectors are the compiler's own. All versions give the same bits.

namespace orlix {
namespace ORLIX_LANES {

constexpr int kLanes = ORLIX_LANES_BYTES / 8;
constexpr int kParts = kPlaces / kLanes;
using F = double __attribute__((vector_size(ORLIX_LANES_BYTES)));
using M = std::int64_t __attribute__((vector_size(ORLIX_LANES_BYTES)));

// The places of a row, by parts.
struct Row {
  F part[kParts];
};

ORLIX_INLINE ORLIX_LANES_TARGET void Load(F& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_INLINE ORLIX_LANES_TARGET void Store(double* to, const F& v) { __builtin_memcpy(to, &v, sizeof v); }
ORLIX_INLINE ORLIX_LANES_TARGET void LoadRow(Row& row, const double* from) {
  for (int v = 0; v < kParts; ++v) Load(row.part[v], from + v * kLanes);
}
ORLIX_INLINE ORLIX_LANES_TARGET void StoreRow(double* to, const Row& row) {
  for (int v = 0; v < kParts; ++v) Store(to + v * kLanes, row.part[v]);
}

// Squared distances of points from a box.
ORLIX_INLINE ORLIX_LANES_TARGET void BoxDistances(F& squared, const F (&p)[3], const Vec3D& low, const Vec3D& high) {
  squared = F{};
  for (int axis = 0; axis < 3; ++axis) {
    const F below = low[axis] - p[axis], above = p[axis] - high[axis];
    F apart = below > above ? below : above;
    apart = apart > 0.0 ? apart : F{};
    squared += apart * apart;
  }
}

// Writes the points of a vector whose bits are set; gives how many.
ORLIX_INLINE ORLIX_LANES_TARGET int KeepPoints(const F (&p)[3], const M& near, const std::int32_t* slots,
                                               NearPoints& out) {
  const auto to = std::size_t(out.count);
#if ORLIX_LANES_BYTES == 64
  const __mmask8 bits = _mm512_movepi64_mask(reinterpret_cast<__m512i>(near));
  _mm512_storeu_pd(&out.x[to], _mm512_maskz_compress_pd(bits, p[0]));
  _mm512_storeu_pd(&out.y[to], _mm512_maskz_compress_pd(bits, p[1]));
  _mm512_storeu_pd(&out.z[to], _mm512_maskz_compress_pd(bits, p[2]));
  const __m256i all = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(slots));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(&out.slot[to]), _mm256_maskz_compress_epi32(bits, all));
  return __builtin_popcount(bits);
#else
  std::size_t at = to;
  for (int l = 0; l < kLanes; ++l) {
    out.x[at] = p[0][l], out.y[at] = p[1][l], out.z[at] = p[2][l], out.slot[at] = slots[l];
    at -= std::size_t(near[l]);  // -1 where it is near
  }
  return static_cast<int>(at - to);
#endif
}

// The rest of the last vector is beyond the end: its points lie nowhere.
ORLIX_LANES_TARGET void KeepNear(const double* x, const double* y, const double* z, const std::int32_t* slots,
                                 int count, const Vec3D& low, const Vec3D& high, double limit, NearPoints& out) {
  for (int n = 0; n < count; n += kLanes) {
    F p[3], squared;
    Load(p[0], x + n), Load(p[1], y + n), Load(p[2], z + n);
    BoxDistances(squared, p, low, high);
    M near = squared < limit;
    if (n + kLanes > count) {
      for (int l = count - n; l < kLanes; ++l) near[l] = 0;
    }
    out.count += KeepPoints(p, near, slots + n, out);
  }
}

ORLIX_LANES_TARGET void Distances(const NearPoints& points, const EightPlaces& places, double limit, double* squared,
                                  std::int64_t* counts) {
  Row x, y, z;
  LoadRow(x, places.x.at), LoadRow(y, places.y.at), LoadRow(z, places.z.at);
  M below[kParts] = {};
  for (int n = 0; n < points.count; ++n, squared += kPlaces) {
    for (int v = 0; v < kParts; ++v) {
      const F dx = points.x[std::size_t(n)] - x.part[v], dy = points.y[std::size_t(n)] - y.part[v],
              dz = points.z[std::size_t(n)] - z.part[v];
      const F d = dx * dx + dy * dy + dz * dz;
      Store(squared + v * kLanes, d);
      below[v] -= d < limit;
    }
  }
  __builtin_memcpy(counts, below, sizeof below);
}

ORLIX_LANES_TARGET void CountBelow(const double* squared, int count, const PlaceRow& bounds, std::int64_t* counts) {
  Row bound;
  LoadRow(bound, bounds.at);
  M below[kParts] = {};
  for (int n = 0; n < count; ++n, squared += kPlaces) {
    for (int v = 0; v < kParts; ++v) {
      F d;
      Load(d, squared + v * kLanes);
      below[v] -= d < bound.part[v];
    }
  }
  __builtin_memcpy(counts, below, sizeof below);
}

ORLIX_LANES_TARGET void Weigh(const double* values, int count, const PlaceRow& bounds, double scale, int power,
                              double* weights) {
  Row bound;
  LoadRow(bound, bounds.at);
  for (int n = 0; n < count; ++n, values += kPlaces, weights += kPlaces) {
    for (int v = 0; v < kParts; ++v) {
      F d;
      Load(d, values + v * kLanes);
      F s = d * scale;
      if (power == 2) s *= s;
      const F u = 1.0 - s;
      Store(weights + v * kLanes, d < bound.part[v] ? u * u * u : F{});
    }
  }
}

ORLIX_LANES_TARGET void AddOffsets(const NearPoints& points, const EightPlaces& places, const double* ratios,
                                   const double* weights, PlaceRow (&sums)[4]) {
  Row x, y, z;
  LoadRow(x, places.x.at), LoadRow(y, places.y.at), LoadRow(z, places.z.at);
  Row s = {}, sx = {}, sy = {}, sz = {};
  for (int n = 0; n < points.count; ++n, weights += kPlaces) {
    const auto at = std::size_t(n);
    const double ratio = ratios ? ratios[points.slot[at]] : 1;
    for (int v = 0; v < kParts; ++v) {
      F w;
      Load(w, weights + v * kLanes);
      w *= ratio;
      s.part[v] += w;
      sx.part[v] += w * (points.x[at] - x.part[v]);
      sy.part[v] += w * (points.y[at] - y.part[v]);
      sz.part[v] += w * (points.z[at] - z.part[v]);
    }
  }
  StoreRow(sums[0].at, s), StoreRow(sums[1].at, sx), StoreRow(sums[2].at, sy), StoreRow(sums[3].at, sz);
}

ORLIX_LANES_TARGET void AddWeights(const NearPoints& points, const double* ratios, const double* weights,
                                   PlaceRow& sum) {
  Row s = {};
  for (int n = 0; n < points.count; ++n, weights += kPlaces) {
    const double ratio = ratios ? ratios[points.slot[std::size_t(n)]] : 1;
    for (int v = 0; v < kParts; ++v) {
      F w;
      Load(w, weights + v * kLanes);
      s.part[v] += w * ratio;
    }
  }
  StoreRow(sum.at, s);
}

// An offset from a ball's centre, through its matrix.
ORLIX_INLINE ORLIX_LANES_TARGET void StretchOffset(const StretchedBall& ball, const F& x, const F& y, const F& z,
                                                   F (&q)[3]) {
  const F dx = x - ball.centre.x, dy = y - ball.centre.y, dz = z - ball.centre.z;
  for (int r = 0; r < 3; ++r) {
    const double* row = ball.stretch.m[r];
    q[r] = row[0] * dx + row[1] * dy + row[2] * dz;
  }
}

ORLIX_LANES_TARGET void StretchedLengths(const NearPoints& points, const StretchedBall* balls,
                                         const EightPlaces& places, const double* squared, const PlaceRow& bounds,
                                         double* lengths) {
  Row x, y, z, bound;
  LoadRow(x, places.x.at), LoadRow(y, places.y.at), LoadRow(z, places.z.at), LoadRow(bound, bounds.at);
  const F nowhere = F{} + kNowhere;
  for (int n = 0; n < points.count; ++n, squared += kPlaces, lengths += kPlaces) {
    const StretchedBall& ball = balls[points.slot[std::size_t(n)]];
    for (int v = 0; v < kParts; ++v) {
      F q[3], d;
      StretchOffset(ball, x.part[v], y.part[v], z.part[v], q);
      Load(d, squared + v * kLanes);
      const F length = q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
      Store(lengths + v * kLanes, d < bound.part[v] ? length : nowhere);
    }
  }
}

ORLIX_LANES_TARGET void AddStretchedOffsets(const NearPoints& points, const StretchedBall* balls,
                                            const EightPlaces& places, const double* weights, PlaceRow (&sums)[4]) {
  Row x, y, z;
  LoadRow(x, places.x.at), LoadRow(y, places.y.at), LoadRow(z, places.z.at);
  Row s = {}, sq[3] = {};
  for (int n = 0; n < points.count; ++n, weights += kPlaces) {
    const StretchedBall& ball = balls[points.slot[std::size_t(n)]];
    for (int v = 0; v < kParts; ++v) {
      F q[3], w;
      StretchOffset(ball, x.part[v], y.part[v], z.part[v], q);
      Load(w, weights + v * kLanes);
      s.part[v] += w;
      for (int r = 0; r < 3; ++r) sq[r].part[v] += w * q[r];
    }
  }
  StoreRow(sums[0].at, s);
  for (int r = 0; r < 3; ++r) StoreRow(sums[r + 1].at, sq[r]);
}

}  // namespace ORLIX_LANES
}  // namespace orlix
