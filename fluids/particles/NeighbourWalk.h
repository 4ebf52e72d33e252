#pragma once
// The neighbours of all particles of a list whose tree is there, each asked at a place of its own: where it is now, or
// where it is to go. Asks in the order of the tree, in which particles lie near each other however old the order of the
// list is, and finds for the particles of a leaf at once what they need in common.

#include "fluids/particles/ParticleKdTree.h"

namespace orlix {

// f(index, neighbours, thread) for each point of the tree for which placeOf(index) gives the address of a place, and
// not null; what tree.Search finds there. On the pool; ends early when that is to break. Workers take leaves as they
// come: what f does for one index must not depend on what it did for another.
template <class PlaceOf, class F>
void ForEachNeighbourhoodAt(const ParticleKdTree& tree, WorkerPool& pool, double radius, PlaceOf&& placeOf, F&& f) {
  constexpr std::size_t kLeaves = 64;  // that a worker takes at a time
  const std::span<const KdLeaf> leaves = tree.leaves();
  // Places lie anywhere in the list: those of the leaf after this one are on their way while it is searched.
  const auto fetch = [&](const KdLeaf& leaf) {
    for (int p = 0; p < KdLeaf::kPoints && leaf.index[p] >= 0; ++p) {
      if (const Vec3D* place = placeOf(leaf.index[p])) __builtin_prefetch(place), __builtin_prefetch(&place->z);
    }
  };
  std::atomic<std::size_t> next{0};
  pool.Run(pool.count(), [&](int thread) {
    for (std::size_t from = next.fetch_add(kLeaves); from < leaves.size() && !pool.Broken();
         from = next.fetch_add(kLeaves)) {
      for (std::size_t l = from; l < std::min(from + kLeaves, leaves.size()); ++l) {
        const KdLeaf& leaf = leaves[l];
        if (l + 1 < leaves.size()) fetch(leaves[l + 1]);
        KdLeaf asked;
        int count = 0;
        for (int p = 0; p < KdLeaf::kPoints && leaf.index[p] >= 0; ++p) {
          const Vec3D* place = placeOf(leaf.index[p]);
          if (!place) continue;
          asked.x[count] = place->x, asked.y[count] = place->y, asked.z[count] = place->z;
          asked.index[count++] = leaf.index[p];
        }
        if (count < KdLeaf::kPoints) asked.index[count] = -1;
        if (count > 0) tree.BeginLeaf(asked, radius * radius, thread);
        for (int p = 0; p < count; ++p) {
          const Vec3D place(asked.x[p], asked.y[p], asked.z[p]);
          f(asked.index[p], tree.SearchFromLeaf(place, radius * radius, thread), thread);
        }
      }
    }
  });
}

}  // namespace orlix
