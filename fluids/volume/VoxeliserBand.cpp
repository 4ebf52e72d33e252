#include "fluids/volume/VoxeliserBand.h"

#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>

#include "fluids/volume/CornerBound.h"
#include "fluids/volume/RowCrossing.h"
#include "fluids/volume/TriangleLanes.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kSlabLayers = 2;   // a slab's nodes stay in the cache while its triangles pass
constexpr int kChunks = 256;     // pieces of the triangle list for binning
constexpr int kSmallRadius = 3;  // cells; above, box and plane bound better than corners

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
  ORLIX_LANES void Least(Lanes& least, const Lanes& x, const Row& row) const {
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

// Of a small one: its corners.
struct CornersBound {
  Vec3D corner[3];
  double slack;

  CornersBound(const TriangleTerms& t, double squaredRadius, double extent, double reach)
      : corner{t.x1, t.x2, t.x3}, slack(squaredRadius * (1 + 1e-9) + 1e-14 * extent * reach) {}

  struct Row {
    double outside[3];
  };
  Row OfRow(double y, double z) const {
    Row row;
    for (int c = 0; c < 3; ++c) {
      const double dy = y - corner[c].y, dz = z - corner[c].z;
      row.outside[c] = dy * dy + dz * dz - slack;
    }
    return row;
  }
  ORLIX_LANES void Least(Lanes& least, const Lanes& x, const Row& row) const {
    const Lanes d1 = x - corner[0].x, d2 = x - corner[1].x, d3 = x - corner[2].x;
    const Lanes e1 = d1 * d1 + row.outside[0], e2 = d2 * d2 + row.outside[1], e3 = d3 * d3 + row.outside[2];
    const Lanes e12 = e1 < e2 ? e1 : e2;
    least = e12 < e3 ? e12 : e3;
  }
};

// One row of nodes of one triangle's box.
struct BandRow {
  const double* x;  // world positions of the nodes
  double* squared;
  std::int32_t* closest;
  int count;
  double y, z;
};

template <class Bound>
ORLIX_LANES void FillRow(const BandRow& row, const LaneTriangle<double>& t, const Bound& bound, std::int32_t triangle) {
  const Lanes zero{};
  const typename Bound::Row boundRow = bound.OfRow(row.y, row.z);
  for (int next = 0; next < row.count; next += kLanes) {
    // The last lanes are moved back into the row; to look at a node twice changes nothing.
    const int i = std::max(std::min(next, row.count - kLanes), 0), here = std::min(row.count, kLanes);
    Lanes x, best;
    std::memcpy(&x, row.x + i, sizeof x);
    if (here == kLanes) {
      std::memcpy(&best, row.squared + i, sizeof best);
    } else {
      best = zero - 1.0;  // lanes behind the end never improve
      std::memcpy(&best, row.squared, static_cast<std::size_t>(here) * sizeof(double));
    }
    Lanes least;
    bound.Least(least, x, boundRow);
    auto open = least <= best;
    if ((open[0] | open[1] | open[2] | open[3]) == 0) continue;
    const LaneVector<Lanes> p{x, zero + row.y, zero + row.z};
    Lanes distance;
    LaneSquaredDistances(distance, p, t);
    open = distance <= best;
    if ((open[0] | open[1] | open[2] | open[3]) == 0) continue;
    for (int l = 0; l < here; ++l) {
      if (open[l] == 0 || (distance[l] == best[l] && row.closest[i + l] < triangle)) continue;
      row.squared[i + l] = distance[l];
      row.closest[i + l] = triangle;
    }
  }
}
ORLIX_MULTIVERSION void FillBandRow(const BandRow& row, const LaneTriangle<double>& t, const BoxBound& bound,
                                    std::int32_t triangle) {
  FillRow(row, t, bound, triangle);
}
ORLIX_MULTIVERSION void FillBandRow(const BandRow& row, const LaneTriangle<double>& t, const CornersBound& bound,
                                    std::int32_t triangle) {
  FillRow(row, t, bound, triangle);
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
    // A few that are spread over the surface first: with their distances the rest is mostly turned away by its bound.
    for (int level = 0; level < kLevels; ++level) {
      for (const std::int32_t t : triangles) {
        if (LevelOf(t) == level) AddTriangle(t, kFirst, kLast);
      }
    }
  }

 private:
  void AddTriangle(std::int32_t number, int kFirst, int kLast) {
    const TriangleTerms& t = scratch_.triangles[static_cast<std::size_t>(number)];
    const Vec3D p = lattice_.Index(t.x1), q = lattice_.Index(t.x2), r = lattice_.Index(t.x3);
    const Vec3D low = Min(Min(p, q), r), high = Max(Max(p, q), r);
    const Span is = BandSpan(low.x, high.x, band_, lattice_.dims.x),
               js = BandSpan(low.y, high.y, band_, lattice_.dims.y);
    const Span ks = BandSpan(low.z, high.z, band_, lattice_.dims.z);
    const double radius = SquaredCoveringRadius(t.x1, t.x2, t.x3), cell = lattice_.spacing.x;
    const Block block{is, js, {std::max(ks.first, kFirst), std::min(ks.last, kLast)}};
    if (radius < kSmallRadius * kSmallRadius * cell * cell) {
      FillBlock(block, t, CornersBound(t, radius, extent_, (6 * kSmallRadius + 6 * band_) * cell), number);
    } else {
      FillBlock(block, t, BoxBound(t, extent_), number);
    }
    CountCrossings(p, q, r, low, high, kFirst, kLast);
  }

  struct Block {
    Span x, y, z;
  };
  template <class Bound>
  void FillBlock(const Block& block, const TriangleTerms& t, const Bound& bound, std::int32_t number) {
    LaneTriangle<double> lanes;
    Broadcast(lanes, t);
    for (int k = block.z.first; k <= block.z.last; ++k) {
      const double z = k * lattice_.spacing.z + lattice_.origin.z;
      for (int j = block.y.first; j <= block.y.last; ++j) {
        const double y = j * lattice_.spacing.y + lattice_.origin.y;
        const std::int64_t at = squared_.Index(block.x.first, j, k);
        FillBandRow({x_.data() + block.x.first, squared_.data + at, scratch_.closest.data + at,
                     block.x.last - block.x.first + 1, y, z},
                    lanes, bound, number);
      }
    }
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
