#pragma once
// The particles of one population, by columns in chunks (ParticleChunk.h). An index is stable until the next removal;
// rows don't move when others are appended.
//
// Workers read and write different rows freely. Appending, removal and resizing go on one thread while no worker runs,
// so that the order doesn't depend on timing: workers gather what they make and it is appended in the order of their
// ranges. Memory that doesn't suffice, also beyond 2^31 - 1 rows, throws std::bad_alloc and leaves the list as it was.

#include <algorithm>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "fluids/grids/WorkSplit.h"
#include "fluids/particles/ParticleChunk.h"
#include "fluids/particles/ParticleData.h"
#include "fluids/scene/StateVisitor.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class ParticleList;

// A share of another particle's mass. The partner is known by its id, which stays with it when rows move.
struct ParticleLink {
  float weight = 0;
  std::int32_t partner = -1;
  bool operator==(const ParticleLink&) const = default;
};

// Rows [begin, end) of one chunk.
class ParticleRows {
 public:
  ParticleRows(const ParticleList& list, ParticleChunk& chunk, std::int32_t firstIndex, std::int32_t from,
               std::int32_t to)
      : first(firstIndex), begin(from), end(to), list_(&list), chunk_(&chunk) {}

  const std::int32_t first;  // the index of row 0
  const std::int32_t begin, end;

  const Vec3D* positions() const { return chunk_->positions; }
  const Vec3D* velocities() const { return chunk_->velocities; }
  const std::int32_t* ids() const { return chunk_->ids; }
  const std::uint16_t* flags() const { return chunk_->flags; }
  Vec3D* EditVelocities() const { return chunk_->velocities; }
  // Neighbours that were found before become stale with these two.
  Vec3D* EditPositions() const {
    chunk_->moved.store(true, std::memory_order_relaxed);
    return chunk_->positions;
  }
  std::uint16_t* EditFlags() const {
    chunk_->moved.store(true, std::memory_order_relaxed);
    return chunk_->flags;
  }
  // For all bits but Alive.
  std::uint16_t* TagFlags() const { return chunk_->flags; }

  // T: double, Vec3D, or std::uint8_t for a state. Not for velocity and position.
  template <class T>
  PropertyView<T> Property(PropertyKey key) const;
  // Its column exists afterwards, rows still lack the property until they are Put. Empty only where NeedSlot fails.
  template <class T>
  PropertyView<T> NeedProperty(PropertyKey key) const;

 private:
  const ParticleList* list_;
  ParticleChunk* chunk_;
};

// What happened to a list since the count was taken last, for statistics.
struct ParticleTally {
  std::int64_t born = 0, died = 0, lost = 0;
};

class ParticleList {
 public:
  ParticleList() = default;
  ~ParticleList() { Clear(); }
  ParticleList(const ParticleList&) = delete;
  ParticleList& operator=(const ParticleList&) = delete;

  std::int32_t count() const { return count_.load(std::memory_order_acquire); }
  bool empty() const { return count() == 0; }
  // Whether it has held any particle since its last new start.
  bool everHeld() const { return nextId_ > 0; }

  // --- by chunks
  std::int32_t chunkCount() const { return (count() + kChunkRows - 1) >> kChunkShift; }
  ParticleChunk& ChunkOf(std::int32_t index) const {
    return *table_.load(std::memory_order_acquire)[index >> kChunkShift];
  }
  ParticleRows Rows(std::int32_t chunk) const {
    const std::int32_t first = chunk << kChunkShift, left = count() - first;
    return {*this, ChunkOf(first), first, 0, left < kChunkRows ? left : kChunkRows};
  }
  // f(const ParticleRows&) for the rows of indices [begin, end), in order.
  template <class F>
  void ForEachChunk(std::int32_t begin, std::int32_t end, F&& f) const {
    for (std::int32_t i = begin; i < end;) {
      const std::int32_t first = i & ~(kChunkRows - 1);
      const std::int32_t to = end - first < kChunkRows ? end - first : kChunkRows;
      f(ParticleRows(*this, ChunkOf(i), first, i - first, to));
      i = first + to;
    }
  }
  // The first slot of a property beyond after, -1 when there is none under this type. From 75 on and without an owner
  // there may be several.
  int SlotOf(PropertyKey key, PropertyType type, int after = -1) const;
  // The slot of this very key, made if need be. -1 when the user's own are spent (there are 53) or the type is another.
  int NeedSlot(PropertyKey key, PropertyType type) const;

  // f(slot, key, type) for each slot that particles of the list may use.
  template <class F>
  void ForEachSlot(F&& f) const {
    for (int slot = 0; slot < kFirstUserProperty; ++slot) f(slot, PropertyKey(slot), TypeOfProperty(slot));
    for (int n = 0; n < userSlots_.load(std::memory_order_acquire); ++n) {
      const UserKey& user = userKeys_[n];
      f(kFirstUserProperty + n, PropertyKey(user.id, user.owner), static_cast<PropertyType>(user.type));
    }
  }

  // --- by index
  const Vec3D& Position(std::int32_t i) const { return ChunkOf(i).positions[i & (kChunkRows - 1)]; }
  const Vec3D& Velocity(std::int32_t i) const { return ChunkOf(i).velocities[i & (kChunkRows - 1)]; }
  std::int32_t Id(std::int32_t i) const { return ChunkOf(i).ids[i & (kChunkRows - 1)]; }
  std::uint16_t Flags(std::int32_t i) const { return ChunkOf(i).flags[i & (kChunkRows - 1)]; }

  // --- growth and removal, on one thread
  // n rows like data, with running ids; gives the first one's index. Their property sets are completed by the flag
  // bits: Ballistic brings Mass 1, Diffuse a force of 0 and Age 100, Vorticity a vorticity of 0, where data has none.
  std::int32_t Append(std::int32_t n, const BaseParticleData& data, WorkerPool* pool = nullptr);
  // A copy of another list's row or of an own one, with a new id.
  std::int32_t AppendCopy(const ParticleList& from, std::int32_t index);
  // Cuts the list to n rows, or grows it by plain ones.
  void Resize(std::int32_t n);
  // Later births get numbers above this one: rows came with numbers of their own.
  void ClaimIds(std::int32_t last) { nextId_ = std::max(nextId_, last < INT32_MAX ? last + 1 : last); }
  // Rows without Alive leave. Swapped: the last row takes the place of a dead one, whose links go to its partners.
  // Kept: all later rows move down. Gives how many left.
  std::int32_t RemoveDead(bool keepOrder);
  // As a new list: none has died.
  void Clear();

  // Another number whenever rows came, left, moved, died or revived since the last call; no two lists share one. On the
  // driving thread.
  std::uint64_t Version();
  // The sort that set or cleared ParticleFlag::Sorted last.
  std::uint64_t sortStamp = 0;
  std::int64_t Bytes() const;
  // Of a chunk full of particles like data.
  static std::int64_t BytesOfChunk(const BaseParticleData& data);
  // Walls that swallow particles report them here; safe from workers.
  void CountLost(std::int64_t n) { lost_.fetch_add(n, std::memory_order_relaxed); }
  ParticleTally TakeTally();
  void VisitState(StateVisitor& visitor);
  // Positions and velocities, for the test for NaN.
  void VisitNumbers(StateVisitor& visitor);

  // --- links, on one thread
  std::span<const ParticleLink> Links(std::int32_t index) const;
  void SetLinks(std::int32_t index, std::vector<ParticleLink> links);
  bool HasLinks() const { return !links_.empty(); }

 private:
  struct Fill;  // a template, resolved to slots

  void Reserve(std::int32_t n);
  void FillRows(std::int32_t begin, std::int32_t end, const Fill& fill, std::int32_t firstId);
  // Core, ids too, and properties.
  void CopyRows(const ParticleList& from, std::int32_t source, std::int32_t target, std::int32_t n);
  void CopyColumns(const ParticleList& from, ParticleChunk& a, std::int32_t s, ParticleChunk& b, std::int32_t t,
                   std::int32_t rows);
  void Truncate(std::int32_t n);
  // Takes all properties from rows that exist or are being made.
  void EraseRows(std::int32_t begin, std::int32_t end);
  void HandOnLinks(std::int32_t index);
  void CompactKeepingOrder();
  void SwapDead();
  std::int32_t TakeIds(std::int32_t n);
  void VisitChunk(StateVisitor& visitor, std::int32_t begin, std::int32_t rows);
  void VisitUserKeys(StateVisitor& visitor);
  void VisitLinks(StateVisitor& visitor);
  PropertyType TypeOfSlot(int slot) const;

  struct UserKey {
    std::int32_t id = 0;
    std::int32_t type = 0;
    PropertyOwner owner = 0;
  };

  std::atomic<std::int32_t> count_{0};
  // The table of chunks. A table that became too small stays until no worker can look into it.
  std::atomic<ParticleChunk**> table_{nullptr};
  std::vector<std::unique_ptr<ParticleChunk*[]>> tables_;
  std::int32_t chunks_ = 0, tableSize_ = 0;

  mutable std::mutex slotMutex_;
  mutable UserKey userKeys_[kPropertySlots - kFirstUserProperty];
  mutable std::atomic<int> userSlots_{0};

  std::unordered_map<std::int32_t, std::vector<ParticleLink>> links_;  // by the owner's id
  std::int32_t nextId_ = 0;
  std::uint64_t version_ = 0;
  bool changed_ = true;
  std::int64_t born_ = 0, died_ = 0;
  std::atomic<std::int64_t> lost_{0};
};

template <class T>
PropertyView<T> ParticleRows::Property(PropertyKey key) const {
  const int slot = list_->SlotOf(key, PropertyTypeOf<T>());
  return PropertyView<T>(slot < 0 ? nullptr : chunk_->column(slot));
}

template <class T>
PropertyView<T> ParticleRows::NeedProperty(PropertyKey key) const {
  const int slot = list_->NeedSlot(key, PropertyTypeOf<T>());
  return PropertyView<T>(slot < 0 ? nullptr : &chunk_->NeedColumn(slot, PropertyTypeOf<T>()));
}

// How the indices of a list divide among the workers of a node: contiguous ranges of whole grains, so that no two
// workers share a cache line or a word of presence bits.
inline constexpr std::int32_t kRangeGrain = 256;
struct ParticleRanges {
  std::int32_t begin[WorkerPool::kMaxWorkers] = {}, end[WorkerPool::kMaxWorkers] = {};
  int pieces = 0;
  // Workers at or above pieces have nothing to do.
  bool Has(int thread) const { return thread < pieces; }

  static ParticleRanges Of(std::int32_t count, int threads);
};

// f(const ParticleRows&, worker) over all rows of a list, on the pool.
template <class F>
void ParallelRows(WorkerPool& pool, const ParticleList& list, F&& f) {
  const ParticleRanges ranges = ParticleRanges::Of(list.count(), pool.count());
  pool.Run(ranges.pieces, [&](int worker) {
    list.ForEachChunk(ranges.begin[worker], ranges.end[worker], [&](const ParticleRows& rows) { f(rows, worker); });
  });
}

// f(chunk, const ParticleRows&) for each whole chunk, on the pool: for sums, which are kept for each chunk and added in
// the order of chunks, so that they don't depend on the number of workers.
template <class F>
void ParallelChunks(WorkerPool& pool, const ParticleList& list, F&& f) {
  ParallelRange(pool, 0, list.chunkCount(), [&](int from, int to, int) {
    for (int c = from; c < to; ++c) f(c, list.Rows(c));
  });
}

}  // namespace orlix
