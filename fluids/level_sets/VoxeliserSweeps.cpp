#include "fluids/level_sets/VoxeliserSweeps.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>

#include "fluids/level_sets/BitLists.h"
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

// The last sweep before this one in which the neighbour lay upstream, too; -1 without one.
constexpr int SweepBefore(int sweep, int neighbour) {
  for (int before = sweep - 1; before >= 0; --before) {
    bool same = true;
    for (int axis = 0; axis < 3; ++axis) {
      same &= kBack[neighbour][axis] == 0 || kDirections[before][axis] == kDirections[sweep][axis];
    }
    if (same) return before;
  }
  return -1;
}

constexpr double kSlant = 0.1;           // sine of the angle at which a way against a sweep still counts as across it
constexpr double kBoundRelative = 2e-6;  // error of a bound, of the distance
constexpr double kThinnest = 1e-3;       // height over longest edge of a triangle that has a bound
constexpr double kMostReach = 4;         // lattices: corners farther off have too few digits

// Gives the triangle's longest edge (cells), 0 where it has no bound.
double MakeSweepBound(const NodeLattice& lattice, const TriangleTerms& t, SweepBound& bound) {
  const Vec3D a = lattice.Index(t.x1), b = lattice.Index(t.x2), c = lattice.Index(t.x3);
  const double most = kMostReach * std::max({lattice.dims.x, lattice.dims.y, lattice.dims.z});
  const auto isFar = [&](const Vec3D& p) { return !(std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) < most); };
  const double longest = std::sqrt(std::max({LengthSquared(b - a), LengthSquared(c - a), LengthSquared(c - b)}));
  const Vec3D across = Cross(b - a, c - a);
  const double twiceArea = Length(across);
  bound = SweepBound();
  if (isFar(a) || isFar(b) || isFar(c) || !(twiceArea > kThinnest * longest * longest)) return 0;
  const Vec3D normal = across / twiceArea;
  const Vec3D lanes[4] = {normal, Normalized(Cross(b - a, normal)), Normalized(Cross(normal, c - a)),
                          Normalized(Cross(c - b, normal))};
  for (int l = 0; l < 4; ++l) {
    bound.x[l] = static_cast<float>(lanes[l].x);
    bound.y[l] = static_cast<float>(lanes[l].y);
    bound.z[l] = static_cast<float>(lanes[l].z);
    bound.offset[l] = static_cast<float>(Dot(lanes[l], l < 3 ? a : b));
  }
  return longest;
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
  int stride;       // cells from node to node
  double boundError;

  float Place(int index) const { return static_cast<float>(stride * index); }
  // The square of a distance in cells and what a bound may be too large by: no triangle that is nearer has a larger
  // one.
  float InCells(double metres) const {
    const double cells = metres * perMetre * (1 + kBoundRelative) + boundError, squared = cells * cells;
    return static_cast<float>(squared < 1e37 ? squared : 1e37);
  }
};

// A piece of a row of nodes in one sweep.
struct SweepRow {
  std::int64_t begin;  // index of its node with the lowest x
  int low, count, j, k;
  int step;                          // along x
  std::int32_t tag;                  // of what changes now
  std::int64_t offset[kNeighbours];  // of the neighbours upstream
  // A neighbour lies upstream in several sweeps. Its triangle is worth a try only when it changed after the sweep in
  // which this node last tried it: closest values from newFrom on, where triedIn is the bit of that sweep.
  std::int32_t newFrom[kNeighbours], triedIn[kNeighbours];
  const std::uint8_t* sweeps;  // of the cells along the row, VoxeliserScratch::sweeps
  std::int32_t sweepBit;
  int face;           // a node of the array's face, on which everything is; -1: none
  std::int64_t next;  // begin of the row after this one
  double y, z;        // world position

  // Whether any of these nodes is visited.
  bool Visits(int first, int last) const {
    int bits = 0;
    for (int c = (low + first) / kGuessStride; c <= (low + last) / kGuessStride; ++c) bits |= sweeps[c];
    return (bits & sweepBit) != 0;
  }
};

// How far outside of the triangle's plane and edges a node at a place of the lattice lies, cells.
ORLIX_INLINE void OutsideOf(BoundLanes& outside, const SweepBound& b, float x, float y, float z) {
  outside = b.x * x + (b.y * y + b.z * z - b.offset);
}

// The square of the distance (cells) of node l of the row or less, but for rounding.
ORLIX_INLINE float LeastSquared(const SweepField& field, const SweepRow& row, int l, std::int32_t triangle) {
  BoundLanes t;
  OutsideOf(t, field.bounds[triangle], field.Place(row.low + l), field.Place(row.j), field.Place(row.k));
  const float edge = std::max(std::max(t[1], t[2]), std::max(t[3], 0.0f));
  return t[0] * t[0] + edge * edge;
}

// What a worker needs for a row. Loops over candidates are flat and have no branches to mispredict.
struct RowWork {
  static constexpr int kNodes = kTile.x + 1, kMost = kNodes * kNeighbours + 8;
  std::int32_t tests[kNodes];
  // Nodes that have something to try, in ascending x.
  int actives;
  std::int16_t active[kNodes + 1];
  float limit[kNodes], least[kNodes];  // cells^2: of the node's distance, and of its candidates' bounds
  float place[kNodes];                 // of the node along x, cells
  double best[kNodes];
  std::int32_t found[kNodes], order[kNodes];  // of the triangle that is best so far; order -1: the node's own
  double inRow[kNodes];                       // the distance to the triangle of the neighbour in the row
  // Triangles to be tried, by active node: those of node a from start[a] on.
  int start[kNodes + 1];
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

ORLIX_INLINE bool AllLanes(const IntLanes& mask) {
  using Words = std::int64_t __attribute__((vector_size(sizeof mask)));
  const Words words = __builtin_bit_cast(Words, mask);
  return (words[0] & words[1] & words[2] & words[3]) == -1;
}

// For the kTestLanes nodes from l on: a bit for each neighbour whose triangle is worth a try. A triangle that two
// of them share is tried once, and not at all when one of them was tried with it before. The neighbour in the row (bit
// 0) may still change, so its triangle is never left out for having been tried elsewhere.
ORLIX_INLINE void FindTests(const SweepField& field, const SweepRow& row, int l, IntLanes& bits) {
  const std::int32_t* closest = field.closest + row.begin + l;
  IntLanes own, exact, sweeps, triangle[kNeighbours], isOld[kNeighbours], skip[kNeighbours];
  for (int lane = 0; lane < kTestLanes; ++lane) sweeps[lane] = row.sweeps[(row.low + l + lane) / kGuessStride];
  std::memcpy(&own, closest, sizeof own);
  own &= kTriangleMask;
  AtMost(exact, field.distance + row.begin + l, field.exact);
  const IntLanes done = exact | ((sweeps & row.sweepBit) == 0);
  for (int n = 0; n < kNeighbours; ++n) {
    IntLanes theirs;
    std::memcpy(&theirs, closest + row.offset[n], sizeof theirs);
    triangle[n] = theirs & kTriangleMask;
    isOld[n] = (theirs < 0) | ((theirs < row.newFrom[n]) & ((sweeps & row.triedIn[n]) != 0));
    skip[n] = isOld[n] | done | (triangle[n] == own);
  }
  bits = IntLanes{};
  for (int n = 0; n < kNeighbours; ++n) {
    // Late sweeps have something new in one or two directions, and mostly nothing.
    if (AllLanes(skip[n])) continue;
    IntLanes same = skip[n];
    for (int m = 0; m < n; ++m) same |= m == 0 ? (triangle[n] == triangle[m]) & isOld[m] : triangle[n] == triangle[m];
    for (int m = n + 1; m < kNeighbours; ++m) same |= (triangle[n] == triangle[m]) & isOld[m];
    bits |= ~same & (1 << n);
  }
}

// The same for one node, where each neighbour counts as new: to try again what was tried changes nothing.
ORLIX_INLINE std::int32_t FindNodeTests(const SweepField& field, const SweepRow& row, int l) {
  const std::int64_t index = row.begin + l;
  if (field.distance[index] <= field.exact || !row.Visits(l, l)) return 0;
  std::int32_t bits = 0;
  for (int n = 0; n < kNeighbours; ++n) {
    bits |= static_cast<std::int32_t>(field.closest[index + row.offset[n]] >= 0) << n;
  }
  return bits;
}

ORLIX_INLINE void FindRowTests(const SweepField& field, const SweepRow& row, std::int32_t* tests) {
  if (row.count < kTestLanes) {
    for (int l = 0; l < row.count; ++l) tests[l] = FindNodeTests(field, row, l);
    return;
  }
  for (int next = 0; next < row.count; next += kTestLanes) {
    // The last lanes are moved back into the row: their nodes get the same tests again.
    const int l = std::min(next, row.count - kTestLanes);
    IntLanes bits{};
    if (row.Visits(l, l + kTestLanes - 1)) FindTests(field, row, l, bits);
    std::memcpy(tests + l, &bits, sizeof bits);
  }
  if (row.face >= 0) tests[row.face] = FindNodeTests(field, row, row.face);
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
    work.place[a] = field.Place(row.low + work.active[a]);
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
  for (int c = count; c % 4 != 0; ++c) work.node[c] = work.node[c - 1], work.triangle[c] = work.triangle[c - 1];
  const float y = field.Place(row.j), z = field.Place(row.k);
  for (int c = 0; c < count; c += 4) {
    BoundLanes t[4];
    for (int l = 0; l < 4; ++l) {
      OutsideOf(t[l], field.bounds[work.triangle[c + l]], work.place[work.node[c + l]], y, z);
    }
    // A lane for each candidate.
    const BoundLanes low01 = __builtin_shufflevector(t[0], t[1], 0, 4, 1, 5);
    const BoundLanes low23 = __builtin_shufflevector(t[2], t[3], 0, 4, 1, 5);
    const BoundLanes high01 = __builtin_shufflevector(t[0], t[1], 2, 6, 3, 7);
    const BoundLanes high23 = __builtin_shufflevector(t[2], t[3], 2, 6, 3, 7);
    const BoundLanes plane = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
    const BoundLanes edge12 = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
    const BoundLanes edge13 = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
    const BoundLanes edge23 = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
    BoundLanes edge = edge12 > edge13 ? edge12 : edge13;
    edge = edge > edge23 ? edge : edge23;
    edge = edge > BoundLanes{} ? edge : BoundLanes{};
    const BoundLanes bound = plane * plane + edge * edge;
    std::memcpy(work.bound + c, &bound, sizeof bound);
  }
  // The least of a node in one go: handed on by way of the memory it would come late.
  using NodeBounds = float __attribute__((vector_size(8 * sizeof(float))));
  const IntLanes number{0, 1, 2, 3, 4, 5, 6, 7};
  for (int a = 0; a < work.actives; ++a) {
    NodeBounds b;
    std::memcpy(&b, work.bound + work.start[a], sizeof b);
    b = number < work.start[a + 1] - work.start[a] ? b : NodeBounds{} + std::numeric_limits<float>::max();
    NodeBounds other = __builtin_shufflevector(b, b, 4, 5, 6, 7, 0, 1, 2, 3);
    b = b < other ? b : other;
    other = __builtin_shufflevector(b, b, 2, 3, 0, 1, 6, 7, 4, 5);
    b = b < other ? b : other;
    work.least[a] = b[0] < b[1] ? b[0] : b[1];
  }
}

// distance[c]: of the candidate selected[c]. Behind the last there is room for kLanes.
ORLIX_INLINE void MeasureCandidates(const SweepField& field, const SweepRow& row, std::int32_t* selected, int count,
                                    RowWork& work) {
  const Lanes zero{};
  const double* x = field.x + row.low;
  // All at once: one at a time, each would be waited for.
  for (int c = 0; c < count; ++c) {
    const char* t = reinterpret_cast<const char*>(field.triangles + work.triangle[selected[c]]);
    __builtin_prefetch(t), __builtin_prefetch(t + 64);
  }
  for (int l = 0; l < kLanes; ++l) selected[count + l] = selected[0];
  for (int c = 0; c < count; c += kLanes) {
    const std::int32_t* s = selected + c;
    const auto triangle = [&](int l) { return field.triangles + work.triangle[s[l]]; };
    const auto place = [&](int l) { return x[work.active[work.node[s[l]]]]; };
    const TriangleTerms* const t[kLanes] = {triangle(0), triangle(1), triangle(2), triangle(3)};
    LaneTriangle<Lanes> lanes{};
    Gather(lanes, t);
    const LaneVector<Lanes> p{Lanes{place(0), place(1), place(2), place(3)}, zero + row.y, zero + row.z};
    Lanes squared;
    LaneSquaredDistances(squared, p, lanes);
    std::memcpy(work.distance + c, &squared, sizeof squared);
  }
  // Lanes that are loaded anew, as the compiler takes the roots of a lane's elements one by one.
  for (int c = 0; c < count; ++c) work.distance[c] = std::sqrt(work.distance[c]);
}

ORLIX_INLINE void TryCandidates(const SweepField& field, const SweepRow& row, std::int32_t* selected, int count,
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
      std::memcpy(distance, &squared, sizeof squared);
      for (double& d : distance) d = std::sqrt(d);
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
  if (LeastSquared(field, row, l, triangle) > field.InCells(best)) return kMore;
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
      changed = row.Visits(l, l);
      if (!changed) continue;
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
  Sweeper(const NodeLattice& lattice, int stride, int exactBand, const VoxeliserScratch& scratch,
          GridView<double> distances, std::int32_t* closest, VoxeliserHistory* history)
      : lattice_(lattice), stride_(stride), distances_(distances), closest_(closest), history_(history) {
    dims_ = distances.dims, slab_ = distances.slab;
    if (history) tile_ = VoxeliserHistory::kBlock;
    for (int i = 0; i < dims_.x; ++i) x_.push_back(lattice.World(i * stride, 0, 0).x);
    const double least = std::min({lattice.spacing.x, lattice.spacing.y, lattice.spacing.z});
    // Outside its widened box a triangle is farther than the band and one node more.
    const double exact = (exactBand + 1) * least * (1 - 1e-9);
    field_ = {scratch.triangles.data, scratch.bounds.data, x_.data(), distances.data, closest, exact, 1 / least, stride,
              scratch.boundError};
    sweeps_ = scratch.sweeps;
  }

  // A worker takes the next layer of tiles and follows the one before it. A layer is taken only when the one before it
  // was, so the first unfinished layer never waits.
  void Sweep(int sweep, WorkerPool& pool, int workers) {
    const VecInt3D tiles = NodeBlock::Count(tile_, dims_);
    const auto progress = std::make_unique<std::atomic<int>[]>(static_cast<std::size_t>(tiles.z));
    std::atomic<int> next{0};
    pool.Run(workers, [&](int) {
      const auto work = std::make_unique<RowWork>();
      for (int layer = next++; layer < tiles.z; layer = next++) {
        for (int tile = 0; tile < tiles.x * tiles.y; ++tile) {
          if (layer > 0) WaitFor(progress[static_cast<std::size_t>(layer - 1)], tile + 1);
          VecInt3D block(tile % tiles.x, tile / tiles.x, layer);
          for (int axis = 0; axis < 3; ++axis) {
            if (kDirections[sweep][axis] < 0) block[axis] = tiles[axis] - 1 - block[axis];
          }
          MakeBlock(sweep, block, *work);
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

  void MakeBlock(int sweep, const VecInt3D& block, RowWork& work) {
    if (history_ && !history_->NeedsSweep(block, kDirections[sweep])) {
      return history_->Load(block, sweep + 1, distances_, closest_);
    }
    SweepTile(sweep, block, work);
    if (history_) history_->Take(block, sweep + 1, distances_, closest_);
  }

  void SweepTile(int sweep, const VecInt3D& block, RowWork& work) {
    const int* d = kDirections[sweep];
    const VecInt3D& n = dims_;
    // The first node of each axis isn't visited.
    auto [low, high] = NodeBlock(block, tile_, n);
    for (int axis = 0; axis < 3; ++axis) {
      if (d[axis] > 0) low[axis] = std::max(low[axis], 1);
      if (d[axis] < 0) high[axis] = std::min(high[axis], n[axis] - 1);
      if (low[axis] >= high[axis]) return;
    }
    SweepRow row;
    row.count = high.x - low.x;
    row.low = low.x;
    row.step = d[0];
    row.sweepBit = 1 << sweep;
    row.tag = static_cast<std::int32_t>(sweep + 1) << kSweepTagShift;
    const int last = d[0] > 0 ? row.low + row.count - 1 : row.low;
    row.face = last == 0 || last == n.x - 1 ? last - row.low : -1;
    for (int m = 0; m < kNeighbours; ++m) {
      const std::int64_t back = kBack[m][0] * d[0] + std::int64_t(kBack[m][1] * d[1]) * n.x;
      row.offset[m] = -(back + kBack[m][2] * d[2] * slab_);
    }
    const VecInt3D count = high - low;
    for (int layer = 0; layer < count.z; ++layer) {
      for (int step = 0; step < count.y; ++step) {
        row.j = d[1] > 0 ? low.y + step : high.y - 1 - step;
        row.k = d[2] > 0 ? low.z + layer : high.z - 1 - layer;
        // Nodes of the array's faces aren't visited by each sweep: there everything is new.
        const bool onFace = row.j == 0 || row.k == 0 || row.j == n.y - 1 || row.k == n.z - 1;
        for (int m = 0; m < kNeighbours; ++m) {
          const int before = onFace ? -1 : SweepBefore(sweep, m);
          row.newFrom[m] = before < 0 ? 0 : static_cast<std::int32_t>(before + 2) << kSweepTagShift;
          row.triedIn[m] = before < 0 ? 0 : 1 << before;
        }
        row.sweeps = &sweeps_(0, row.j / kGuessStride, row.k / kGuessStride);
        row.begin = slab_ * row.k + std::int64_t(n.x) * row.j + row.low;
        row.next = step + 1 < count.y ? row.begin + d[1] * n.x : row.begin;
        const Vec3D world = lattice_.World(0, row.j * stride_, row.k * stride_);
        row.y = world.y, row.z = world.z;
        if (row.Visits(0, row.count - 1)) SweepOneRow(field_, row, work);
      }
    }
  }

  const NodeLattice& lattice_;
  int stride_;
  GridView<double> distances_;
  std::int32_t* closest_;
  VoxeliserHistory* history_;
  VecInt3D tile_ = kTile;
  VecInt3D dims_;
  std::int64_t slab_;
  std::vector<double> x_;
  SweepField field_{};
  GridView<const std::uint8_t> sweeps_;
};

}  // namespace

std::uint8_t SweepsAlong(const Vec3D& way) {
  const double slack = kSlant * Length(way);
  unsigned bits = 0;
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    const int* d = kDirections[sweep];
    const bool against = d[0] * way.x < -slack || d[1] * way.y < -slack || d[2] * way.z < -slack;
    if (!against) bits |= 1u << sweep;
  }
  return static_cast<std::uint8_t>(bits);
}

void MakeSweepBounds(const NodeLattice& lattice, VoxeliserScratch& scratch, WorkerPool& pool) {
  std::array<double, WorkerPool::kMaxWorkers> longest{};
  ParallelRange(pool, 0, scratch.triangles.count, [&](int from, int to, int worker) {
    double most = 0;
    for (int t = from; t < to; ++t) {
      most = std::max(most, MakeSweepBound(lattice, scratch.triangles[t], scratch.bounds[t]));
    }
    longest[static_cast<std::size_t>(worker)] = most;
  });
  // What rounding takes of the products and of their offset, which have kMostReach lattices at most, and of the way
  // from the first corner to the closest point.
  scratch.boundError = 1.5e-6 * std::max({lattice.dims.x, lattice.dims.y, lattice.dims.z}) +
                       1e-6 * *std::max_element(longest.begin(), longest.end());
}

bool SweepClosestTriangles(const NodeLattice& lattice, int stride, int exactBand, const VoxeliserScratch& scratch,
                           GridView<double> distances, std::int32_t* closest, WorkerPool& pool, int workers,
                           const BaseThread* hostThread, VoxeliserHistory* history) {
  const VecInt3D& n = distances.dims;
  if (scratch.triangles.count == 0 || std::min({n.x, n.y, n.z}) < 2) return true;
  Sweeper sweeper(lattice, stride, exactBand, scratch, distances, closest, history);
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    if (hostThread && hostThread->TestBreak()) return false;
    sweeper.Sweep(sweep, pool, workers);
  }
  return true;
}

}  // namespace orlix
