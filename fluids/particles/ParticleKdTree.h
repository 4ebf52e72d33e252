#pragma once
// Finds the particles near a point. Results are the k nearest with a squared distance strictly below the bound, nearest
// first; of equally near ones those of lower index are nearer. A point without finite coordinates is never found.
//
// A kd-tree of medians over the positions, eight children a node and sixteen points a leaf, so that a query tests whole
// nodes and leaves at once. Coordinates are copied: particles that move later don't change the tree.
//
//   for one place            tree.Search(position, radius * radius, thread)
//   for the tree's own points    ForEachNeighbourhood(tree, pool, radius, f): runs in the order of the tree, where
//                                what a query needs was just used by the one before it

#include <memory>
#include <span>
#include <vector>

#include "fluids/particles/KdBuilder.h"
#include "fluids/particles/ParticleList.h"

namespace orlix {

class ParticleKdTree {
 public:
  static constexpr std::int32_t kDefaultNeighbours = 72;

  ParticleKdTree();

  // Over all rows of the list; with smoothed by the smoothed centre (property 29) of those that have one.
  void Build(const ParticleList& list, WorkerPool& pool, bool smoothed = false);
  // Over plain points; indices are theirs.
  void Build(std::span<const Vec3D> points, WorkerPool& pool);

  std::int32_t pointCount() const { return pointCount_; }
  // How many neighbours a query gives at most.
  std::int32_t capacity() const { return capacity_; }
  void SetCapacity(std::int32_t k);
  std::int64_t Bytes() const;

  // Valid until the next query of this thread. thread in [0, 64), each used by one worker at a time.
  std::span<const Neighbour> Search(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const;
  // How many Search would give, and the distance of the first (infinity: none). Results of Search stay.
  std::int32_t Count(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const;
  double NearestDistance(const Vec3D& position, double maxDistanceSquared, std::int32_t thread) const;

  // Queries from the points of one leaf: BeginLeaf finds what they need in common, SearchFromLeaf is then the same as
  // Search with the bound of BeginLeaf.
  void BeginLeaf(const KdLeaf& leaf, double maxDistanceSquared, std::int32_t thread) const;
  std::span<const Neighbour> SearchFromLeaf(const Vec3D& position, double maxDistanceSquared,
                                            std::int32_t thread) const;
  // Leaves hold the points of nearby places; a leaf's points are those with an index of 0 or more.
  std::span<const KdLeaf> leaves() const { return leaves_; }

 private:
  void BuildFrom(std::vector<KdBuilder::Point>& points, WorkerPool& pool);
  // Into the scratch, in no order; at least the k nearest.
  int Find(const Vec3D& position, double maxDistanceSquared, int k, KdScratch& scratch) const;

  std::span<const Neighbour> InOrder(KdScratch& scratch, int count, double maxDistanceSquared) const;
  KdView view() const { return {root_, nodes_.data(), leaves_.data()}; }

  std::vector<KdBoxes> nodes_;
  std::vector<KdLeaf> leaves_;
  std::int32_t root_ = -1, pointCount_ = 0;
  std::int32_t capacity_ = 0;
  std::unique_ptr<KdScratch[]> scratch_, counting_;  // of each worker
};

// f(index, neighbours, thread) for each point of the tree, its own among the neighbours, on the pool. Workers take
// leaves as they come: what f does for one index must not depend on what it did for another.
template <class F>
void ForEachNeighbourhood(const ParticleKdTree& tree, WorkerPool& pool, double radius, F&& f) {
  constexpr std::int64_t kLeaves = 64;  // that a worker takes at a time
  const std::span<const KdLeaf> leaves = tree.leaves();
  std::atomic<std::int64_t> next{0};
  pool.Run(pool.count(), [&](int thread) {
    const auto count = static_cast<std::int64_t>(leaves.size());
    for (std::int64_t from = next.fetch_add(kLeaves); from < count; from = next.fetch_add(kLeaves)) {
      for (const KdLeaf& leaf :
           leaves.subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(std::min(kLeaves, count - from)))) {
        tree.BeginLeaf(leaf, radius * radius, thread);
        for (int p = 0; p < KdLeaf::kPoints && leaf.index[p] >= 0; ++p) {
          f(leaf.index[p], tree.SearchFromLeaf({leaf.x[p], leaf.y[p], leaf.z[p]}, radius * radius, thread), thread);
        }
      }
    }
  });
}

}  // namespace orlix
