#include "fluids/level_sets/VoxeliserSweeps.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>

#include "fluids/level_sets/CornerBound.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kSweeps = 8, kNeighbours = 7;
constexpr int kDirections[kSweeps][3] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                         {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};
// The neighbours upstream, in the order in which they are tried: which axes a step back is taken along.
constexpr int kBack[kNeighbours][3] = {{1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};
// Nodes that a worker visits in one go: neighbours share their triangles, so that these stay in the cache.
constexpr VecInt3D kTile{128, 16, 16};

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

// The corners of a triangle in cells and single precision, for the lower bound. slack holds the covering radius and
// what rounding may take.
using CornerLanes = float __attribute__((vector_size(16)));
struct alignas(64) SweepBound {
  CornerLanes x, y, z;  // the first corner twice
  float slack;
};
constexpr float kBoundRelative = 3e-6f;  // of the squared distance, beside the absolute part in slack

SweepBound MakeSweepBound(const NodeLattice& lattice, const TriangleTerms& t) {
  const Vec3D corners[4] = {lattice.Index(t.x1), lattice.Index(t.x2), lattice.Index(t.x3), lattice.Index(t.x1)};
  SweepBound bound{};
  double reach = std::max({lattice.dims.x, lattice.dims.y, lattice.dims.z});
  for (int c = 0; c < 4; ++c) {
    bound.x[c] = static_cast<float>(corners[c].x);
    bound.y[c] = static_cast<float>(corners[c].y);
    bound.z[c] = static_cast<float>(corners[c].z);
    for (int axis = 0; axis < 3; ++axis) reach = std::max(reach, std::abs(corners[c][axis]));
  }
  // A coordinate is off by e = 2^-24 x reach, so the square by 2 sqrt(3) D e <= (D^2 + 3 (e / 1e-6)^2) x 1e-6.
  const double e = 6e-8 * reach, radius = SquaredCoveringRadius(corners[0], corners[1], corners[2]);
  bound.slack = static_cast<float>(std::min((radius + 3e6 * e * e) * 1.00001 + 1e-6, 1e37));
  return bound;
}

ORLIX_INLINE float LeastSquared(const SweepBound& b, float x, float y, float z) {
  const CornerLanes dx = b.x - x, dy = b.y - y, dz = b.z - z;
  const CornerLanes d = dx * dx + dy * dy + dz * dz;
  const CornerLanes swapped = __builtin_shufflevector(d, d, 2, 3, 0, 1), half = d < swapped ? d : swapped;
  const CornerLanes other = __builtin_shufflevector(half, half, 1, 0, 3, 2), least = half < other ? half : other;
  return least[0] * (1 - kBoundRelative) - b.slack;
}

// What all rows share.
struct SweepField {
  const TriangleTerms* triangles;
  const SweepBound* bounds;
  const double* x;  // world positions of the nodes
  double* distance;
  std::int32_t* closest;
  double exact;     // m: what is nearer can't change
  double perMetre;  // cells

  // Squared, and rounded up so that nothing is turned away that is a little smaller.
  float InCells(double metres) const {
    const double cells = metres * perMetre, squared = cells * cells;
    return static_cast<float>(squared < 1e37 ? squared : 1e37) * (1 + kBoundRelative);
  }
};

// A piece of a row of nodes in one sweep.
struct SweepRow {
  std::int64_t begin;  // index of its node with the lowest x
  int low, count, j, k;
  int step;                           // along x
  std::int32_t tag;                   // of what changes now
  std::int64_t offset[kNeighbours];   // of the neighbours upstream
  std::int32_t newFrom[kNeighbours];  // closest values from here on are worth a try
  int face;                           // a node of the array's face, on which everything is; -1: none
  std::int64_t next;                  // begin of the row after this one
  double y, z;                        // world position
};

// The numbers of the bits that are set in each pattern of tests.
struct BitList {
  std::uint8_t bits[8], count;
};
constexpr std::array<BitList, 1 << kNeighbours> kBitLists = [] {
  std::array<BitList, 1 << kNeighbours> lists{};
  for (int pattern = 0; pattern < 1 << kNeighbours; ++pattern) {
    for (int bit = 0; bit < kNeighbours; ++bit) {
      if ((pattern >> bit & 1) != 0) lists[pattern].bits[lists[pattern].count++] = static_cast<std::uint8_t>(bit);
    }
  }
  return lists;
}();

// What a worker needs for a row. Loops over candidates are flat and have no branches to mispredict.
struct RowWork {
  static constexpr int kMost = kTile.x * kNeighbours + 8;
  std::int32_t tests[kTile.x];
  // Nodes that have something to try, in ascending x.
  int actives;
  std::int16_t active[kTile.x + 1];
  float limit[kTile.x], least[kTile.x];  // cells^2: of the node's distance, and of its candidates' bounds
  double best[kTile.x];
  std::int32_t found[kTile.x], order[kTile.x];  // of the triangle that is best so far; order -1: the node's own
  double inRow[kTile.x];                        // the distance to the triangle of the neighbour in the row
  // Triangles to be tried, by active node: those of node a from start[a] on.
  int start[kTile.x + 1];
  std::uint8_t node[kMost], neighbour[kMost];
  std::int32_t triangle[kMost];
  float bound[kMost];
  std::int32_t first[kMost], rest[kMost];  // candidates that passed their bound: the best of each node, the others
  double distance[kMost];
};

constexpr int kTestLanes = 8;
using IntLanes = std::int32_t __attribute__((vector_size(kTestLanes * sizeof(std::int32_t))));

// A mask of the nodes from distance on that are nearer than a limit.
ORLIX_INLINE void AtMost(IntLanes& mask, const double* distance, double limit) {
  Lanes low, high;
  std::memcpy(&low, distance, sizeof low);
  std::memcpy(&high, distance + kLanes, sizeof high);
  const auto lowMask = low <= limit, highMask = high <= limit;
  mask = __builtin_shufflevector(__builtin_bit_cast(IntLanes, lowMask), __builtin_bit_cast(IntLanes, highMask), 0, 2, 4,
                                 6, 8, 10, 12, 14);
}

// For the kTestLanes nodes from index on: a bit for each neighbour whose triangle is worth a try. A triangle that two
// of them share is tried once, and not at all when one of them was tried with it before. The neighbour in the row (bit
// 0) may still change, so its triangle is never left out for having been tried elsewhere.
ORLIX_INLINE void FindTests(const SweepField& field, const SweepRow& row, std::int64_t index, IntLanes& bits) {
  const std::int32_t* closest = field.closest + index;
  IntLanes own, exact, triangle[kNeighbours], isOld[kNeighbours], skip[kNeighbours];
  std::memcpy(&own, closest, sizeof own);
  own &= kTriangleMask;
  AtMost(exact, field.distance + index, field.exact);
  for (int n = 0; n < kNeighbours; ++n) {
    IntLanes theirs;
    std::memcpy(&theirs, closest + row.offset[n], sizeof theirs);
    triangle[n] = theirs & kTriangleMask;
    isOld[n] = theirs < row.newFrom[n];
    skip[n] = isOld[n] | exact | (triangle[n] == own);
  }
  for (int n = 1; n < kNeighbours; ++n) {
    for (int m = 0; m < n; ++m) {
      const IntLanes same = triangle[n] == triangle[m];
      skip[n] |= m == 0 ? same & isOld[m] : same;
      skip[m] |= same & isOld[n];
    }
  }
  bits = IntLanes{};
  for (int n = 0; n < kNeighbours; ++n) bits |= ~skip[n] & (1 << n);
}

// The same for one node, where each neighbour counts as new: to try again what was tried changes nothing.
ORLIX_INLINE std::int32_t FindNodeTests(const SweepField& field, const SweepRow& row, std::int64_t index) {
  if (field.distance[index] <= field.exact) return 0;
  std::int32_t bits = 0;
  for (int n = 0; n < kNeighbours; ++n) {
    bits |= static_cast<std::int32_t>(field.closest[index + row.offset[n]] >= 0) << n;
  }
  return bits;
}

ORLIX_INLINE void FindRowTests(const SweepField& field, const SweepRow& row, std::int32_t* tests) {
  if (row.count < kTestLanes) {
    for (int l = 0; l < row.count; ++l) tests[l] = FindNodeTests(field, row, row.begin + l);
    return;
  }
  for (int next = 0; next < row.count; next += kTestLanes) {
    // The last lanes are moved back into the row: their nodes get the same tests again.
    const int l = std::min(next, row.count - kTestLanes);
    IntLanes bits;
    FindTests(field, row, row.begin + l, bits);
    std::memcpy(tests + l, &bits, sizeof bits);
  }
  if (row.face >= 0) tests[row.face] = FindNodeTests(field, row, row.begin + row.face);
}

// Lists the nodes that have tests, and their candidates; gives the number of these.
ORLIX_INLINE int ListCandidates(const SweepField& field, const SweepRow& row, RowWork& work) {
  int actives = 0;
  for (int l = 0; l < row.count; ++l) {
    work.active[actives] = static_cast<std::int16_t>(l);
    actives += work.tests[l] != 0;
  }
  work.actives = actives;
  for (int a = 0; a < actives; ++a) {
    work.best[a] = field.distance[row.begin + work.active[a]];
    work.limit[a] = field.InCells(work.best[a]);
    work.inRow[a] = std::numeric_limits<double>::max();
    work.order[a] = -1;
  }
  int listed = 0;
  for (int a = 0; a < actives; ++a) {
    const BitList& list = kBitLists[static_cast<std::size_t>(work.tests[work.active[a]])];
    std::memcpy(work.neighbour + listed, list.bits, sizeof list.bits);
    std::memset(work.node + listed, a, sizeof list.bits);
    work.start[a] = listed;
    listed += list.count;
  }
  work.start[actives] = listed;
  return listed;
}

// The candidates' triangles and bounds, and the least bound of each node.
ORLIX_INLINE void BoundCandidates(const SweepField& field, const SweepRow& row, int count, RowWork& work) {
  const std::int32_t* closest = field.closest + row.begin;
  for (int c = 0; c < count; ++c) {
    const std::int32_t t = closest[work.active[work.node[c]] + row.offset[work.neighbour[c]]] & kTriangleMask;
    work.triangle[c] = t;
    __builtin_prefetch(field.bounds + t);
  }
  const float x = static_cast<float>(row.low), y = static_cast<float>(row.j), z = static_cast<float>(row.k);
  for (int c = 0; c < count; ++c) {
    const float i = x + static_cast<float>(work.active[work.node[c]]);
    work.bound[c] = LeastSquared(field.bounds[work.triangle[c]], i, y, z);
  }
  // The least of a node in one go: handed on by way of the memory it would come late.
  using BoundLanes = float __attribute__((vector_size(8 * sizeof(float))));
  const IntLanes number{0, 1, 2, 3, 4, 5, 6, 7};
  for (int a = 0; a < work.actives; ++a) {
    BoundLanes b;
    std::memcpy(&b, work.bound + work.start[a], sizeof b);
    b = number < work.start[a + 1] - work.start[a] ? b : BoundLanes{} + std::numeric_limits<float>::max();
    BoundLanes other = __builtin_shufflevector(b, b, 4, 5, 6, 7, 0, 1, 2, 3);
    b = b < other ? b : other;
    other = __builtin_shufflevector(b, b, 2, 3, 0, 1, 6, 7, 4, 5);
    b = b < other ? b : other;
    work.least[a] = b[0] < b[1] ? b[0] : b[1];
  }
}

// distance[c]: of the candidate selected[c].
ORLIX_INLINE void MeasureCandidates(const SweepField& field, const SweepRow& row, const std::int32_t* selected,
                                    int count, RowWork& work) {
  const Lanes zero{};
  const double* x = field.x + row.low;
  // All at once: one at a time, each would be waited for.
  for (int c = 0; c < count; ++c) {
    const char* t = reinterpret_cast<const char*>(field.triangles + work.triangle[selected[c]]);
    __builtin_prefetch(t), __builtin_prefetch(t + 64);
  }
  for (int c = 0; c < count; c += kLanes) {
    const TriangleTerms* t[kLanes];
    Lanes px{};
    for (int l = 0; l < kLanes; ++l) {
      const std::int32_t candidate = selected[c + l < count ? c + l : c];
      t[l] = field.triangles + work.triangle[candidate];
      px[l] = x[work.active[work.node[candidate]]];
    }
    LaneTriangle<Lanes> lanes{};
    Gather(lanes, t);
    const LaneVector<Lanes> p{px, zero + row.y, zero + row.z};
    Lanes squared;
    LaneSquaredDistances(squared, p, lanes);
    for (int l = 0; l < kLanes; ++l) work.distance[c + l] = std::sqrt(squared[l]);
  }
}

ORLIX_INLINE void TryCandidates(const SweepField& field, const SweepRow& row, const std::int32_t* selected, int count,
                                RowWork& work) {
  MeasureCandidates(field, row, selected, count, work);
  for (int c = 0; c < count; ++c) {
    const int a = work.node[selected[c]], order = work.neighbour[selected[c]];
    const double distance = work.distance[c];
    work.inRow[a] = order == 0 ? distance : work.inRow[a];
    // Of equals the one that comes first in the neighbours' order stays.
    const bool better =
        (order != 0) & ((distance < work.best[a]) | ((distance == work.best[a]) & (order < work.order[a])));
    work.best[a] = better ? distance : work.best[a];
    work.order[a] = better ? order : work.order[a];
    work.found[a] = better ? work.triangle[selected[c]] : work.found[a];
  }
}

// Tries what passes its bound, the most promising one of each node first: most of the others are turned away then.
ORLIX_INLINE void SelectCandidates(const SweepField& field, const SweepRow& row, int count, RowWork& work) {
  int firsts = 0, rests = 0;
  for (int c = 0; c < count; ++c) {
    const int a = work.node[c];
    const bool passed = work.bound[c] <= work.limit[a], promising = work.bound[c] <= work.least[a];
    work.first[firsts] = work.rest[rests] = c;
    firsts += passed & promising;
    rests += passed & !promising;
  }
  TryCandidates(field, row, work.first, firsts, work);
  for (int a = 0; a < work.actives; ++a) work.limit[a] = field.InCells(work.best[a]);
  int left = 0;
  for (int r = 0; r < rests; ++r) {
    const std::int32_t c = work.rest[r];
    work.rest[left] = c;
    left += work.bound[c] <= work.limit[work.node[c]];
  }
  TryCandidates(field, row, work.rest, left, work);
}

// Distances of nodes of the row to a triangle that is handed on along it: those of the next nodes at once.
struct RowAhead {
  std::int32_t triangle = -1;
  int first = 0;  // node
  double distance[kLanes] = {};

  ORLIX_INLINE double Measure(const SweepField& field, const SweepRow& row, int l, std::int32_t t) {
    if (row.count < kLanes) return std::sqrt(SquaredDistance({field.x[row.low + l], row.y, row.z}, field.triangles[t]));
    if (t != triangle || l < first || l >= first + kLanes) {
      triangle = t;
      first = std::clamp(row.step > 0 ? l : l - kLanes + 1, 0, row.count - kLanes);
      const Lanes zero{};
      Lanes x, squared;
      std::memcpy(&x, field.x + row.low + first, sizeof x);
      LaneTriangle<double> lanes;
      Broadcast(lanes, field.triangles[t]);
      LaneSquaredDistances(squared, LaneVector<Lanes>{x, zero + row.y, zero + row.z}, lanes);
      for (int lane = 0; lane < kLanes; ++lane) distance[lane] = std::sqrt(squared[lane]);
    }
    return distance[l - first];
  }
};

// The distance of node l to what the neighbour in the row has just found, or more than best.
ORLIX_INLINE double MeasureInRow(const SweepField& field, const SweepRow& row, int l, double best, RowAhead& ahead) {
  constexpr double kMore = std::numeric_limits<double>::max();
  const std::int64_t index = row.begin + l;
  const std::int32_t triangle = field.closest[index - row.step] & kTriangleMask;
  if (field.distance[index] <= field.exact || triangle == (field.closest[index] & kTriangleMask)) return kMore;
  const float bound = LeastSquared(field.bounds[triangle], static_cast<float>(row.low + l), static_cast<float>(row.j),
                                   static_cast<float>(row.k));
  if (bound > field.InCells(best)) return kMore;
  return ahead.Measure(field, row, l, triangle);
}

// The neighbour in the row comes first in the order, and each node waits for the one before it. Only active nodes and
// those after one that changed have anything to do.
ORLIX_INLINE void FollowRow(const SweepField& field, const SweepRow& row, RowWork& work) {
  std::int32_t* closest = field.closest + row.begin;
  double* distance = field.distance + row.begin;
  const int end = row.step > 0 ? work.actives : -1;
  int a = row.step > 0 ? 0 : work.actives - 1, l = 0;
  bool changed = false;  // the node before this one
  RowAhead ahead;
  for (;;) {
    if (changed) {
      l += row.step;
      if (l < 0 || l >= row.count) return;
    } else {
      if (a == end) return;
      l = work.active[a];
    }
    const bool active = a != end && work.active[a] == l;
    const double best = active ? work.best[a] : distance[l];
    const bool found = active && work.order[a] > 0;
    const double inRow = changed ? MeasureInRow(field, row, l, best, ahead) : work.inRow[a];
    const bool better = inRow < best || (found && inRow == best);
    changed = better || found;
    if (changed) {
      distance[l] = better ? inRow : best;
      closest[l] = (better ? closest[l - row.step] & kTriangleMask : work.found[a]) | row.tag;
    }
    a += active ? row.step : 0;
  }
}

ORLIX_MULTIVERSION void SweepOneRow(const SweepField& field, const SweepRow& row, RowWork& work) {
  constexpr int kLine = 64;
  for (int l = 0; l < row.count; l += kLine / int(sizeof(double))) __builtin_prefetch(field.distance + row.next + l);
  for (int l = 0; l < row.count; l += kLine / int(sizeof(std::int32_t))) {
    __builtin_prefetch(field.closest + row.next + l);
  }
  FindRowTests(field, row, work.tests);
  const int listed = ListCandidates(field, row, work);
  if (listed == 0) return;
  BoundCandidates(field, row, listed, work);
  SelectCandidates(field, row, listed, work);
  FollowRow(field, row, work);
}

class Sweeper {
 public:
  Sweeper(const NodeLattice& lattice, int exactBand, const VoxeliserScratch& scratch, GridView<double> distances,
          std::int32_t* closest, WorkerPool& pool)
      : lattice_(lattice), slab_(distances.slab), bounds_(scratch.triangles.size()) {
    for (int i = 0; i < lattice.dims.x; ++i) x_.push_back(lattice.World(i, 0, 0).x);
    const int count = static_cast<int>(scratch.triangles.size());
    ParallelRange(pool, 0, count, [&](int from, int to, int) {
      for (int t = from; t < to; ++t) {
        bounds_[static_cast<std::size_t>(t)] = MakeSweepBound(lattice, scratch.triangles[static_cast<std::size_t>(t)]);
      }
    });
    // Outside its widened box a triangle is farther than the band and one node more.
    const double least = std::min({lattice.spacing.x, lattice.spacing.y, lattice.spacing.z});
    field_ = {scratch.triangles.data(),
              bounds_.data(),
              x_.data(),
              distances.data,
              closest,
              (exactBand + 1) * least * (1 - 1e-9),
              1 / least};
  }

  // A worker takes the next layer of tiles and follows the one before it. A layer is taken only when the one before it
  // was, so the first unfinished layer never waits.
  void Sweep(int sweep, WorkerPool& pool, int workers) {
    // The first node of each axis isn't visited.
    const VecInt3D visited = lattice_.dims - VecInt3D(1, 1, 1);
    const auto tilesOf = [&](int axis) { return (visited[axis] + kTile[axis] - 1) / kTile[axis]; };
    const VecInt3D tiles{tilesOf(0), tilesOf(1), tilesOf(2)};
    const auto progress = std::make_unique<std::atomic<int>[]>(static_cast<std::size_t>(tiles.z));
    std::atomic<int> next{0};
    pool.Run(workers, [&](int) {
      const auto work = std::make_unique<RowWork>();
      for (int layer = next++; layer < tiles.z; layer = next++) {
        for (int tile = 0; tile < tiles.x * tiles.y; ++tile) {
          if (layer > 0) WaitFor(progress[static_cast<std::size_t>(layer - 1)], tile + 1);
          SweepTile(sweep, VecInt3D(tile % tiles.x, tile / tiles.x, layer) * kTile, visited, *work);
          progress[static_cast<std::size_t>(layer)].store(tile + 1, std::memory_order_release);
        }
      }
    });
  }

 private:
  static void WaitFor(const std::atomic<int>& progress, int tiles) {
    for (int spin = 0; progress.load(std::memory_order_acquire) < tiles; ++spin) {
      if (spin > 64) std::this_thread::yield();
    }
  }

  // from: in steps from the first visited node.
  void SweepTile(int sweep, const VecInt3D& from, const VecInt3D& visited, RowWork& work) {
    const int* d = kDirections[sweep];
    const VecInt3D to = Min(from + kTile, visited), &n = lattice_.dims;
    const auto indexOf = [&](int axis, int step) { return d[axis] > 0 ? step + 1 : visited[axis] - 1 - step; };
    SweepRow row;
    row.count = to.x - from.x;
    row.low = d[0] > 0 ? indexOf(0, from.x) : indexOf(0, to.x - 1);
    row.step = d[0];
    row.tag = static_cast<std::int32_t>(sweep + 1) << kSweepTagShift;
    const int last = d[0] > 0 ? row.low + row.count - 1 : row.low;
    row.face = last == 0 || last == n.x - 1 ? last - row.low : -1;
    for (int m = 0; m < kNeighbours; ++m) {
      const std::int64_t back = kBack[m][0] * d[0] + std::int64_t(kBack[m][1] * d[1]) * n.x;
      row.offset[m] = -(back + kBack[m][2] * d[2] * slab_);
    }
    for (int layer = from.z; layer < to.z; ++layer) {
      for (int step = from.y; step < to.y; ++step) {
        row.j = indexOf(1, step), row.k = indexOf(2, layer);
        // Nodes of the array's faces aren't visited by each sweep: there everything is new.
        const bool onFace = row.j == 0 || row.k == 0 || row.j == n.y - 1 || row.k == n.z - 1;
        for (int m = 0; m < kNeighbours; ++m) {
          row.newFrom[m] = onFace ? 0 : static_cast<std::int32_t>(FirstNewTag(sweep, m)) << kSweepTagShift;
        }
        row.begin = slab_ * row.k + std::int64_t(n.x) * row.j + row.low;
        row.next = step + 1 < to.y ? row.begin + d[1] * n.x : row.begin;
        const Vec3D world = lattice_.World(0, row.j, row.k);
        row.y = world.y, row.z = world.z;
        SweepOneRow(field_, row, work);
      }
    }
  }

  const NodeLattice& lattice_;
  std::int64_t slab_;
  std::vector<SweepBound> bounds_;
  std::vector<double> x_;
  SweepField field_{};
};

}  // namespace

bool SweepClosestTriangles(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch,
                           GridView<double> distances, WorkerPool& pool, int workers, const BaseThread* hostThread) {
  if (scratch.triangles.empty() || std::min({lattice.dims.x, lattice.dims.y, lattice.dims.z}) < 2) return true;
  Sweeper sweeper(lattice, exactBand, scratch, distances, scratch.closest.data, pool);
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    if (hostThread && hostThread->TestBreak()) return false;
    sweeper.Sweep(sweep, pool, workers);
  }
  return true;
}

}  // namespace orlix
