#pragma once
// The nodes of ParticleKdTree: eight boxes at a time, and leaves of sixteen points, each coordinate in a row of its
// own.

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

struct Neighbour {
  std::int32_t index = -1;  // in the list
  double distanceSquared = 0;
  double distance = 0;
};
// Of equally near ones, that of lower index is nearer.
inline bool Nearer(const Neighbour& a, const Neighbour& b) {
  return a.distanceSquared != b.distanceSquared ? a.distanceSquared < b.distanceSquared : a.index < b.index;
}

inline constexpr double kNowhere = std::numeric_limits<double>::infinity();

// Places without a point lie at infinity.
struct alignas(64) KdLeaf {
  static constexpr std::int32_t kPoints = 16;
  double x[kPoints], y[kPoints], z[kPoints];
  std::int32_t index[kPoints];
};

// The boxes of up to eight children. A child of 0 or more is a node, ~child a leaf; a box that holds nothing is inside
// out.
struct alignas(64) KdBoxes {
  static constexpr int kChildren = 8;
  double low[3][kChildren], high[3][kChildren];
  std::int32_t child[kChildren];
};

struct KdView {
  std::int32_t root = -1;  // as a child
  const KdBoxes* nodes = nullptr;
  const KdLeaf* leaves = nullptr;
};

// The points that all the queries from one leaf need.
struct KdGathered {
  static constexpr int kMost = 2048;                         // about
  static constexpr int kRoom = kMost + 2 * KdLeaf::kPoints;  // whole vectors are written beyond the last
  double x[kRoom], y[kRoom], z[kRoom];
  std::int32_t index[kRoom];
  int count = 0;
};

// What a query has found so far, of one worker.
struct KdScratch {
  static constexpr int kRanked = 120;  // as many as are sorted by counting
  static constexpr int kDepth = 160;   // of the stack

  // For queries of k neighbours.
  void Reserve(int k);
  // Keeps the k nearest; gives the limit beyond which no other comes among them.
  double Compact(int& count, int k, double limit);

  double* distances = nullptr;  // squared
  std::int32_t* indices = nullptr;
  int compactAt = 0;  // there is room for a leaf beyond it
  std::vector<Neighbour> results;
  std::unique_ptr<KdGathered> gathered;
  bool isGathered = false;  // what gathered holds is the last leaf's

 private:
  std::vector<double> distanceRoom_;
  std::vector<std::int32_t> indexRoom_;
};

}  // namespace orlix
