#include "fluids/particles/ParticleKdTree.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "fluids/grids/PieceMemory.h"
#include "fluids/particles/KdBuilder.h"
#include "globals/Multiversion.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#define ORLIX_LANES kd_baseline
#define ORLIX_LANES_TARGET
#include "fluids/particles/NeighbourLanes.h"
#if defined(__x86_64__)
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#define ORLIX_LANES_AVX2
#define ORLIX_LANES kd_avx2
#define ORLIX_LANES_TARGET __attribute__((target("avx2,bmi,popcnt")))
#include "fluids/particles/NeighbourLanes.h"
#undef ORLIX_LANES
#undef ORLIX_LANES_TARGET
#undef ORLIX_LANES_AVX2
#define ORLIX_LANES_AVX512
#define ORLIX_LANES kd_avx512
#define ORLIX_LANES_TARGET __attribute__((target("avx2,bmi,popcnt,avx512f,avx512dq,avx512vl,avx512bw")))
#include "fluids/particles/NeighbourLanes.h"
#endif

namespace orlix {

namespace {

struct Kernels {
  int (*search)(const KdView&, const Vec3D&, double, int, KdScratch&);
  bool (*gather)(const KdView&, const Vec3D&, const Vec3D&, double, KdGathered&);
  int (*searchGathered)(const KdGathered&, const Vec3D&, double, int, KdScratch&);
  void (*sort)(KdScratch&, int, Neighbour*);
};

#define ORLIX_KERNELS_OF(lanes) \
  { lanes::Search, lanes::Gather, lanes::SearchGathered, lanes::SortFound }

Kernels ChooseKernels() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw")) {
    return ORLIX_KERNELS_OF(kd_avx512);
  }
  if (__builtin_cpu_supports("avx2")) return ORLIX_KERNELS_OF(kd_avx2);
#endif
  return ORLIX_KERNELS_OF(kd_baseline);
}

const Kernels& TheKernels() {
  static const Kernels kKernels = ChooseKernels();
  return kKernels;
}

// A point that is nowhere keeps out of comparisons that NaN would spoil.
KdBuilder::Point PointAt(const Vec3D& x, std::int32_t index) { return {IsFinite(x) ? x : Vec3D(kNowhere), index}; }

}  // namespace

// --- scratch ---------------------------------------------------------------------------------------------------------

void KdScratch::Reserve(int k) {
  compactAt = 2 * k + 64;
  // Beyond the mark there may come one leaf, written by whole vectors.
  const auto size = static_cast<std::size_t>(compactAt + 2 * KdLeaf::kPoints);
  if (size <= results.size()) return;
  distanceRoom_.resize(size), indexRoom_.resize(size), results.resize(size);
  distances = distanceRoom_.data(), indices = indexRoom_.data();
}

double KdScratch::Compact(int& count, int k, double limit) {
  if (count <= k) return limit;
  for (int n = 0; n < count; ++n) results[static_cast<std::size_t>(n)] = {indices[n], distances[n], 0};
  std::nth_element(results.begin(), results.begin() + (k - 1), results.begin() + count, Nearer);
  for (int n = 0; n < k; ++n) {
    indices[n] = results[static_cast<std::size_t>(n)].index;
    distances[n] = results[static_cast<std::size_t>(n)].distanceSquared;
  }
  count = k;
  // A point as far as the last one still counts if its index is lower.
  return std::min(limit, std::nextafter(distances[k - 1], kNowhere));
}

// --- the tree --------------------------------------------------------------------------------------------------------

ParticleKdTree::ParticleKdTree()
    : scratch_(std::make_unique<KdScratch[]>(WorkerPool::kMaxWorkers)),
      counting_(std::make_unique<KdScratch[]>(WorkerPool::kMaxWorkers)) {
  SetCapacity(kDefaultNeighbours);
}

void ParticleKdTree::Build(const ParticleList& list, WorkerPool& pool, bool smoothed) {
  std::vector<KdBuilder::Point> points;
  ReserveOnLargePages(points, static_cast<std::size_t>(list.count()));
  points.resize(static_cast<std::size_t>(list.count()));
  ParallelRows(pool, list, [&](const ParticleRows& rows, int) {
    const auto centres = rows.Property<Vec3D>(PP::SmoothedCentre);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const Vec3D& x = rows.positions()[r];
      points[static_cast<std::size_t>(rows.first + r)] = PointAt(smoothed ? centres.Get(r, x) : x, rows.first + r);
    }
  });
  BuildFrom(points, pool);
}

void ParticleKdTree::Build(std::span<const Vec3D> positions, WorkerPool& pool) {
  std::vector<KdBuilder::Point> points(positions.size());
  for (std::size_t i = 0; i < points.size(); ++i) points[i] = PointAt(positions[i], static_cast<std::int32_t>(i));
  BuildFrom(points, pool);
}

void ParticleKdTree::BuildFrom(std::vector<KdBuilder::Point>& points, WorkerPool& pool) {
  pointCount_ = static_cast<std::int32_t>(points.size());
  if (points.empty()) {
    nodes_.clear(), leaves_.clear();
    return;
  }
  root_ = KdBuilder(pool, nodes_, leaves_).Build(points);
}

void ParticleKdTree::SetCapacity(std::int32_t k) { capacity_ = std::max(k, 1); }

std::int64_t ParticleKdTree::Bytes() const {
  return static_cast<std::int64_t>(nodes_.capacity() * sizeof(KdBoxes) + leaves_.capacity() * sizeof(KdLeaf));
}

int ParticleKdTree::Find(const Vec3D& position, double maxDistanceSquared, int k, KdScratch& scratch) const {
  if (leaves_.empty()) return 0;
  scratch.Reserve(k);
  return TheKernels().search(view(), position, maxDistanceSquared, k, scratch);
}

std::span<const Neighbour> ParticleKdTree::InOrder(KdScratch& scratch, int count, double maxDistanceSquared) const {
  if (count > KdScratch::kRanked) scratch.Compact(count, capacity_, maxDistanceSquared);
  std::vector<Neighbour>& results = scratch.results;
  if (count <= KdScratch::kRanked) {
    TheKernels().sort(scratch, count, results.data());
  } else {
    for (int n = 0; n < count; ++n) {
      const double d = scratch.distances[n];
      results[static_cast<std::size_t>(n)] = {scratch.indices[n], d, std::sqrt(d)};
    }
    std::sort(results.begin(), results.begin() + count, Nearer);
  }
  return {results.data(), static_cast<std::size_t>(std::min(count, capacity_))};
}

std::span<const Neighbour> ParticleKdTree::Search(const Vec3D& position, double maxDistanceSquared,
                                                  std::int32_t thread) const {
  KdScratch& scratch = scratch_[static_cast<std::size_t>(thread)];
  return InOrder(scratch, Find(position, maxDistanceSquared, capacity_, scratch), maxDistanceSquared);
}

void ParticleKdTree::BeginLeaf(const KdLeaf& leaf, double maxDistanceSquared, std::int32_t thread) const {
  Vec3D low(kNowhere), high(-kNowhere);
  for (int p = 0; p < KdLeaf::kPoints && leaf.index[p] >= 0; ++p) {
    const Vec3D x(leaf.x[p], leaf.y[p], leaf.z[p]);
    low = Min(low, x), high = Max(high, x);
  }
  KdScratch& scratch = scratch_[static_cast<std::size_t>(thread)];
  if (!scratch.gathered) scratch.gathered = std::make_unique<KdGathered>();
  scratch.isGathered = TheKernels().gather(view(), low, high, maxDistanceSquared, *scratch.gathered);
}

std::span<const Neighbour> ParticleKdTree::SearchFromLeaf(const Vec3D& position, double maxDistanceSquared,
                                                          std::int32_t thread) const {
  KdScratch& scratch = scratch_[static_cast<std::size_t>(thread)];
  if (!scratch.isGathered) return Search(position, maxDistanceSquared, thread);
  scratch.Reserve(capacity_);
  const int count = TheKernels().searchGathered(*scratch.gathered, position, maxDistanceSquared, capacity_, scratch);
  return InOrder(scratch, count, maxDistanceSquared);
}

std::int32_t ParticleKdTree::Count(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const {
  KdScratch& scratch = counting_[static_cast<std::size_t>(thread)];
  return std::min(Find(position, maxDistanceSquared, capacity_, scratch), capacity_);
}

double ParticleKdTree::NearestDistance(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const {
  KdScratch& scratch = counting_[static_cast<std::size_t>(thread)];
  const int count = Find(position, maxDistanceSquared, 1, scratch);
  return count == 0 ? kNowhere : std::sqrt(*std::min_element(scratch.distances, scratch.distances + count));
}

}  // namespace orlix
