#pragma once
// Finds the particles near a point: a bucket kd-tree over the positions of one list (sliding midpoint rule;
// Maneewongvatana and Mount 1999). Results are the k nearest with a squared distance strictly below the bound, nearest
// first; of equally near ones those of lower index are nearer.
//
// The tree keeps copies of the positions: particles that move later don't change it.

#include <span>
#include <vector>

#include "fluids/particles/ParticleList.h"

namespace orlix {

struct Neighbour {
  std::int32_t index = -1;  // in the list
  double distanceSquared = 0;
  double distance = 0;
};

class ParticleKdTree {
 public:
  static constexpr std::int32_t kBucketSize = 10;
  static constexpr std::int32_t kDefaultNeighbours = 72;

  ParticleKdTree() = default;
  // Over all rows of the list; with smoothed by the smoothed centre (property 29) of those that have one.
  void Build(const ParticleList& list, WorkerPool& pool, bool smoothed = false);
  // Over plain points; indices are theirs.
  void Build(std::span<const Vec3D> points, WorkerPool& pool);

  std::int32_t pointCount() const { return static_cast<std::int32_t>(points_.size()); }
  // How many neighbours a query gives at most.
  std::int32_t capacity() const { return capacity_; }
  void SetCapacity(std::int32_t k);
  std::int64_t Bytes() const;

  // Valid until the next query of this thread. thread in [0, 64), each used by one worker at a time.
  std::span<const Neighbour> Search(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const;

 private:
  struct Point {
    Vec3D x;
    std::int32_t index;
  };
  struct Node {
    double cut;
    std::int32_t axis;           // -1: a leaf
    std::int32_t first, second;  // children, or the points of a leaf
  };

  void BuildNodes();
  std::int32_t BuildNode(std::int32_t begin, std::int32_t end, Vec3D boxMin, Vec3D boxMax);
  struct Query;

  std::vector<Point> points_;
  std::vector<Node> nodes_;
  Vec3D boxMin_, boxMax_;
  std::int32_t capacity_ = kDefaultNeighbours;
  mutable std::vector<Neighbour> results_[WorkerPool::kMaxWorkers];
};

}  // namespace orlix
