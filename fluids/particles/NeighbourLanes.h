// The search of ParticleKdTree, eight boxes or points at a time. This file has no guard: ParticleKdTree.cpp includes it
// once for each instruction set, with ORLIX_LANES the namespace and ORLIX_LANES_TARGET the attribute of all functions.
// The vectors are the compiler's own; no lambda, since it wouldn't inherit the attribute. All versions give the same
// bits: squared distances are x*x + y*y + z*z, in this order.

namespace orlix {
namespace ORLIX_LANES {

constexpr int kLanes = 8;
using F = double __attribute__((vector_size(64)));
using M = std::int64_t __attribute__((vector_size(64)));
constexpr int kKeyLanes = 16;
using U = std::uint32_t __attribute__((vector_size(64)));
using HalfU = std::uint32_t __attribute__((vector_size(32)));
using Singles = float __attribute__((vector_size(32)));

ORLIX_INLINE ORLIX_LANES_TARGET void Load(F& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }

// Bit l: lane l of a mask is set.
ORLIX_INLINE ORLIX_LANES_TARGET unsigned Bits(const M& m) {
#if defined(ORLIX_LANES_AVX512)
  return _mm512_movepi64_mask(reinterpret_cast<__m512i>(m));
#elif defined(ORLIX_LANES_AVX2)
  __m256d halves[2];
  __builtin_memcpy(halves, &m, sizeof m);
  return static_cast<unsigned>(_mm256_movemask_pd(halves[0]) | _mm256_movemask_pd(halves[1]) << 4);
#else
  unsigned bits = 0;
  for (int l = 0; l < kLanes; ++l) bits |= static_cast<unsigned>(m[l] & 1) << l;
  return bits;
#endif
}

// How far the places from low to high lie from those between the bounds, along one axis; 0 where they overlap.
ORLIX_INLINE ORLIX_LANES_TARGET void Apart(F& d, const double* low, const double* high, double from, double to) {
  F a, b;
  Load(a, low), Load(b, high);
  a -= to, b = from - b;
  const F farther = a > b ? a : b;
  d = farther > 0.0 ? farther : F{};
}

// Squared distances of the eight boxes of a node from the box between two points.
ORLIX_INLINE ORLIX_LANES_TARGET void BoxDistances(F& d, const KdBoxes& node, const Vec3D& from, const Vec3D& to) {
  F dx, dy, dz;
  Apart(dx, node.low[0], node.high[0], from.x, to.x);
  Apart(dy, node.low[1], node.high[1], from.y, to.y);
  Apart(dz, node.low[2], node.high[2], from.z, to.z);
  d = dx * dx + dy * dy + dz * dz;
}

ORLIX_INLINE ORLIX_LANES_TARGET int Keep(const F& d, const std::int32_t* index, unsigned bits, KdScratch& s,
                                         int count) {
#if defined(ORLIX_LANES_AVX512)
  _mm512_storeu_pd(s.distances + count, _mm512_maskz_compress_pd(__mmask8(bits), d));
  const __m256i all = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(index));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(s.indices + count), _mm256_maskz_compress_epi32(__mmask8(bits), all));
  return count + __builtin_popcount(bits);
#else
  for (; bits != 0; bits &= bits - 1, ++count) {
    const int l = __builtin_ctz(bits);
    s.distances[count] = d[l], s.indices[count] = index[l];
  }
  return count;
#endif
}

// Adds the points of a leaf that lie nearer than the limit.
ORLIX_INLINE ORLIX_LANES_TARGET int ScanLeaf(const KdLeaf& leaf, const Vec3D& x, double limit, KdScratch& s,
                                             int count) {
  for (int l = 0; l < KdLeaf::kPoints; l += kLanes) {
    F dx, dy, dz;
    Load(dx, leaf.x + l), Load(dy, leaf.y + l), Load(dz, leaf.z + l);
    dx -= x.x, dy -= x.y, dz -= x.z;
    const F d = dx * dx + dy * dy + dz * dz;
    if (const unsigned bits = Bits(d < limit)) count = Keep(d, leaf.index + l, bits, s, count);
  }
  return count;
}

// Adds 1 to the lanes of rank whose key is above another key.
ORLIX_INLINE ORLIX_LANES_TARGET void CountAbove(U& rank, const U& keys, std::uint32_t other) {
#if defined(ORLIX_LANES_AVX512)
  const __m512i own = reinterpret_cast<__m512i>(keys), r = reinterpret_cast<__m512i>(rank);
  const __mmask16 above = _mm512_cmplt_epu32_mask(_mm512_set1_epi32(static_cast<int>(other)), own);
  rank = reinterpret_cast<U>(_mm512_mask_add_epi32(r, above, r, _mm512_set1_epi32(1)));
#else
  rank -= reinterpret_cast<U>(other < keys);
#endif
}

ORLIX_INLINE ORLIX_LANES_TARGET void StoreRoots(double* to, const F& d) {
#if defined(ORLIX_LANES_AVX512)
  _mm512_storeu_pd(to, _mm512_sqrt_pd(reinterpret_cast<__m512d>(d)));
#elif defined(ORLIX_LANES_AVX2)
  __m256d halves[2];
  __builtin_memcpy(halves, &d, sizeof d);
  _mm256_storeu_pd(to, _mm256_sqrt_pd(halves[0])), _mm256_storeu_pd(to + 4, _mm256_sqrt_pd(halves[1]));
#else
  for (int l = 0; l < kLanes; ++l) to[l] = std::sqrt(d[l]);
#endif
}

// Puts what was found in order, nearest first: each goes to the place that the count of smaller keys gives. A key is a
// distance in single precision whose last bits number it, so that no two are equal; neighbours that the lost digits
// put in the wrong order change places afterwards.
ORLIX_LANES_TARGET void SortFound(KdScratch& s, int count, Neighbour* out) {
  alignas(64) std::uint32_t keys[KdScratch::kRanked + kKeyLanes], ranks[KdScratch::kRanked + kKeyLanes];
  alignas(64) double roots[KdScratch::kRanked + kLanes];
  constexpr std::uint32_t kNumber = 127;
  constexpr HalfU kNumbers = {0, 1, 2, 3, 4, 5, 6, 7};
  for (int v = 0; v < count; v += kLanes) {
    F d;
    Load(d, s.distances + v);
    const auto single = __builtin_convertvector(d, Singles);
    StoreRoots(roots + v, d);
    HalfU key;
    __builtin_memcpy(&key, &single, sizeof key);
    key = (key & ~kNumber) | (kNumbers + static_cast<std::uint32_t>(v));
    __builtin_memcpy(keys + v, &key, sizeof key);
  }
  for (int v = 0; v < count; v += kKeyLanes) {
    U own, rank = {};
    __builtin_memcpy(&own, keys + v, sizeof own);
    for (int n = 0; n < count; ++n) CountAbove(rank, own, keys[n]);
    __builtin_memcpy(ranks + v, &rank, sizeof rank);
  }
  for (int n = 0; n < count; ++n) out[ranks[n]] = {s.indices[n], s.distances[n], roots[n]};
  for (int n = 1; n < count; ++n) {
    for (int m = n; m > 0 && Nearer(out[m], out[m - 1]); --m) std::swap(out[m], out[m - 1]);
  }
}

// A node or leaf still to be visited, and its squared distance.
struct Waiting {
  double distance;
  std::int32_t node;
};

// Puts a child on the stack, above bottom so that the nearest comes off first.
ORLIX_INLINE ORLIX_LANES_TARGET void Push(Waiting* stack, int bottom, int& depth, const Waiting& child) {
  int at = depth++;
  for (; at > bottom && stack[at - 1].distance < child.distance; --at) stack[at] = stack[at - 1];
  stack[at] = child;
}

// All points nearer than the limit, in no order; when there are more than k, at least the k nearest. Gives their count.
ORLIX_LANES_TARGET int Search(const KdView& tree, const Vec3D& x, double limit, int k, KdScratch& s) {
  int count = 0, depth = 0;
  if (tree.root < 0) return ScanLeaf(tree.leaves[~tree.root], x, limit, s, 0);
  Waiting stack[KdScratch::kDepth];
  stack[depth++] = {0, tree.root};
  while (depth > 0) {
    const Waiting next = stack[--depth];
    if (!(next.distance < limit)) continue;
    const KdBoxes& node = tree.nodes[next.node];
    F d;
    BoxDistances(d, node, x, x);
    const int bottom = depth;
    for (unsigned bits = Bits(d < limit); bits != 0; bits &= bits - 1) {
      const int l = __builtin_ctz(bits);
      if (node.child[l] >= 0) {
        Push(stack, bottom, depth, {d[l], node.child[l]});
      } else {
        count = ScanLeaf(tree.leaves[~node.child[l]], x, limit, s, count);
        if (count >= s.compactAt) limit = s.Compact(count, k, limit);
      }
    }
  }
  return count;
}

ORLIX_INLINE ORLIX_LANES_TARGET void KeepPoints(const KdLeaf& leaf, int l, unsigned bits, KdGathered& to, int at) {
#if defined(ORLIX_LANES_AVX512)
  const auto mask = __mmask8(bits);
  _mm512_storeu_pd(to.x + at, _mm512_maskz_compress_pd(mask, _mm512_loadu_pd(leaf.x + l)));
  _mm512_storeu_pd(to.y + at, _mm512_maskz_compress_pd(mask, _mm512_loadu_pd(leaf.y + l)));
  _mm512_storeu_pd(to.z + at, _mm512_maskz_compress_pd(mask, _mm512_loadu_pd(leaf.z + l)));
  const __m256i index = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(leaf.index + l));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to.index + at), _mm256_maskz_compress_epi32(mask, index));
#else
  for (; bits != 0; bits &= bits - 1, ++at) {
    const int p = l + __builtin_ctz(bits);
    to.x[at] = leaf.x[p], to.y[at] = leaf.y[p], to.z[at] = leaf.z[p], to.index[at] = leaf.index[p];
  }
#endif
}

// Adds the points of a leaf that lie nearer than the limit to the box between two points.
ORLIX_INLINE ORLIX_LANES_TARGET int GatherLeaf(const KdLeaf& leaf, const Vec3D& from, const Vec3D& to, double limit,
                                               KdGathered& gathered, int count) {
  for (int l = 0; l < KdLeaf::kPoints; l += kLanes) {
    F dx, dy, dz;
    Apart(dx, leaf.x + l, leaf.x + l, from.x, to.x);
    Apart(dy, leaf.y + l, leaf.y + l, from.y, to.y);
    Apart(dz, leaf.z + l, leaf.z + l, from.z, to.z);
    const unsigned bits = Bits(dx * dx + dy * dy + dz * dz < limit);
    KeepPoints(leaf, l, bits, gathered, count);
    count += __builtin_popcount(bits);
  }
  return count;
}

// The points that places between from and to may have as neighbours; false when there are too many to keep.
ORLIX_LANES_TARGET bool Gather(const KdView& tree, const Vec3D& from, const Vec3D& to, double limit,
                               KdGathered& gathered) {
  int depth = 0, count = 0;
  Waiting stack[KdScratch::kDepth];
  if (tree.root < 0) return false;
  stack[depth++] = {0, tree.root};
  while (depth > 0) {
    const KdBoxes& node = tree.nodes[stack[--depth].node];
    F d;
    BoxDistances(d, node, from, to);
    const int bottom = depth;
    for (unsigned bits = Bits(d < limit); bits != 0; bits &= bits - 1) {
      const int l = __builtin_ctz(bits);
      if (node.child[l] >= 0) {
        Push(stack, bottom, depth, {d[l], node.child[l]});
        continue;
      }
      if (count > KdGathered::kMost) return false;
      count = GatherLeaf(tree.leaves[~node.child[l]], from, to, limit, gathered, count);
    }
  }
  gathered.count = count;
  for (int l = 0; l < kLanes; ++l) gathered.x[count + l] = gathered.y[count + l] = gathered.z[count + l] = kNowhere;
  return true;
}

// Search among gathered points.
ORLIX_LANES_TARGET int SearchGathered(const KdGathered& points, const Vec3D& x, double limit, int k, KdScratch& s) {
  int count = 0;
  for (int v = 0; v < points.count; v += kLanes) {
    F dx, dy, dz;
    Load(dx, points.x + v), Load(dy, points.y + v), Load(dz, points.z + v);
    dx -= x.x, dy -= x.y, dz -= x.z;
    const F d = dx * dx + dy * dy + dz * dz;
    count = Keep(d, points.index + v, Bits(d < limit), s, count);
    if (count >= s.compactAt) limit = s.Compact(count, k, limit);
  }
  return count;
}

}  // namespace ORLIX_LANES
}  // namespace orlix
