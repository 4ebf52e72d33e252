#include "fluids/particles/ParticleSort.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kNudge = 1e-6;  // a coordinate a rounding error short of a cell counts as in it

// What turns a position into the number of its cell.
struct CellMap {
  Vec3D origin, scale, dims, last;
  std::int32_t nx, ny;

  explicit CellMap(const GridSpace& space)
      : origin(space.simMin),
        scale(space.voxelsPerSim),
        dims(space.dims),
        last(space.dims - VecInt3D(1, 1, 1)),
        nx(space.dims.x),
        ny(space.dims.y) {}
};

constexpr std::uint32_t kOutside = 0xFFFFFFFF;

// Along one axis: the cell, limited to the lattice.
inline std::int32_t CellAlong(double c, double last) { return static_cast<std::int32_t>(std::min(c + kNudge, last)); }

// The cell of a position, outside where it lies in none (or is no number).
inline std::uint32_t KeyOfPosition(const Vec3D& p, const CellMap& map) {
  const Vec3D c = (p - map.origin) * map.scale;
  if (!(c.x >= 0 && c.y >= 0 && c.z >= 0 && c.x < map.dims.x && c.y < map.dims.y && c.z < map.dims.z)) return kOutside;
  const std::int32_t i = CellAlong(c.x, map.last.x), j = CellAlong(c.y, map.last.y), k = CellAlong(c.z, map.last.z);
  return static_cast<std::uint32_t>((k * map.ny + j) * map.nx + i);
}

using Four = double __attribute__((vector_size(32)));
using FourInt = std::int32_t __attribute__((vector_size(16)));

ORLIX_INLINE void CellsAlong(const Four& c, double last, FourInt& cells) {
  const Four moved = c + kNudge, most = Four{} + last;
  cells = __builtin_convertvector(moved < most ? moved : most, FourInt);
}

// keys[r]: the cell of each position, four at a time.
ORLIX_MULTIVERSION void FillKeys(const Vec3D* positions, std::int32_t count, const CellMap& map, std::uint32_t* keys) {
  std::int32_t r = 0;
  for (; r + 4 <= count; r += 4) {
    Four a, b, c;  // x0 y0 z0 x1, y1 z1 x2 y2, z2 x3 y3 z3
    const double* p = &positions[r].x;
    std::memcpy(&a, p, sizeof a), std::memcpy(&b, p + 4, sizeof b), std::memcpy(&c, p + 8, sizeof c);
    Four x = __builtin_shufflevector(__builtin_shufflevector(a, b, 0, 3, 6, 6), c, 0, 1, 2, 5);
    Four y = __builtin_shufflevector(__builtin_shufflevector(a, b, 1, 4, 7, 7), c, 0, 1, 2, 6);
    Four z = __builtin_shufflevector(__builtin_shufflevector(a, b, 2, 5, 5, 5), c, 0, 1, 4, 7);
    x = (x - map.origin.x) * map.scale.x, y = (y - map.origin.y) * map.scale.y, z = (z - map.origin.z) * map.scale.z;
    const auto in = (x >= 0.0) & (y >= 0.0) & (z >= 0.0) & (x < map.dims.x) & (y < map.dims.y) & (z < map.dims.z);
    // Where it isn't in, the conversion sees 0.
    const Four none{};
    FourInt i, j, k;
    CellsAlong(in ? x : none, map.last.x, i);
    CellsAlong(in ? y : none, map.last.y, j);
    CellsAlong(in ? z : none, map.last.z, k);
    const FourInt key = (k * map.ny + j) * map.nx + i, mask = __builtin_convertvector(in, FourInt);
    const FourInt kept = key | ~mask;  // all bits where it is outside
    std::memcpy(keys + r, &kept, sizeof kept);
  }
  for (; r < count; ++r) keys[r] = KeyOfPosition(positions[r], map);
}

// A worker's counts of fine buckets and the ends of its buckets fit into the first cache, a bucket into the second.
constexpr std::int64_t kFineBuckets = 1 << 12, kBuckets = 1 << 8, kSmallBucket = 1 << 11;

std::uint64_t Pair(std::uint32_t key, std::int32_t value) {
  return (std::uint64_t(key) << 32) | static_cast<std::uint32_t>(value);
}
std::uint32_t KeyIn(std::uint64_t pair) { return static_cast<std::uint32_t>(pair >> 32); }
std::int32_t ValueIn(std::uint64_t pair) { return static_cast<std::int32_t>(pair & 0xFFFFFFFF); }

// The rows of one chunk.
struct Piece {
  ParticleRows rows;
  std::int64_t base;  // of row 0 among the keys
  std::int32_t group;
  std::int32_t first = -1, last = -1;  // indices of the first and the last row that stands in a cell
  bool whole = false;                  // all rows do
};

// Whether all rows are alive, stand in a cell, and have the flag that says so.
ORLIX_MULTIVERSION bool AllAreTagged(const std::uint16_t* flags, const std::uint32_t* keys, std::int32_t count) {
  unsigned all = ParticleFlag::Alive | ParticleFlag::Sorted;
  std::uint32_t last = 0;
  for (std::int32_t r = 0; r < count; ++r) {
    all &= flags[r];
    last = std::max(last, keys[r]);
  }
  return all == (ParticleFlag::Alive | ParticleFlag::Sorted) && last != kOutside;
}

// Sets or clears the flag of each row, takes their cells from dead ones, and finds what stands in a cell.
void TagRows(Piece& piece, std::uint32_t* keys) {
  std::uint16_t* flags = piece.rows.TagFlags();
  const std::int32_t count = piece.rows.end;
  piece.whole = AllAreTagged(flags, keys, count);
  if (piece.whole) {
    piece.first = piece.rows.first, piece.last = piece.first + count - 1;
    return;
  }
  for (std::int32_t r = 0; r < count; ++r) {
    const std::uint16_t flag = flags[r];
    if ((flag & ParticleFlag::Alive) == 0) keys[r] = kOutside;
    const bool in = keys[r] != kOutside;
    flags[r] = static_cast<std::uint16_t>(in ? flag | ParticleFlag::Sorted : flag & ~ParticleFlag::Sorted);
    if (!in) continue;
    piece.last = piece.rows.first + r;
    if (piece.first < 0) piece.first = piece.last;
  }
}

// Calls four(bucket, r) where rows r to r + 3 go to the same bucket, as rows in order mostly do, and one(bucket, r) for
// all others. What a row adds to would wait for the row before it otherwise.
template <class BucketOf, class Four, class One>
ORLIX_INLINE void ForBuckets(const Piece& piece, const std::uint32_t* keys, BucketOf&& bucketOf, Four&& four,
                             One&& one) {
  std::int32_t r = 0;
  for (; piece.whole && r + 4 <= piece.rows.end; r += 4) {
    const auto a = bucketOf(keys[r]), b = bucketOf(keys[r + 1]), c = bucketOf(keys[r + 2]), d = bucketOf(keys[r + 3]);
    if (((a ^ b) | (a ^ c) | (a ^ d)) == 0) {
      four(a, r);
    } else {
      one(a, r), one(b, r + 1), one(c, r + 2), one(d, r + 3);
    }
  }
  for (; r < piece.rows.end; ++r) {
    if (keys[r] != kOutside) one(bucketOf(keys[r]), r);
  }
}

void RemoveSavedVelocities(const ParticleList& list) {
  for (std::int32_t c = 0; c < list.chunkCount(); ++c) {
    const ParticleRows rows = list.Rows(c);
    PropertyColumn* saved = list.ChunkOf(c << kChunkShift).column(PP::SavedVelocity);
    for (std::int32_t r = rows.begin; saved && r < rows.end; ++r) {
      if (rows.flags()[r] & ParticleFlag::Sorted) saved->Erase(r);
    }
  }
}

// Consecutive keys whose entries are sorted at one go.
struct Bucket {
  std::int64_t keyBegin = 0, keyEnd = 0;
  std::int32_t begin = 0, end = 0;  // its entries
  std::int32_t cells = 0, cellBegin = 0;
};

}  // namespace

// One sort: a stable counting sort in two steps. All particles go to some hundred buckets of consecutive keys, each
// worker its own contiguous part of the rows, then each bucket is sorted within the caches. The result is the one order
// by (key, flat index), whatever the number of workers.
struct ParticleSort::Pass {
  Pass(ParticleSort& owner, WorkerPool& workerPool) : sort(owner), pool(workerPool) {}

  void CollectPieces();
  void MakeKeys();
  void SetWindows();
  void MakeBuckets();
  void Scatter();
  void SortBuckets();
  void SortBucket(Bucket& bucket, std::vector<std::int32_t>& counts);
  void GatherCells();
  void FillLookup();

  // The pieces of worker w of workers.
  std::span<Piece> Share(int w) {
    const std::size_t n = pieces.size(), workersNow = static_cast<std::size_t>(workers),
                      at = static_cast<std::size_t>(w);
    return std::span(pieces).subspan(n * at / workersNow, n * (at + 1) / workersNow - n * at / workersNow);
  }

  ParticleSort& sort;
  WorkerPool& pool;
  int workers = 1;
  std::vector<Piece> pieces;
  int fineShift = 0;
  std::vector<std::vector<std::int32_t>>
      histograms;                       // of each worker: entries of a fine bucket, then where its next goes
  std::vector<std::uint16_t> bucketOf;  // of a fine bucket
  std::vector<Bucket> buckets;
  std::vector<std::int32_t> flatShift;  // of each group: flat index less index
};

void ParticleSort::Pass::CollectPieces() {
  std::int64_t rows = 0;
  for (std::size_t g = 0; g < sort.groups_.size(); ++g) {
    const ParticleList* list = sort.groups_[g]->list(sort.kind_);
    for (std::int32_t c = 0; list && c < list->chunkCount(); ++c) {
      pieces.push_back({list->Rows(c), rows + (std::int64_t(c) << kChunkShift), static_cast<std::int32_t>(g)});
    }
    rows += list ? list->count() : 0;
  }
  if (rows > static_cast<std::int64_t>(sort.entries_.size())) {
    const auto size = static_cast<std::size_t>(rows + rows / 8);
    sort.keys_ = {}, sort.pairs_ = {}, sort.entries_ = {};
    sort.keys_.resize(size), sort.pairs_.resize(size), sort.entries_.resize(size);
  }
  workers = std::max(1, static_cast<int>(std::min<std::size_t>(pieces.size(), static_cast<std::size_t>(pool.count()))));
}

void ParticleSort::Pass::MakeKeys() {
  const CellMap map(sort.space_);
  const std::int64_t cells = CellCount(sort.space_.dims);
  while ((cells - 1) >> fineShift >= kFineBuckets) ++fineShift;
  const std::size_t fine = static_cast<std::size_t>(((cells - 1) >> fineShift) + 1);
  histograms.assign(static_cast<std::size_t>(workers), std::vector<std::int32_t>(fine));
  pool.Run(workers, [&](int w) {
    std::int32_t* histogram = histograms[static_cast<std::size_t>(w)].data();
    const int shift = fineShift;
    for (Piece& piece : Share(w)) {
      std::uint32_t* keys = sort.keys_.data() + piece.base;
      FillKeys(piece.rows.positions(), piece.rows.end, map, keys);
      TagRows(piece, keys);
      ForBuckets(
          piece, keys, [=](std::uint32_t key) { return key >> shift; },
          [=](std::uint32_t bucket, std::int32_t) { histogram[bucket] += 4; },
          [=](std::uint32_t bucket, std::int32_t) { ++histogram[bucket]; });
    }
  });
}

void ParticleSort::Pass::SetWindows() {
  sort.ranges_.assign(sort.groups_.size(), {});
  std::vector<std::int32_t> last(sort.groups_.size(), -1);
  for (const Piece& piece : pieces) {
    if (piece.first < 0) continue;
    const auto g = static_cast<std::size_t>(piece.group);
    if (last[g] < 0) sort.ranges_[g].first = piece.first;
    last[g] = piece.last;
  }
  sort.sortedCount_ = 0;
  flatShift.assign(sort.groups_.size(), 0);
  for (std::size_t g = 0; g < last.size(); ++g) {
    Range& range = sort.ranges_[g];
    if (last[g] >= 0) range.count = last[g] + 1 - range.first;
    flatShift[g] = sort.sortedCount_ - range.first;
    sort.sortedCount_ += range.count;
  }
}

void ParticleSort::Pass::MakeBuckets() {
  const std::size_t fine = histograms[0].size();
  std::int64_t entries = 0;
  for (const auto& histogram : histograms) {
    for (const std::int32_t n : histogram) entries += n;
  }
  sort.entryCount_ = static_cast<std::int32_t>(entries);
  const std::int64_t wanted = std::max(kSmallBucket, entries / kBuckets);
  bucketOf.assign(fine, 0);
  std::int32_t at = 0;
  for (std::size_t f = 0; f < fine; ++f) {
    if (buckets.empty() || at - buckets.back().begin >= wanted) {
      buckets.push_back({.keyBegin = std::int64_t(f) << fineShift, .begin = at});
    }
    bucketOf[f] = static_cast<std::uint16_t>(buckets.size() - 1);
    for (const auto& histogram : histograms) at += histogram[f];
    buckets.back().keyEnd = std::int64_t(f + 1) << fineShift;
    buckets.back().end = at;
  }
  // From counts of fine buckets to the place of each worker's first entry in a bucket.
  std::vector<std::vector<std::int32_t>> next(histograms.size(), std::vector<std::int32_t>(buckets.size()));
  std::size_t f = 0;
  for (std::size_t b = 0; b < buckets.size(); ++b) {
    for (; f < fine && bucketOf[f] == b; ++f) {
      for (std::size_t w = 0; w < histograms.size(); ++w) next[w][b] += histograms[w][f];
    }
    std::int32_t begin = buckets[b].begin;
    for (auto& own : next) begin += std::exchange(own[b], begin);
  }
  histograms = std::move(next);
}

void ParticleSort::Pass::Scatter() {
  pool.Run(workers, [&](int w) {
    std::int32_t* next = histograms[static_cast<std::size_t>(w)].data();
    std::uint64_t* pairs = sort.pairs_.data();
    const std::uint16_t* coarse = bucketOf.data();
    const int shift = fineShift;
    for (const Piece& piece : Share(w)) {
      const std::uint32_t* keys = sort.keys_.data() + piece.base;
      const std::int32_t flat = piece.rows.first + flatShift[static_cast<std::size_t>(piece.group)];
      ForBuckets(
          piece, keys, [=](std::uint32_t key) { return coarse[key >> shift]; },
          [=](std::uint16_t bucket, std::int32_t r) {
            std::uint64_t* to = pairs + next[bucket];
            for (int n = 0; n < 4; ++n) to[n] = Pair(keys[r + n], flat + r + n);
            next[bucket] += 4;
          },
          [=](std::uint16_t bucket, std::int32_t r) { pairs[next[bucket]++] = Pair(keys[r], flat + r); });
    }
  });
}

// Entries in order of key to their place; the cells, as pairs of key and first entry, to where the bucket's pairs were.
void ParticleSort::Pass::SortBucket(Bucket& bucket, std::vector<std::int32_t>& counts) {
  std::uint64_t* pairs = sort.pairs_.data();
  std::int32_t* entries = sort.entries_.data();
  const std::int64_t keys = bucket.keyEnd - bucket.keyBegin, count = bucket.end - bucket.begin;
  std::int32_t cells = bucket.begin;
  if (keys > 8 * count + 2 * kSmallBucket) {  // few particles in many cells
    std::sort(pairs + bucket.begin, pairs + bucket.end);
    for (std::int32_t n = bucket.begin; n < bucket.end; ++n) {
      const std::uint64_t pair = pairs[n];
      entries[n] = ValueIn(pair);
      if (cells == bucket.begin || KeyIn(pairs[cells - 1]) != KeyIn(pair)) pairs[cells++] = Pair(KeyIn(pair), n);
    }
  } else {
    counts.assign(static_cast<std::size_t>(keys), 0);
    std::int32_t* next = counts.data();
    const auto base = static_cast<std::uint32_t>(bucket.keyBegin);
    for (std::int32_t n = bucket.begin; n < bucket.end; ++n) ++next[KeyIn(pairs[n]) - base];
    std::int32_t begin = bucket.begin;
    for (std::int64_t k = 0; k < keys; ++k) begin += std::exchange(next[k], begin);
    for (std::int32_t n = bucket.begin; n < bucket.end; ++n)
      entries[next[KeyIn(pairs[n]) - base]++] = ValueIn(pairs[n]);
    begin = bucket.begin;
    for (std::int64_t k = 0; k < keys; ++k) {
      if (next[k] == begin) continue;
      pairs[cells++] = Pair(base + static_cast<std::uint32_t>(k), begin);
      begin = next[k];
    }
  }
  bucket.cells = cells - bucket.begin;
}

void ParticleSort::Pass::SortBuckets() {
  std::atomic<std::size_t> next{0};
  pool.Run(std::min<int>(pool.count(), static_cast<int>(buckets.size())), [&](int) {
    std::vector<std::int32_t> counts;
    for (std::size_t b = next++; b < buckets.size(); b = next++) {
      if (buckets[b].begin < buckets[b].end) SortBucket(buckets[b], counts);
    }
  });
}

void ParticleSort::Pass::GatherCells() {
  std::int32_t cells = 0;
  for (Bucket& bucket : buckets) {
    bucket.cellBegin = cells;
    cells += bucket.cells;
  }
  sort.cells_.resize(static_cast<std::size_t>(cells));
  sort.begins_.resize(static_cast<std::size_t>(cells) + 1);
  sort.begins_.back() = sort.entryCount_;
  ParallelRange(pool, 0, static_cast<int>(buckets.size()), [&](int from, int to, int) {
    for (int b = from; b < to; ++b) {
      const Bucket& bucket = buckets[static_cast<std::size_t>(b)];
      for (std::int32_t c = 0; c < bucket.cells; ++c) {
        const std::uint64_t pair = sort.pairs_[static_cast<std::size_t>(bucket.begin + c)];
        sort.cells_[static_cast<std::size_t>(bucket.cellBegin + c)] = static_cast<std::int32_t>(KeyIn(pair));
        sort.begins_[static_cast<std::size_t>(bucket.cellBegin + c)] = ValueIn(pair);
      }
    }
  });
}

// About as many rows as there are occupied cells: where cells are dense, a row has one or two.
void ParticleSort::Pass::FillLookup() {
  const auto cells = static_cast<std::int64_t>(sort.cells_.size());
  const std::int64_t keys = CellCount(sort.space_.dims);
  sort.lookupShift_ = 0;
  while (keys >> sort.lookupShift_ > std::max<std::int64_t>(2 * cells, 64)) ++sort.lookupShift_;
  const std::int64_t rows = (keys >> sort.lookupShift_) + 1;
  sort.lookup_.resize(static_cast<std::size_t>(rows) + 1);
  const auto rowOf = [&](std::int64_t c) {
    return c < 0 ? -1 : c >= cells ? rows : std::int64_t(sort.cells_[static_cast<std::size_t>(c)]) >> sort.lookupShift_;
  };
  ParallelRange(pool, 0, static_cast<int>(std::min<std::int64_t>(cells + 1, 64)), [&](int from, int to, int) {
    const std::int64_t parts = std::min<std::int64_t>(cells + 1, 64);
    for (std::int64_t c = (cells + 1) * from / parts; c < (cells + 1) * to / parts; ++c) {
      for (std::int64_t row = rowOf(c - 1) + 1; row <= rowOf(c); ++row) {
        sort.lookup_[static_cast<std::size_t>(row)] = static_cast<std::int32_t>(c);
      }
    }
  });
}

void ParticleSort::Configure(std::int32_t kind, const GridSpace& space, std::int32_t capacity) {
  if (kind != kind_ || !space.Equals(space_)) Clear(false);
  kind_ = kind;
  space_ = space;
  cellCapacity = capacity;
}

void ParticleSort::SetLattice(const VecInt3D& dims, const Vec3D& hostSize, float cellSize, const Vec3D& hostOrigin) {
  space_.Build(dims, hostSize, cellSize, hostOrigin);
  Clear(false);
}

void ParticleSort::Clear(bool restore) {
  if (restore && current_) {
    for (ParticleGroup* group : groups_) {
      if (ParticleList* list = group->list(kind_)) RemoveSavedVelocities(*list);
    }
  }
  groups_.clear();
  current_ = false;
}

void ParticleSort::Build(WorkerPool& pool) {
  Pass pass(*this, pool);
  pass.CollectPieces();
  pass.MakeKeys();
  pass.SetWindows();
  pass.MakeBuckets();
  pass.Scatter();
  pass.SortBuckets();
  pass.GatherCells();
  pass.FillLookup();
}

void ParticleSort::Sort(std::span<ParticleGroup* const> groups, bool saveVelocity, WorkerPool& pool) {
  if (groups.empty()) return;
  groups_.assign(groups.begin(), groups.end());
  std::vector<std::uint64_t> versions;
  bool flagsStand = true;
  for (ParticleGroup* group : groups_) {
    ParticleList* list = group->list(kind_);
    versions.push_back(list ? list->Version() : 0);
    flagsStand = flagsStand && (!list || list->sortStamp == stamp_);
  }
  if (versions != versions_ || !flagsStand || !sortedSpace_.Equals(space_)) {
    static std::atomic<std::uint64_t> lastStamp{0};
    stamp_ = ++lastStamp;
    Build(pool);
    versions_ = std::move(versions);
    sortedSpace_ = space_;
    for (ParticleGroup* group : groups_) {
      if (ParticleList* list = group->list(kind_)) list->sortStamp = stamp_;
    }
  }
  current_ = true;
  if (saveVelocity) SaveVelocities(pool);
}

void ParticleSort::SaveVelocities(WorkerPool& pool) const {
  for (ParticleGroup* group : groups_) {
    const ParticleList* list = group->list(kind_);
    if (!list) continue;
    for (std::int32_t c = 0; c < list->chunkCount(); ++c) list->Rows(c).NeedProperty<Vec3D>(PP::SavedVelocity);
    ParallelRows(pool, *list, [](const ParticleRows& rows, int) {
      const auto saved = rows.Property<Vec3D>(PP::SavedVelocity);
      for (std::int32_t r = rows.begin; r < rows.end; ++r) saved.Put(r, rows.velocities()[r]);
    });
  }
}

// --- questions -------------------------------------------------------------------------------------------------------

// The first occupied cell of at least this key.
std::int32_t ParticleSort::FirstCellFrom(std::int32_t key) const {
  const auto row = static_cast<std::size_t>(key >> lookupShift_);
  const auto first = cells_.begin() + lookup_[row], last = cells_.begin() + lookup_[row + 1];
  return static_cast<std::int32_t>(std::lower_bound(first, last, key) - cells_.begin());
}

std::span<const std::int32_t> ParticleSort::Entries(std::int32_t cell) const {
  if (!current_ || cells_.empty() || cell < 0 || cell >= CellCount(space_.dims)) return {};
  const auto found = static_cast<std::size_t>(FirstCellFrom(cell));
  if (found == cells_.size() || cells_[found] != cell) return {};
  return AllEntries().subspan(static_cast<std::size_t>(begins_[found]),
                              static_cast<std::size_t>(begins_[found + 1] - begins_[found]));
}

bool ParticleSort::CellOf(const Vec3D& position, std::int32_t& cell, std::int32_t& count, bool checkCapacity,
                          bool keepMargin) const {
  if (groups_.empty()) return true;
  const Vec3D c = space_.VoxelOfSim(position);
  const double margin = keepMargin ? 1 : 0;
  VecInt3D at;
  for (int a = 0; a < 3; ++a) {
    if (!(c[a] >= margin && c[a] < space_.dims[a] - margin)) return false;
    at[a] = CellAlong(c[a], space_.dims[a] - 1);
  }
  cell = KeyOf(at);
  if (!checkCapacity) return true;
  count = static_cast<std::int32_t>(Entries(cell).size());
  return count < cellCapacity;
}

ParticleSort::Place ParticleSort::PlaceOf(std::int32_t flatIndex) const {
  for (std::size_t g = 0; g < ranges_.size() && flatIndex >= 0; ++g) {
    if (flatIndex < ranges_[g].count) return {static_cast<std::int32_t>(g), ranges_[g].first + flatIndex};
    flatIndex -= ranges_[g].count;
  }
  return {-1, -1};
}

OrlixParticle ParticleSort::ParticleAt(std::int32_t flatIndex) const {
  const Place place = PlaceOf(flatIndex);
  if (place.group < 0 || !current_) return {};
  return groups_[static_cast<std::size_t>(place.group)]->At(kind_, place.index);
}

double ParticleSort::Deficit(std::int32_t cell, double spacing, double fraction) const {
  double sum = 0;
  for (const std::int32_t flat : Entries(cell)) {
    if (const OrlixParticle particle = ParticleAt(flat)) sum += particle.GetRealOr(PP::Density, 1.0);
  }
  return fraction / (spacing * spacing * spacing) - sum;
}

bool ParticleSort::IsFull(std::int32_t cell, double spacing) const {
  constexpr double kFraction = 0.2;
  return !Entries(cell).empty() && Deficit(cell, spacing, kFraction) < 0;
}

std::int64_t ParticleSort::Bytes() const {
  return static_cast<std::int64_t>(entries_.size() * (sizeof keys_[0] + sizeof pairs_[0] + sizeof entries_[0]) +
                                   (cells_.capacity() + begins_.capacity() + lookup_.capacity()) *
                                       sizeof(std::int32_t));
}

}  // namespace orlix
