#include "fluids/level_sets/VoxeliserBand.h"

#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <span>
#include <vector>

#include "fluids/level_sets/BitLists.h"
#include "fluids/level_sets/CornerBound.h"
#include "fluids/level_sets/RowCrossing.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kSlabLayers = 4;   // a slab's nodes stay in the cache while its triangles pass
constexpr int kChunks = 256;     // pieces of the triangle list for binning
constexpr int kSmallReach = 16;  // nodes; of a triangle with a wider box, box and plane bound better than corners

constexpr double kFar = std::numeric_limits<double>::max();
constexpr int kLevels = 3;
int LevelOf(std::int32_t triangle) {
  const std::uint32_t mixed = static_cast<std::uint32_t>(triangle) * 2654435761u >> 26;
  return mixed < 2 ? 0 : mixed < 12 ? 1 : 2;
}

double Clamped(double value, int n) { return value < 0 ? 0 : value > n - 1 ? n - 1 : value; }

// Nodes of one axis, both ends inclusive.
struct Span {
  int first, last;
};
Span BandSpan(double low, double high, int band, int n) {
  return {static_cast<int>(Clamped(std::trunc(low) - band, n)),
          static_cast<int>(Clamped(std::trunc(high) + band + 1, n))};
}
Span RowSpan(double low, double high, int n) {
  return {static_cast<int>(Clamped(std::ceil(low), n)), static_cast<int>(Clamped(std::floor(high), n))};
}

// Both bounds are a little lower than they might be, so that they are never above a distance that rounding made a
// little small.

// Of a large triangle: its box, and its plane.
struct BoxBound {
  Vec3D low, high;
  Vec3D normal;  // 0: don't use the plane
  double planeAt3 = 0, slack;

  BoxBound(const TriangleTerms& t, double extent)
      : low(Min(Min(t.x1, t.x2), t.x3)), high(Max(Max(t.x1, t.x2), t.x3)), slack(1e-12 * extent) {
    low -= Vec3D(slack);
    high += Vec3D(slack);
    const Vec3D across = Cross(t.x1 - t.x3, t.x2 - t.x3);
    const double area = LengthSquared(across);
    // The plane of a thin triangle is known too badly.
    if (area > 1e-4 * t.m13 * t.m23) normal = across / std::sqrt(area);
    planeAt3 = Dot(normal, t.x3);
  }
  static double Outside(double p, double lowest, double highest) {
    const double below = lowest - p, above = p - highest;
    return std::max({below, above, 0.0});
  }

  // What is the same along a row.
  struct Row {
    double outside, plane;
  };
  Row OfRow(double y, double z) const {
    const double outY = Outside(y, low.y, high.y), outZ = Outside(z, low.z, high.z);
    return {outY * outY + outZ * outZ, normal.y * y + normal.z * z - planeAt3};
  }
  ORLIX_INLINE void Least(Lanes& least, const Lanes& x, const Row& row) const {
    const Lanes zero{}, below = low.x - x, above = x - high.x;
    Lanes outside = below > above ? below : above;
    outside = outside > zero ? outside : zero;
    least = outside * outside + row.outside;
    Lanes plane = normal.x * x + row.plane;
    plane = (plane > zero ? plane : -plane) - slack;
    plane = plane > zero ? plane * plane : zero;
    least = plane > least ? plane : least;
  }
};

constexpr int kFloats = 8;
using FloatLanes = float __attribute__((vector_size(kFloats * sizeof(float))));
using FourFloats = float __attribute__((vector_size(kLanes * sizeof(float))));
using LongLanes = std::int64_t __attribute__((vector_size(sizeof(Lanes))));
constexpr double kFloatError = 1e-6;  // relative, of a sum of three rounded squares

// Of a small one: its corners, in single precision. The squares of the ways to them along each axis are the same for
// whole planes of nodes.
struct CornersBound {
  alignas(sizeof(FloatLanes)) float x[3][kSmallReach] = {};
  float y[3][kSmallReach], z[3][kSlabLayers];

  // Of the nodes at these places: nx, ny, nz of them.
  CornersBound(const TriangleTerms& t, double slack, const double* xs, int nx, const double* ys, int ny,
               const double* zs, int nz) {
    const Vec3D corners[3] = {t.x1, t.x2, t.x3};
    const auto square = [](double way) { return way * way * (1 - kFloatError); };
    for (int c = 0; c < 3; ++c) {
      for (int i = 0; i < nx; ++i) x[c][i] = static_cast<float>(square(xs[i] - corners[c].x));
      for (int j = 0; j < ny; ++j) y[c][j] = static_cast<float>(square(ys[j] - corners[c].y));
      for (int k = 0; k < nz; ++k) z[c][k] = static_cast<float>(square(zs[k] - corners[c].z) - slack);
    }
  }
  // Of kFloats nodes from (i, j, k) on.
  ORLIX_INLINE void Least(FloatLanes& least, int i, int j, int k) const {
    FloatLanes e1, e2, e3;  // not in a loop, which would keep them in memory
    std::memcpy(&e1, x[0] + i, sizeof e1), std::memcpy(&e2, x[1] + i, sizeof e2), std::memcpy(&e3, x[2] + i, sizeof e3);
    e1 += y[0][j] + z[0][k], e2 += y[1][j] + z[1][k], e3 += y[2][j] + z[2][k];
    const FloatLanes e12 = e1 < e2 ? e1 : e2;
    least = e12 < e3 ? e12 : e3;
  }
};

// A float that is a little above a squared distance.
constexpr double kAbove = 1 + 2e-7, kTiny = std::numeric_limits<float>::min();
float AtLeast(double squared) { return static_cast<float>(squared * kAbove + kTiny); }

// What rows of nodes are written to, and the places of nodes in the world.
struct BandField {
  const double *x, *y, *z;
  GridView<double> squared;
  std::int32_t* closest;
  float* limit;  // of the slab's nodes: their squared distances or a little more
  int kFirst;    // the slab's first layer

  std::int64_t Limit(int i, int j, int k) const { return squared.Index(i, j, k - kFirst); }
};

// Nodes first to last in each axis.
struct Block {
  Span x, y, z;
};

ORLIX_INLINE bool AnyLane(const decltype(Lanes{} < Lanes{}) & mask) {
  const auto half = mask | __builtin_shufflevector(mask, mask, 2, 3, 0, 1);
#ifdef __SSE2__
  using Pair = double __attribute__((vector_size(16)));
  return __builtin_ia32_movmskpd(__builtin_bit_cast(Pair, __builtin_shufflevector(half, half, 0, 1))) != 0;
#else
  return (half[0] | half[1]) != 0;
#endif
}

// One row at a time, for triangles of any size.
ORLIX_MULTIVERSION void FillLargeBlock(const BandField& field, const Block& block, const TriangleTerms& t,
                                       const BoxBound& bound, std::int32_t triangle) {
  const Lanes zero{};
  LaneTriangle<double> lanes;
  Broadcast(lanes, t);
  const int count = block.x.last - block.x.first + 1, here = std::min(count, kLanes);
  for (int k = block.z.first; k <= block.z.last; ++k) {
    for (int j = block.y.first; j <= block.y.last; ++j) {
      const BoxBound::Row row = bound.OfRow(field.y[j], field.z[k]);
      for (int next = 0; next < count; next += kLanes) {
        // The last lanes are moved back into the row; to look at a node twice changes nothing.
        const int i = block.x.first + std::max(std::min(next, count - kLanes), 0);
        double* squared = field.squared.data + field.squared.Index(i, j, k);
        std::int32_t* closest = field.closest + field.squared.Index(i, j, k);
        Lanes x, best = zero - 1.0;  // lanes past the end never improve
        std::memcpy(&x, field.x + i, sizeof x);
        for (int l = 0; l < here; ++l) best[l] = squared[l];
        Lanes least, distance;
        bound.Least(least, x, row);
        if (!AnyLane(least <= best)) continue;
        const LaneVector<Lanes> p{x, zero + field.y[j], zero + field.z[k]};
        LaneSquaredDistances(distance, p, lanes);
        for (int l = 0; l < here; ++l) {
          if (distance[l] > best[l] || (distance[l] == best[l] && closest[l] < triangle)) continue;
          squared[l] = distance[l];
          closest[l] = triangle;
          field.limit[field.Limit(i + l, j, k)] = AtLeast(distance[l]);
        }
      }
    }
  }
}

ORLIX_INLINE unsigned Bits(const decltype(FloatLanes{} < FloatLanes{}) & mask) {
#ifdef __SSE__
  using Half = float __attribute__((vector_size(16)));
  const Half low = __builtin_bit_cast(Half, __builtin_shufflevector(mask, mask, 0, 1, 2, 3));
  const Half high = __builtin_bit_cast(Half, __builtin_shufflevector(mask, mask, 4, 5, 6, 7));
  return static_cast<unsigned>(__builtin_ia32_movmskps(low) | __builtin_ia32_movmskps(high) << 4);
#else
  unsigned bits = 0;
  for (int l = 0; l < kFloats; ++l) bits |= static_cast<unsigned>(mask[l] & 1) << l;
  return bits;
#endif
}

// A small triangle's rows: first those with nodes that pass the bound are listed, then these nodes, and kLanes of them
// at a time are measured, so that no loop has a branch to mispredict.
ORLIX_MULTIVERSION void FillSmallBlock(const BandField& field, const Block& block, const TriangleTerms& t, double slack,
                                       std::int32_t triangle) {
  constexpr int kMostRows = kSlabLayers * kSmallReach, kMost = kMostRows * kSmallReach;
  const int nx = block.x.last - block.x.first + 1, ny = block.y.last - block.y.first + 1,
            nz = block.z.last - block.z.first + 1;
  const double* x = field.x + block.x.first;
  const CornersBound bound(t, slack, x, nx, field.y + block.y.first, ny, field.z + block.z.first, nz);
  std::uint32_t runs[kMostRows * (kSmallReach / kFloats) + 1];  // row, first node, bits of those that passed
  double rowY[kMostRows], rowZ[kMostRows];
  std::int32_t begin[kMostRows];  // in the slab
  int rows = 0, listed = 0;
  for (int k = 0; k < nz; ++k) {
    for (int j = 0; j < ny; ++j, ++rows) {
      rowY[rows] = field.y[block.y.first + j], rowZ[rows] = field.z[block.z.first + k];
      begin[rows] = static_cast<std::int32_t>(field.Limit(block.x.first, block.y.first + j, block.z.first + k));
      for (int i = 0; i < nx; i += kFloats) {
        FloatLanes limit, least;
        std::memcpy(&limit, field.limit + begin[rows] + i, sizeof limit);
        bound.Least(least, i, j, k);
        const unsigned passed = Bits(least <= limit) & ((2u << (nx - 1 - i)) - 1) & 255u;
        runs[listed] = static_cast<std::uint32_t>(rows << 16 | i << 8) | passed;
        listed += passed != 0;
      }
    }
  }
  std::uint8_t nodeX[kMost + kFloats], nodeRow[kMost + kFloats];
  int nodes = 0;
  for (int r = 0; r < listed; ++r) {
    const BitList& list = kBitLists[runs[r] & 255];
    constexpr std::uint64_t kOnes = 0x0101010101010101u;
    std::uint64_t at;
    std::memcpy(&at, list.bits, sizeof at);
    at += (runs[r] >> 8 & 255) * kOnes;
    std::memcpy(nodeX + nodes, &at, sizeof at);
    std::memset(nodeRow + nodes, static_cast<int>(runs[r] >> 16), sizeof at);
    nodes += list.count;
  }
  if (nodes == 0) return;
  // Lanes past the end measure the last node again.
  for (int l = 0; l < kLanes; ++l) nodeX[nodes + l] = nodeX[nodes - 1], nodeRow[nodes + l] = nodeRow[nodes - 1];
  const std::int64_t slab = field.squared.Index(0, 0, field.kFirst);
  double* squared = field.squared.data + slab;
  std::int32_t* closest = field.closest + slab;
  LaneTriangle<double> lanes;
  Broadcast(lanes, t);
  for (int n = 0; n < nodes; n += kLanes) {
    std::int32_t at[kLanes];
    for (int l = 0; l < kLanes; ++l) at[l] = begin[nodeRow[n + l]] + nodeX[n + l];
    const std::uint8_t *i = nodeX + n, *row = nodeRow + n;
    const LaneVector<Lanes> p{Lanes{x[i[0]], x[i[1]], x[i[2]], x[i[3]]},
                              Lanes{rowY[row[0]], rowY[row[1]], rowY[row[2]], rowY[row[3]]},
                              Lanes{rowZ[row[0]], rowZ[row[1]], rowZ[row[2]], rowZ[row[3]]}};
    const Lanes best{squared[at[0]], squared[at[1]], squared[at[2]], squared[at[3]]};
    const LongLanes before{closest[at[0]], closest[at[1]], closest[at[2]], closest[at[3]]};
    Lanes distance;
    LaneSquaredDistances(distance, p, lanes);
    const auto taken = (distance < best) | ((distance == best) & (before > triangle));
    const Lanes least = taken ? distance : best;
    const LongLanes nearest = taken ? LongLanes{} + triangle : before;
    const FourFloats limit = __builtin_convertvector(least * kAbove + kTiny, FourFloats);
    for (int l = 0; l < kLanes; ++l) {
      squared[at[l]] = least[l], closest[at[l]] = static_cast<std::int32_t>(nearest[l]), field.limit[at[l]] = limit[l];
    }
  }
}

// The slabs that a triangle reaches.
Span SlabReach(const NodeLattice& lattice, int band, const Vec3D& x1, const Vec3D& x2, const Vec3D& x3) {
  const double a = lattice.Index(x1).z, b = lattice.Index(x2).z, c = lattice.Index(x3).z;
  const Span span = BandSpan(std::min({a, b, c}), std::max({a, b, c}), band, lattice.dims.z);
  return {span.first / kSlabLayers, span.last / kSlabLayers};
}

// Which triangles reach which slab, in the triangles' order.
class SlabBins {
 public:
  SlabBins(const NodeLattice& lattice, int band, const TriangleList& triangles, WorkerPool& pool)
      : slabs_((lattice.dims.z + kSlabLayers - 1) / kSlabLayers) {
    const std::int64_t count = triangles.count;
    const auto forChunk = [&](int chunk, auto&& f) {
      for (std::int64_t t = count * chunk / kChunks; t < count * (chunk + 1) / kChunks; ++t) {
        const TriangleTerms& terms = triangles[t];
        const Span span = SlabReach(lattice, band, terms.x1, terms.x2, terms.x3);
        for (int s = span.first; s <= span.last; ++s) f(s, static_cast<std::int32_t>(t));
      }
    };
    std::vector<std::int64_t> starts(std::size_t(slabs_) * kChunks + 1, 0);
    ParallelRange(pool, 0, kChunks, [&](int from, int to, int) {
      for (int chunk = from; chunk < to; ++chunk) {
        forChunk(chunk, [&](int s, std::int32_t) { ++starts[std::size_t(s) * kChunks + chunk + 1]; });
      }
    });
    for (std::size_t i = 1; i < starts.size(); ++i) starts[i] += starts[i - 1];
    entries_.resize(static_cast<std::size_t>(starts.back()));
    first_.resize(std::size_t(slabs_) + 1);
    for (int s = 0; s <= slabs_; ++s) first_[s] = starts[std::size_t(s) * kChunks];
    ParallelRange(pool, 0, kChunks, [&](int from, int to, int) {
      for (int chunk = from; chunk < to; ++chunk) {
        forChunk(chunk, [&](int s, std::int32_t t) {
          entries_[static_cast<std::size_t>(starts[std::size_t(s) * kChunks + chunk]++)] = t;
        });
      }
    });
  }

  int slabs() const { return slabs_; }
  std::span<const std::int32_t> Of(int slab) const {
    return std::span(entries_).subspan(static_cast<std::size_t>(first_[slab]),
                                       static_cast<std::size_t>(first_[slab + 1] - first_[slab]));
  }

 private:
  int slabs_;
  std::vector<std::int64_t> first_;
  std::vector<std::int32_t> entries_;
};

class BandFiller {
 public:
  BandFiller(const NodeLattice& lattice, int band, VoxeliserScratch& scratch, GridView<double> squared)
      : lattice_(lattice),
        band_(band),
        scratch_(scratch),
        squared_(squared),
        limits_({static_cast<std::int32_t>(squared.slab * std::min(kSlabLayers, squared.dims.z)) + kFloats, 1, 1},
                kGridScratch) {
    for (int axis = 0; axis < 3; ++axis) {
      for (int i = 0; i < lattice.dims[axis]; ++i) places_[axis].push_back(lattice.World(i, i, i)[axis]);
      places_[axis].resize(places_[axis].size() + kLanes);  // so that a short row's lanes can be loaded
    }
    field_ = {places_[0].data(), places_[1].data(), places_[2].data(), squared, scratch.closest.data, limits_.data, 0};
    const Vec3D far = lattice.World(lattice.dims.x, lattice.dims.y, lattice.dims.z);
    for (int axis = 0; axis < 3; ++axis) extent_ += std::abs(lattice.origin[axis]) + std::abs(far[axis]);
  }

  void FillSlab(int kFirst, int kLast, std::span<const std::int32_t> triangles) {
    const std::int64_t begin = squared_.Index(0, 0, kFirst), count = squared_.slab * (kLast - kFirst + 1);
    std::fill_n(squared_.data + begin, count, kFar);
    std::fill_n(scratch_.closest.data + begin, count, kNoTriangle);
    std::fill_n(scratch_.crossings.data + begin, count, std::uint8_t(0));
    limits_.Fill(std::numeric_limits<float>::infinity());
    field_.kFirst = kFirst;
    // A few that are spread over the surface first: with their distances the rest is mostly turned away by its bound.
    for (int level = 0; level < kLevels; ++level) {
      for (const std::int32_t t : triangles) {
        if (LevelOf(t) == level) AddTriangle(t, kFirst, kLast);
      }
    }
    double* values = squared_.data + begin;
    for (std::int64_t n = 0; n < count; ++n) values[n] = values[n] < kFar ? std::sqrt(values[n]) : kFar;
  }

 private:
  void AddTriangle(std::int32_t number, int kFirst, int kLast) {
    const TriangleTerms& t = scratch_.triangles[number];
    const Vec3D p = lattice_.Index(t.x1), q = lattice_.Index(t.x2), r = lattice_.Index(t.x3);
    const Vec3D low = Min(Min(p, q), r), high = Max(Max(p, q), r);
    const Span is = BandSpan(low.x, high.x, band_, lattice_.dims.x),
               js = BandSpan(low.y, high.y, band_, lattice_.dims.y);
    const Span ks = BandSpan(low.z, high.z, band_, lattice_.dims.z);
    const double radius = SquaredCoveringRadius(t.x1, t.x2, t.x3), cell = lattice_.spacing.x;
    const Block block{is, js, {std::max(ks.first, kFirst), std::min(ks.last, kLast)}};
    const int widest = std::max(is.last - is.first, js.last - js.first) + 1;
    if (widest <= kSmallReach) {
      const double slack = radius * (1 + kFloatError) + 1e-14 * extent_ * (2 * kSmallReach * cell);
      FillSmallBlock(field_, block, t, slack, number);
    } else {
      FillLargeBlock(field_, block, t, BoxBound(t, extent_), number);
    }
    CountCrossings(p, q, r, low, high, kFirst, kLast);
  }

  void CountCrossings(const Vec3D& p, const Vec3D& q, const Vec3D& r, const Vec3D& low, const Vec3D& high, int kFirst,
                      int kLast) {
    const Span js = RowSpan(low.y, high.y, lattice_.dims.y), ks = RowSpan(low.z, high.z, lattice_.dims.z);
    for (int k = std::max(ks.first, kFirst); k <= std::min(ks.last, kLast); ++k) {
      for (int j = js.first; j <= js.last; ++j) {
        const std::optional<double> x = RowCrossing(j, k, p, q, r);
        if (!x) continue;
        const double i = std::ceil(*x);
        if (i < lattice_.dims.x) ++scratch_.crossings(i > 0 ? static_cast<int>(i) : 0, j, k);
      }
    }
  }

  const NodeLattice& lattice_;
  int band_;
  VoxeliserScratch& scratch_;
  GridView<double> squared_;
  std::vector<double> places_[3];
  Grid<float> limits_;
  BandField field_{};
  double extent_ = 0;
};

// For each slab whether triangles reach it, or reached it, that moved.
std::vector<std::uint8_t> ChangedSlabs(const NodeLattice& lattice, int band, const TriangleList& triangles,
                                       const VoxeliserHistory& history, int slabs) {
  std::vector<std::uint8_t> changed(static_cast<std::size_t>(slabs), 0);
  const auto mark = [&](const Span& span) { std::fill(&changed[span.first], &changed[span.last] + 1, 1); };
  for (std::int64_t t = 0; t < triangles.count; ++t) {
    if (!history.HasMoved(t)) continue;
    mark(SlabReach(lattice, band, triangles[t].x1, triangles[t].x2, triangles[t].x3));
    mark(SlabReach(lattice, band, history.CornerBefore(t, 0), history.CornerBefore(t, 1), history.CornerBefore(t, 2)));
  }
  return changed;
}

}  // namespace

void FillExactBand(const NodeLattice& lattice, int band, VoxeliserScratch& scratch, GridView<double> distances,
                   WorkerPool& pool, int workers, VoxeliserHistory* history) {
  const SlabBins bins(lattice, band, scratch.triangles, pool);
  std::vector<std::uint8_t> changed;
  if (history && history->IsFilled()) changed = ChangedSlabs(lattice, band, scratch.triangles, *history, bins.slabs());
  std::atomic<int> next{0};
  std::deque<BandFiller> fillers;
  for (int worker = 0; worker < workers; ++worker) fillers.emplace_back(lattice, band, scratch, distances);
  pool.Run(workers, [&](int worker) {
    for (int slab = next++; slab < bins.slabs(); slab = next++) {
      const int first = slab * kSlabLayers, last = std::min(first + kSlabLayers, lattice.dims.z) - 1;
      const std::int64_t begin = distances.Index(0, 0, first), count = distances.slab * (last - first + 1);
      if (!changed.empty() && !changed[static_cast<std::size_t>(slab)]) {
        history->LoadBand(scratch, distances, begin, count);
        continue;
      }
      fillers[static_cast<std::size_t>(worker)].FillSlab(first, last, bins.Of(slab));
      if (history) history->SaveBand(scratch, distances, begin, count);
    }
  });
}

}  // namespace orlix
