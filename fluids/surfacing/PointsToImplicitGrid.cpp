#include "fluids/surfacing/PointsToImplicitGrid.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>

#include "fluids/particles/KdNodes.h"

namespace orlix {

namespace {

constexpr int kEdge = 4;         // nodes of a block along an axis
constexpr int kCellNodes = 2;    // node distances of a cell of the cloud
constexpr int kMostRounds = 32;  // of the search for a limit

// What all workers read.
struct Reconstruction {
  const ReconstructionSettings& settings;
  const PointCells& cloud;
  const double* ratios;        // by slot, or null
  const StretchedBall* balls;  // by slot, or null
  ScalarGrid& grid;
  double radius, r0, squaredRadius;
};

// Nodes [low, high) of a block, and eight of them at a time.
struct NodeBlock {
  VecInt3D low, high;
};

// One worker's.
class BlockWorker {
 public:
  explicit BlockWorker(const Reconstruction& all) : all_(all) {}
  void Run(const NodeBlock& block);

 private:
  struct Eight {
    VecInt3D node[kPlaces];
    EightPlaces places;
    bool wanted[kPlaces];
    Vec3D mean[kPlaces];  // where the density is to be measured; not finite for none
    bool HasMean() const {
      return std::any_of(mean, mean + kPlaces, [](const Vec3D& m) { return IsFinite(m); });
    }
  };

  static constexpr int kEights = kEdge * kEdge * kEdge / kPlaces;

  void SetUp(const NodeBlock& block);
  bool FindNear(const EightPlaces& places);
  void LimitTo(int place);
  void LimitToNearest(const std::int64_t (&counts)[kPlaces]);
  void KeepOnlyNearest(int place);
  int NearestOf(int place) const;
  void Weigh(const double* values, const PlaceRow& bounds, double scale, int power);
  void Spherical(Eight& eight);
  void Correct();
  void Density(Eight& eight);
  void Average(Eight& eight);
  void Store(const Eight& eight, int n, double value) const {
    all_.grid(eight.node[n].x, eight.node[n].y, eight.node[n].z) = value;
  }

  const Reconstruction& all_;
  NearPoints blockPoints_, points_;
  std::vector<double> squared_, lengths_, weights_;
  std::vector<Neighbour> ranked_;
  PlaceRow bounds_;               // below them the squared distance of a neighbour lies
  std::int64_t counts_[kPlaces];  // neighbours
  Eight eights_[kEights];
  int eightCount_ = 0;
};

void BlockWorker::SetUp(const NodeBlock& block) {
  eightCount_ = 0;
  for (int k = block.low.z; k < block.high.z; k += 2) {
    for (int j = block.low.y; j < block.high.y; j += 2) {
      for (int i = block.low.x; i < block.high.x; i += 2) {
        Eight& eight = eights_[eightCount_++];
        for (int n = 0; n < kPlaces; ++n) {
          const VecInt3D node(i + (n & 1), j + (n >> 1 & 1), k + (n >> 2));
          const VecInt3D held = Min(node, block.high - VecInt3D(1, 1, 1));
          eight.node[n] = held;
          eight.wanted[n] = held == node;
          eight.places.Set(n, all_.grid.space.SimOfVoxel(Vec3D(held)));
        }
        eight.places.FindBox();
      }
    }
  }
}

// The neighbours of eight places among the block's points. False when none has any.
bool BlockWorker::FindNear(const EightPlaces& places) {
  points_.count = 0;
  place_sums::KeepNear(blockPoints_.x.data(), blockPoints_.y.data(), blockPoints_.z.data(), blockPoints_.slot.data(),
                       blockPoints_.count, places.low, places.high, all_.squaredRadius, points_);
  if (points_.count == 0) return false;
  const std::size_t size = std::size_t(points_.count) * kPlaces;
  if (size > squared_.size()) squared_.resize(size * 2), lengths_.resize(size * 2), weights_.resize(size * 2);
  place_sums::Distances(points_, places, all_.squaredRadius, squared_.data(), counts_);
  for (double& bound : bounds_.at) bound = all_.squaredRadius;
  const std::int64_t most = *std::max_element(counts_, counts_ + kPlaces);
  if (most > all_.settings.maxNeighbours) LimitToNearest(counts_);
  for (int n = 0; n < kPlaces; ++n) {
    if (counts_[n] > 1 && counts_[n] < all_.settings.minNeighbours) KeepOnlyNearest(n);
  }
  return most > 0;
}

// Looks for bounds below which the k nearest lie, of all places at once; the count grows about as the bound's power of
// 3/2. Where equal distances leave none, the neighbours are ranked.
void BlockWorker::LimitToNearest(const std::int64_t (&counts)[kPlaces]) {
  const std::int64_t k = all_.settings.maxNeighbours;
  double low[kPlaces] = {}, high[kPlaces];
  std::int64_t lowCount[kPlaces] = {}, highCount[kPlaces], found[kPlaces];
  bool open[kPlaces];
  PlaceRow tries{};
  int left = 0;
  for (int n = 0; n < kPlaces; ++n) {
    high[n] = all_.squaredRadius, highCount[n] = counts[n];
    open[n] = counts[n] > k;
    left += open[n];
  }
  for (int round = 0; round < kMostRounds && left > 0; ++round) {
    for (int n = 0; n < kPlaces; ++n) {
      if (!open[n]) continue;
      double share = (double(k) + 0.5 - double(lowCount[n])) / double(highCount[n] - lowCount[n]);
      if (round == 0) share = std::cbrt(share * share);
      if (round % 3 == 2) share = 0.5;
      tries[n] = low[n] + (high[n] - low[n]) * share;
    }
    place_sums::CountBelow(squared_.data(), points_.count, tries, found);
    for (int n = 0; n < kPlaces; ++n) {
      if (!open[n]) continue;
      if (found[n] == k) {
        bounds_[n] = tries[n], counts_[n] = k, open[n] = false, --left;
      } else if (found[n] < k) {
        low[n] = tries[n], lowCount[n] = found[n];
      } else {
        high[n] = tries[n], highCount[n] = found[n];
      }
    }
  }
  for (int n = 0; n < kPlaces; ++n) {
    if (open[n]) LimitTo(n);
  }
}

void BlockWorker::LimitTo(int place) {
  const std::int32_t k = all_.settings.maxNeighbours;
  const auto indices = all_.cloud.indices();
  const auto at = [&](std::size_t n) -> double& { return squared_[n * kPlaces + std::size_t(place)]; };
  ranked_.clear();
  for (std::size_t n = 0; n < std::size_t(points_.count); ++n) {
    if (at(n) < all_.squaredRadius) ranked_.push_back({indices[std::size_t(points_.slot[n])], at(n), double(n)});
  }
  std::nth_element(ranked_.begin(), ranked_.begin() + k, ranked_.end(), Nearer);
  for (auto each = ranked_.begin() + k; each != ranked_.end(); ++each) at(std::size_t(each->distance)) = kNowhere;
  counts_[place] = k;
}

int BlockWorker::NearestOf(int place) const {
  const auto indices = all_.cloud.indices();
  int best = -1;
  Neighbour least{0, kNowhere, 0};
  for (int n = 0; n < points_.count; ++n) {
    const std::size_t at = std::size_t(n);
    const Neighbour each{indices[std::size_t(points_.slot[at])], squared_[at * kPlaces + std::size_t(place)], 0};
    if (best < 0 || Nearer(each, least)) best = n, least = each;
  }
  return best;
}

void BlockWorker::KeepOnlyNearest(int place) {
  const auto nearest = std::size_t(NearestOf(place));
  for (std::size_t n = 0; n < std::size_t(points_.count); ++n) {
    if (n != nearest) squared_[n * kPlaces + std::size_t(place)] = kNowhere;
  }
  counts_[place] = 1;
}

void BlockWorker::Weigh(const double* values, const PlaceRow& bounds, double scale, int power) {
  if (!all_.settings.kernel) {
    place_sums::Weigh(values, points_.count, bounds, scale, power, weights_.data());
    return;
  }
  const std::size_t size = std::size_t(points_.count) * kPlaces;
  for (std::size_t n = 0; n < size; ++n) lengths_[n] = values[n] < bounds[int(n % kPlaces)] ? values[n] : kNowhere;
  all_.settings.kernel->EvaluateRun(lengths_.data(), static_cast<std::int32_t>(size), all_.squaredRadius,
                                    all_.squaredRadius * all_.radius, weights_.data());
}

void BlockWorker::Spherical(Eight& eight) {
  for (int n = 0; n < kPlaces; ++n) eight.mean[n] = Vec3D(kNowhere);
  if (!FindNear(eight.places)) return;
  Weigh(squared_.data(), bounds_, 1 / all_.squaredRadius, 2);
  PlaceRow sums[4];
  place_sums::AddOffsets(points_, eight.places, all_.settings.useMassRatio ? all_.ratios : nullptr, weights_.data(),
                         sums);
  for (int n = 0; n < kPlaces; ++n) {
    if (!eight.wanted[n] || counts_[n] == 0) continue;
    if (counts_[n] == 1 || sums[0][n] == 0) {
      Store(eight, n, std::sqrt(squared_[std::size_t(NearestOf(n)) * kPlaces + std::size_t(n)]) - all_.r0);
      continue;
    }
    const Vec3D offset = Vec3D(sums[1][n], sums[2][n], sums[3][n]) / sums[0][n];
    Store(eight, n, Length(offset) - all_.r0);
    eight.mean[n] = eight.places.Get(n) + offset;
  }
}

// Gives the radius back what a low density at the mean place takes from it.
void BlockWorker::Correct() {
  Vec3D low(kNowhere), high(-kNowhere);
  for (int e = 0; e < eightCount_; ++e) {
    Eight& eight = eights_[e];
    if (!eight.HasMean()) continue;
    // A place without a mean takes another's, so that the box stays small.
    const Vec3D* some = std::find_if(eight.mean, eight.mean + kPlaces, [](const Vec3D& m) { return IsFinite(m); });
    for (int n = 0; n < kPlaces; ++n) {
      const bool own = IsFinite(eight.mean[n]);
      eight.wanted[n] = eight.wanted[n] && own;
      eight.places.Set(n, own ? eight.mean[n] : *some);
    }
    eight.places.FindBox();
    low = Min(low, eight.places.low), high = Max(high, eight.places.high);
  }
  if (!(low.x <= high.x)) return;
  all_.cloud.Gather(low, high, all_.radius, blockPoints_);
  for (int e = 0; e < eightCount_; ++e) {
    Eight& eight = eights_[e];
    if (!eight.HasMean() || !FindNear(eight.places)) continue;
    Weigh(squared_.data(), bounds_, 1 / all_.squaredRadius, 2);
    PlaceRow density;
    place_sums::AddWeights(points_, all_.ratios, weights_.data(), density);
    for (int n = 0; n < kPlaces; ++n) {
      if (!eight.wanted[n] || counts_[n] == 0) continue;
      const VecInt3D node = eight.node[n];
      all_.grid(node.x, node.y, node.z) += all_.r0 * (1 - all_.settings.RadiusShare(density[n]));
    }
  }
}

void BlockWorker::Density(Eight& eight) {
  if (!FindNear(eight.places)) return;
  place_sums::StretchedLengths(points_, all_.balls, eight.places, squared_.data(), bounds_, lengths_.data());
  const double reach = all_.settings.BallReach() * all_.settings.BallReach();
  PlaceRow bounds;
  for (double& each : bounds.at) each = all_.settings.kernel ? kNowhere : reach;
  Weigh(lengths_.data(), bounds, 1 / reach, 1);
  PlaceRow sum;
  place_sums::AddWeights(points_, all_.ratios, weights_.data(), sum);
  for (int n = 0; n < kPlaces; ++n) {
    if (eight.wanted[n] && counts_[n] > 0) Store(eight, n, (all_.r0 - sum[n]) * all_.settings.particleRadius);
  }
}

void BlockWorker::Average(Eight& eight) {
  if (!FindNear(eight.places)) return;
  place_sums::StretchedLengths(points_, all_.balls, eight.places, squared_.data(), bounds_, lengths_.data());
  PlaceRow whole;
  for (double& each : whole.at) each = all_.squaredRadius;
  Weigh(lengths_.data(), whole, 1 / all_.squaredRadius, 1);
  PlaceRow sums[4];
  place_sums::AddStretchedOffsets(points_, all_.balls, eight.places, weights_.data(), sums);
  for (int n = 0; n < kPlaces; ++n) {
    if (!eight.wanted[n] || counts_[n] == 0 || sums[0][n] == 0) continue;
    const double length = Length(Vec3D(sums[1][n], sums[2][n], sums[3][n]) / sums[0][n]);
    Store(eight, n, std::min(length, all_.r0) - all_.r0);
  }
}

void BlockWorker::Run(const NodeBlock& block) {
  const GridSpace& space = all_.grid.space;
  all_.cloud.Gather(space.SimOfVoxel(Vec3D(block.low)), space.SimOfVoxel(Vec3D(block.high - VecInt3D(1, 1, 1))),
                    all_.radius, blockPoints_);
  if (blockPoints_.count == 0) return;
  SetUp(block);
  for (int e = 0; e < eightCount_; ++e) {
    switch (all_.settings.method) {
      case ReconstructionMethod::Density:
        Density(eights_[e]);
        break;
      case ReconstructionMethod::Average:
        Average(eights_[e]);
        break;
      default:
        Spherical(eights_[e]);
    }
  }
  if (all_.settings.method == ReconstructionMethod::Spherical && all_.settings.densityCorrection) Correct();
}

// Columns in the order of the cloud's slots.
template <class T>
CountedVector<T> BySlot(WorkerPool& pool, const PointCells& cloud, std::span<const T> column) {
  CountedVector<T> sorted(column.empty() ? 0 : std::size_t(cloud.count()));
  ParallelRange(pool, 0, static_cast<int>(sorted.size()), [&](int from, int to, int) {
    for (auto n = std::size_t(from); n < std::size_t(to); ++n) sorted[n] = column[std::size_t(cloud.indices()[n])];
  });
  return sorted;
}

}  // namespace

double ReconstructionSettings::RadiusShare(double density) const {
  if (!(density < upperDensity)) return 1;
  if (!(density > lowerDensity)) return 0;
  const double t = (density - upperDensity) / (upperDensity - lowerDensity), rest = 1 - t * t;
  return rest * rest;
}

bool PointsToImplicitGrid(WorkerPool& pool, const ReconstructionSettings& settings, const ReconstructionPoints& points,
                          double farValue, ScalarGrid& grid, const BaseThread* hostThread) {
  grid.Fill(farValue, &pool);
  const double radius = settings.SearchRadius();
  if (points.places.empty() || !(radius > 0) || settings.maxNeighbours < 1) return true;
  const VecInt3D n = grid.dims;
  const VecInt3D cells((n.x + 1) / kCellNodes, (n.y + 1) / kCellNodes, (n.z + 1) / kCellNodes);
  PointCells cloud;
  cloud.Build(pool, points.places, grid.space.simMin, kCellNodes * grid.space.simPerVoxel.x, cells);
  const auto ratios = BySlot(pool, cloud, points.ratios);
  const auto balls = BySlot(pool, cloud, points.balls);
  const Reconstruction all{settings,
                           cloud,
                           ratios.empty() ? nullptr : ratios.data(),
                           balls.empty() ? nullptr : balls.data(),
                           grid,
                           radius,
                           settings.Radius(),
                           radius * radius};
  const int rows = (n.y - 2 + kEdge - 1) / kEdge, layers = (n.z - 2 + kEdge - 1) / kEdge;
  std::atomic<int> next{0};
  std::atomic<bool> outOfMemory{false};
  const auto run = [&](int) {
    BlockWorker worker(all);
    for (int row = next.fetch_add(1); row < rows * layers; row = next.fetch_add(1)) {
      if (hostThread && hostThread->TestBreak()) return;
      NodeBlock block;
      for (int i = 1; i < n.x - 1; i += kEdge) {
        block.low = {i, 1 + row % rows * kEdge, 1 + row / rows * kEdge};
        block.high = Min(block.low + VecInt3D(kEdge, kEdge, kEdge), n - VecInt3D(1, 1, 1));
        worker.Run(block);
      }
    }
  };
  pool.Run(pool.count(), [&](int worker) {
    try {
      run(worker);
    } catch (const std::bad_alloc&) {
      outOfMemory.store(true, std::memory_order_relaxed);
    }
  });
  if (outOfMemory.load()) throw std::bad_alloc();
  return !(hostThread && hostThread->TestBreak());
}

}  // namespace orlix
