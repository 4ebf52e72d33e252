#include "fluids/volume/VoxeliserSweeps.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <memory>
#include <thread>

#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kSweeps = 8, kNeighbours = 7;
constexpr int kDirections[kSweeps][3] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                         {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};
// The neighbours upstream, in the order in which they are tried: which axes a step back is taken along.
constexpr int kBack[kNeighbours][3] = {{1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};

// A neighbour lies upstream in several sweeps. Its triangle is worth a try only when it changed after the sweep in
// which this node last tried it: the tag from which on that is so. 0 when this sweep is the first.
constexpr int FirstNewTag(int sweep, int neighbour) {
  for (int before = sweep - 1; before >= 0; --before) {
    bool same = true;
    for (int axis = 0; axis < 3; ++axis) {
      same &= kBack[neighbour][axis] == 0 || kDirections[before][axis] == kDirections[sweep][axis];
    }
    if (same) return before + 2;
  }
  return 0;
}

// A lower bound that costs little: the closest point of a triangle is nearer than L / sqrt(3) to one of its corners,
// along a direction at right angles to that to the node, so distance^2 >= (distance to the nearest corner)^2 - L^2 / 3
// with L the longest edge. Single precision, in cells; slack holds L^2 / 3 and what rounding may take.
struct alignas(64) CornerBound {
  float x[4], y[4], z[4];
  float slack;
};
constexpr float kBoundRelative = 3e-6f;  // of the squared distance, beside the absolute part in slack

CornerBound MakeCornerBound(const NodeLattice& lattice, const TriangleTerms& t) {
  const Vec3D corners[4] = {lattice.Index(t.x1), lattice.Index(t.x2), lattice.Index(t.x3), lattice.Index(t.x1)};
  CornerBound bound{};
  double reach = std::max({lattice.dims.x, lattice.dims.y, lattice.dims.z}), longest = 0;
  for (int c = 0; c < 4; ++c) {
    bound.x[c] = static_cast<float>(corners[c].x);
    bound.y[c] = static_cast<float>(corners[c].y);
    bound.z[c] = static_cast<float>(corners[c].z);
    for (int axis = 0; axis < 3; ++axis) reach = std::max(reach, std::abs(corners[c][axis]));
    if (c > 0) longest = std::max(longest, LengthSquared(corners[c] - corners[c - 1]));
  }
  // A coordinate is off by e = 2^-24 x reach, so the square by 2 sqrt(3) D e <= (D^2 + 3 (e / 1e-6)^2) x 1e-6.
  const double e = 6e-8 * reach;
  bound.slack = static_cast<float>((longest / 3 + 3e6 * e * e) * 1.00001 + 1e-6);
  return bound;
}

inline float LeastSquared(const CornerBound& b, float x, float y, float z) {
  float d[4];
  for (int c = 0; c < 4; ++c) {
    const float dx = b.x[c] - x, dy = b.y[c] - y, dz = b.z[c] - z;
    d[c] = dx * dx + dy * dy + dz * dz;
  }
  const float m01 = d[0] < d[1] ? d[0] : d[1], m23 = d[2] < d[3] ? d[2] : d[3];
  return (m01 < m23 ? m01 : m23) * (1 - kBoundRelative) - b.slack;
}

// Where the neighbours of one row's nodes stand, and which of their tags are new.
struct RowTests {
  std::int64_t offset[kNeighbours];
  std::int32_t newFrom[kNeighbours];  // closest values from here on are worth a try
};

// For each node of [from, to): a bit for each neighbour whose triangle may be worth a try.
ORLIX_MULTIVERSION void FindTests(const std::int32_t* closest, const RowTests& row, int from, int to,
                                  std::int32_t* tests) {
  for (int i = from; i < to; ++i) {
    const std::int32_t own = closest[i] & kTriangleMask;
    std::int32_t bits = 0;
    for (int n = 0; n < kNeighbours; ++n) {
      const std::int32_t theirs = closest[i + row.offset[n]];
      const std::int32_t test = (theirs >= row.newFrom[n]) & ((theirs & kTriangleMask) != own);
      bits |= test << n;
    }
    tests[i] = bits;
  }
}

class Sweeper {
 public:
  Sweeper(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch, GridView<double> squared,
          WorkerPool& pool)
      : lattice_(lattice), scratch_(scratch), squared_(squared), bounds_(scratch.triangles.size()) {
    // Outside its widened box a triangle is farther than the band and one node more.
    const double least = std::min({lattice.spacing.x, lattice.spacing.y, lattice.spacing.z});
    exact_ = std::pow((exactBand + 1) * least * (1 - 1e-9), 2);
    perSquareCell_ = 1 / (least * least);
    const int count = static_cast<int>(scratch.triangles.size());
    ParallelRange(pool, 0, count, [&](int from, int to, int) {
      for (int t = from; t < to; ++t) {
        bounds_[static_cast<std::size_t>(t)] = MakeCornerBound(lattice, scratch.triangles[static_cast<std::size_t>(t)]);
      }
    });
  }

  void Sweep(int sweep, WorkerPool& pool, int workers) {
    const int* d = kDirections[sweep];
    const VecInt3D& n = lattice_.dims;
    const int layers = n.z - 1, rows = n.y - 1;  // the first of each axis isn't visited
    // A worker takes the next layer and follows the one before it, a row behind. A layer is taken only when the one
    // before it was, so the first unfinished layer never waits.
    const auto progress = std::make_unique<std::atomic<int>[]>(static_cast<std::size_t>(layers));
    std::atomic<int> next{0};
    pool.Run(workers, [&](int) {
      std::vector<std::int32_t> tests(static_cast<std::size_t>(n.x));
      for (int layer = next++; layer < layers; layer = next++) {
        const int k = d[2] > 0 ? layer + 1 : n.z - 2 - layer;
        for (int row = 0; row < rows; ++row) {
          if (layer > 0) WaitFor(progress[static_cast<std::size_t>(layer - 1)], row + 1);
          SweepRow(sweep, d[1] > 0 ? row + 1 : n.y - 2 - row, k, tests.data());
          progress[static_cast<std::size_t>(layer)].store(row + 1, std::memory_order_release);
        }
      }
    });
  }

 private:
  static void WaitFor(const std::atomic<int>& progress, int rows) {
    for (int spin = 0; progress.load(std::memory_order_acquire) < rows; ++spin) {
      if (spin > 64) std::this_thread::yield();
    }
  }

  void SweepRow(int sweep, int j, int k, std::int32_t* tests) {
    const int* d = kDirections[sweep];
    const VecInt3D& n = lattice_.dims;
    // Nodes of the array's faces aren't visited by each sweep: there everything is tried.
    const bool onFace = j == 0 || k == 0 || j == n.y - 1 || k == n.z - 1;
    RowTests row, face;
    for (int m = 0; m < kNeighbours; ++m) {
      row.offset[m] = face.offset[m] = -(std::int64_t(kBack[m][0] * d[0]) + std::int64_t(kBack[m][1] * d[1]) * n.x +
                                         kBack[m][2] * d[2] * squared_.slab);
      face.newFrom[m] = 0;
      row.newFrom[m] = onFace ? 0 : static_cast<std::int32_t>(FirstNewTag(sweep, m)) << kSweepTagShift;
    }
    const int first = d[0] > 0 ? 1 : n.x - 2, last = d[0] > 0 ? n.x - 1 : 0;
    std::int32_t* closest = scratch_.closest.data + squared_.Index(0, j, k);
    FindTests(closest, row, std::min(first, last), std::max(first, last) + 1, tests);
    FindTests(closest, face, last, last + 1, tests);
    const std::int64_t begin = squared_.Index(0, j, k);
    bool changed = false;
    for (int i = first;; i += d[0]) {
      int bits = tests[i];
      // The node before this one was visited after its tests were found.
      if (changed && ((closest[i - d[0]] ^ closest[i]) & kTriangleMask) != 0) bits |= 1;
      changed = bits != 0 && squared_[begin + i] > exact_ && TryNeighbours(sweep, i, j, k, bits, row.offset);
      if (i == last) break;
    }
  }

  bool TryNeighbours(int sweep, int i, int j, int k, int bits, const std::int64_t* offset) {
    const std::int64_t node = squared_.Index(i, j, k);
    std::int32_t* closest = scratch_.closest.data + node;
    double best = squared_[node];
    float bestCells = InCells(best);
    const float x = static_cast<float>(i), y = static_cast<float>(j), z = static_cast<float>(k);
    const Vec3D world = lattice_.World(i, j, k);
    std::int32_t found = kNoTriangle, tried = kNoTriangle;
    for (; bits != 0; bits &= bits - 1) {
      const std::int32_t t = closest[offset[std::countr_zero(static_cast<unsigned>(bits))]] & kTriangleMask;
      if (t == tried) continue;
      tried = t;
      if (LeastSquared(bounds_[static_cast<std::size_t>(t)], x, y, z) > bestCells) continue;
      const double distance = SquaredDistance(world, scratch_.triangles[static_cast<std::size_t>(t)]);
      if (!(distance < best)) continue;
      best = distance;
      bestCells = InCells(best);
      found = t;
    }
    if (found < 0) return false;
    squared_[node] = best;
    *closest = found | static_cast<std::int32_t>(sweep + 1) << kSweepTagShift;
    return true;
  }

  // Rounded up, so that nothing is turned away that is a little smaller.
  float InCells(double squared) const {
    return static_cast<float>(std::min(squared * perSquareCell_, 1e37)) * (1 + kBoundRelative);
  }

  const NodeLattice& lattice_;
  VoxeliserScratch& scratch_;
  GridView<double> squared_;
  std::vector<CornerBound> bounds_;
  double exact_;  // m^2: what is nearer can't change
  double perSquareCell_;
};

}  // namespace

bool SweepClosestTriangles(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch,
                           GridView<double> squared, WorkerPool& pool, int workers, const BaseThread* hostThread) {
  if (scratch.triangles.empty() || std::min({lattice.dims.x, lattice.dims.y, lattice.dims.z}) < 2) return true;
  Sweeper sweeper(lattice, exactBand, scratch, squared, pool);
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    if (hostThread && hostThread->TestBreak()) return false;
    sweeper.Sweep(sweep, pool, workers);
  }
  return true;
}

}  // namespace orlix
