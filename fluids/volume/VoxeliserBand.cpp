#include "fluids/volume/VoxeliserBand.h"

#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>

#include "fluids/volume/RowCrossing.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kSlabLayers = 2;  // a slab's nodes stay in the cache while its triangles pass
constexpr int kChunks = 256;    // pieces of the triangle list for binning
constexpr int kLanes = 4;
constexpr int kWideBox = 24;  // cells; above, a triangle's plane bounds better than its box

using Lanes = double __attribute__((vector_size(kLanes * sizeof(double))));

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

// A triangle's box in world space, a little wider than it is, so that a bound by it is never above a distance that
// rounding made a little small; and its plane, for the same purpose.
struct TriangleBound {
  Vec3D low, high;
  Vec3D normal;  // 0: don't use the plane
  double slack;

  TriangleBound(const TriangleTerms& t, double extent, bool usePlane)
      : low(Min(Min(t.x1, t.x2), t.x3)), high(Max(Max(t.x1, t.x2), t.x3)), slack(1e-12 * extent) {
    low -= Vec3D(slack);
    high += Vec3D(slack);
    if (!usePlane) return;
    const Vec3D across = Cross(t.x1 - t.x3, t.x2 - t.x3);
    const double area = LengthSquared(across);
    // The plane of a thin triangle is known too badly.
    if (area > 1e-4 * t.m13 * t.m23) normal = across / std::sqrt(area);
  }
  static double Outside(double p, double low, double high) {
    const double below = low - p, above = p - high;
    const double most = below > above ? below : above;
    return most > 0 ? most : 0;
  }
};

// One row of nodes of one triangle's box.
struct BandRow {
  const double* x;  // world positions of the nodes
  double* squared;
  std::int32_t* closest;
  int count;
  double y, z;
  double outside;      // squared distance of the row from the box in y and z
  double planeOffset;  // normal . (0, y, z) - normal . x3
};

struct LaneVector {
  Lanes x, y, z;
};
inline void Subtract(LaneVector& out, const Vec3D& a, const LaneVector& b) {
  out.x = a.x - b.x, out.y = a.y - b.y, out.z = a.z - b.z;
}
inline void SegmentDistance(Lanes& out, const LaneVector& p, const Vec3D& a, const Vec3D& b, double inverse) {
  const Vec3D ab = a - b;
  LaneVector ap;
  Subtract(ap, a, p);
  Lanes s = (ap.x * ab.x + ap.y * ab.y + ap.z * ab.z) * inverse;
  const Lanes zero{}, one = zero + 1.0;
  s = s > zero ? (s < one ? s : one) : zero;
  const Lanes rest = 1.0 - s;
  const Lanes dx = p.x - (b.x * s + a.x * rest), dy = p.y - (b.y * s + a.y * rest), dz = p.z - (b.z * s + a.z * rest);
  out = dx * dx + dy * dy + dz * dz;
}

// SquaredDistance for four points: the same operations, so the same bits.
inline void LaneDistances(Lanes& out, const LaneVector& p, const TriangleTerms& t) {
  const Vec3D x13 = t.x1 - t.x3, x23 = t.x2 - t.x3;
  const Lanes zero{};
  const Lanes dx = p.x - t.x3.x, dy = p.y - t.x3.y, dz = p.z - t.x3.z;
  const Lanes a = x13.x * dx + x13.y * dy + x13.z * dz, b = x23.x * dx + x23.y * dy + x23.z * dz;
  const Lanes w23 = t.inverseDeterminant * (t.m23 * a - t.d * b);
  const Lanes w31 = t.inverseDeterminant * (t.m13 * b - t.d * a);
  const Lanes w12 = 1.0 - w23 - w31;
  const Lanes ex = p.x - (t.x1.x * w23 + t.x2.x * w31 + t.x3.x * w12);
  const Lanes ey = p.y - (t.x1.y * w23 + t.x2.y * w31 + t.x3.y * w12);
  const Lanes ez = p.z - (t.x1.z * w23 + t.x2.z * w31 + t.x3.z * w12);
  const Lanes face = ex * ex + ey * ey + ez * ez;
  Lanes s12, s13, s23;
  SegmentDistance(s12, p, t.x1, t.x2, t.inv12);
  SegmentDistance(s13, p, t.x1, t.x3, t.inv13);
  SegmentDistance(s23, p, t.x2, t.x3, t.inv23);
  const Lanes at1 = s13 < s12 ? s13 : s12, at2 = s23 < s12 ? s23 : s12, at3 = s23 < s13 ? s23 : s13;
  const Lanes edge = w23 > zero ? at1 : (w31 > zero ? at2 : at3);
  const auto inside = (w23 >= zero) & (w31 >= zero) & (w12 >= zero);
  out = inside ? face : edge;
}

ORLIX_MULTIVERSION void FillBandRow(const BandRow& row, const TriangleTerms& t, const TriangleBound& bound,
                                    std::int32_t triangle) {
  using Mask = decltype(Lanes{} < Lanes{});
  const Lanes zero{};
  for (int i = 0; i < row.count; i += kLanes) {
    const int here = row.count - i < kLanes ? row.count - i : kLanes;
    Lanes x, best = zero - 1.0;  // lanes behind the end never improve
    std::memcpy(&x, row.x + i, sizeof x);
    if (here == kLanes)
      std::memcpy(&best, row.squared + i, sizeof best);
    else
      for (int l = 0; l < here; ++l) best[l] = row.squared[i + l];
    const Lanes below = bound.low.x - x, above = x - bound.high.x;
    Lanes outside = below > above ? below : above;
    outside = outside > zero ? outside : zero;
    Lanes least = outside * outside + row.outside;
    Lanes plane = bound.normal.x * x + row.planeOffset;
    plane = (plane > zero ? plane : -plane) - bound.slack;
    plane = plane > zero ? plane * plane : zero;
    least = plane > least ? plane : least;
    Mask open = least < best;
    if ((open[0] | open[1] | open[2] | open[3]) == 0) continue;
    const LaneVector p{x, zero + row.y, zero + row.z};
    Lanes distance;
    LaneDistances(distance, p, t);
    open = distance < best;
    for (int l = 0; l < here; ++l) {
      if (open[l] == 0) continue;
      row.squared[i + l] = distance[l];
      row.closest[i + l] = triangle;
    }
  }
}

// Which triangles reach which slab, in the triangles' order.
class SlabBins {
 public:
  SlabBins(const NodeLattice& lattice, int band, const std::vector<TriangleTerms>& triangles, WorkerPool& pool)
      : slabs_((lattice.dims.z + kSlabLayers - 1) / kSlabLayers) {
    const auto count = static_cast<std::int64_t>(triangles.size());
    const auto reach = [&](const TriangleTerms& t) {
      const double a = lattice.Index(t.x1).z, b = lattice.Index(t.x2).z, c = lattice.Index(t.x3).z;
      const Span span = BandSpan(std::min({a, b, c}), std::max({a, b, c}), band, lattice.dims.z);
      return Span{span.first / kSlabLayers, span.last / kSlabLayers};
    };
    const auto forChunk = [&](int chunk, auto&& f) {
      for (std::int64_t t = count * chunk / kChunks; t < count * (chunk + 1) / kChunks; ++t) {
        const Span span = reach(triangles[static_cast<std::size_t>(t)]);
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
      : lattice_(lattice), band_(band), scratch_(scratch), squared_(squared) {
    for (int i = 0; i < lattice.dims.x; ++i) x_.push_back(lattice.World(i, 0, 0).x);
    x_.resize(x_.size() + kLanes);  // so that a row's last lanes can be loaded
    const Vec3D far = lattice.World(lattice.dims.x, lattice.dims.y, lattice.dims.z);
    for (int axis = 0; axis < 3; ++axis) extent_ += std::abs(lattice.origin[axis]) + std::abs(far[axis]);
  }

  void FillSlab(int kFirst, int kLast, std::span<const std::int32_t> triangles) {
    const std::int64_t begin = squared_.Index(0, 0, kFirst), count = squared_.slab * (kLast - kFirst + 1);
    std::fill_n(squared_.data + begin, count, std::numeric_limits<double>::max());
    std::fill_n(scratch_.closest.data + begin, count, kNoTriangle);
    std::fill_n(scratch_.crossings.data + begin, count, std::uint8_t(0));
    for (const std::int32_t t : triangles) AddTriangle(t, kFirst, kLast);
  }

 private:
  void AddTriangle(std::int32_t number, int kFirst, int kLast) {
    const TriangleTerms& t = scratch_.triangles[static_cast<std::size_t>(number)];
    const Vec3D p = lattice_.Index(t.x1), q = lattice_.Index(t.x2), r = lattice_.Index(t.x3);
    const Vec3D low = Min(Min(p, q), r), high = Max(Max(p, q), r);
    const Span is = BandSpan(low.x, high.x, band_, lattice_.dims.x),
               js = BandSpan(low.y, high.y, band_, lattice_.dims.y);
    const Span ks = BandSpan(low.z, high.z, band_, lattice_.dims.z);
    const Vec3D size = high - low;
    const TriangleBound bound(t, extent_, std::max({size.x, size.y, size.z}) > kWideBox);
    const double plane3 = Dot(bound.normal, t.x3);
    for (int k = std::max(ks.first, kFirst); k <= std::min(ks.last, kLast); ++k) {
      const double z = k * lattice_.spacing.z + lattice_.origin.z;
      const double outZ = TriangleBound::Outside(z, bound.low.z, bound.high.z);
      for (int j = js.first; j <= js.last; ++j) {
        const double y = j * lattice_.spacing.y + lattice_.origin.y;
        const double outY = TriangleBound::Outside(y, bound.low.y, bound.high.y);
        const std::int64_t at = squared_.Index(is.first, j, k);
        FillBandRow({x_.data() + is.first, squared_.data + at, scratch_.closest.data + at, is.last - is.first + 1, y, z,
                     outY * outY + outZ * outZ, bound.normal.y * y + bound.normal.z * z - plane3},
                    t, bound, number);
      }
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
  std::vector<double> x_;
  double extent_ = 0;
};

}  // namespace

void FillExactBand(const NodeLattice& lattice, int band, VoxeliserScratch& scratch, GridView<double> squared,
                   WorkerPool& pool, int workers) {
  const SlabBins bins(lattice, band, scratch.triangles, pool);
  BandFiller filler(lattice, band, scratch, squared);
  std::atomic<int> next{0};
  pool.Run(workers, [&](int) {
    for (int slab = next++; slab < bins.slabs(); slab = next++) {
      const int first = slab * kSlabLayers;
      filler.FillSlab(first, std::min(first + kSlabLayers, lattice.dims.z) - 1, bins.Of(slab));
    }
  });
}

}  // namespace orlix
