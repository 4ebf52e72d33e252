#include "fluids/particles/ParticleList.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace orlix {

namespace {

constexpr std::int32_t kMask = kChunkRows - 1;
constexpr double kBirthAge = 100;  // frames that a diffuse particle gets when its maker says nothing

template <class T>
bool HasKey(const std::vector<PropertyEntry<T>>& entries, std::int32_t id) {
  return std::any_of(entries.begin(), entries.end(), [id](const auto& entry) { return entry.key.id == id; });
}

// Of new rows, whose values are 0.
template <class T>
void FillColumn(PropertyColumn& column, std::int32_t begin, std::int32_t end, const T& value) {
  if (!(value == T())) std::fill(column.values<T>() + begin, column.values<T>() + end, value);
  column.MarkAll(begin, end);
}

}  // namespace

// --- slots -----------------------------------------------------------------------------------------------------------

int ParticleList::SlotOf(PropertyKey key, PropertyType type, int after) const {
  if (key.id < 0 || key.id == PP::Velocity || key.id == PP::Position) return -1;
  if (key.id < kFirstUserProperty) return after < key.id && TypeOfProperty(key.id) == type ? key.id : -1;
  const int known = userSlots_.load(std::memory_order_acquire);
  for (int n = std::max(0, after + 1 - kFirstUserProperty); n < known; ++n) {
    const UserKey& user = userKeys_[n];
    if (user.id == key.id && user.type == static_cast<std::int32_t>(type) &&
        (key.owner == 0 || user.owner == key.owner)) {
      return kFirstUserProperty + n;
    }
  }
  return -1;
}

int ParticleList::NeedSlot(PropertyKey key, PropertyType type) const {
  if (key.id < kFirstUserProperty) return SlotOf(key, type);
  const auto exact = [&] {
    int slot = SlotOf(key, type);
    while (slot >= 0 && userKeys_[slot - kFirstUserProperty].owner != key.owner) slot = SlotOf(key, type, slot);
    return slot;
  };
  if (const int slot = exact(); slot >= 0) return slot;
  const std::lock_guard lock(slotMutex_);
  if (const int slot = exact(); slot >= 0) return slot;
  const int n = userSlots_.load(std::memory_order_relaxed);
  if (n == kPropertySlots - kFirstUserProperty) return -1;
  userKeys_[n] = {key.id, static_cast<std::int32_t>(type), key.owner};
  userSlots_.store(n + 1, std::memory_order_release);
  return kFirstUserProperty + n;
}

PropertyType ParticleList::TypeOfSlot(int slot) const {
  return slot < kFirstUserProperty ? TypeOfProperty(slot)
                                   : static_cast<PropertyType>(userKeys_[slot - kFirstUserProperty].type);
}

// --- growth ----------------------------------------------------------------------------------------------------------

struct ParticleList::Fill {
  template <class T>
  struct Value {
    int slot;
    T value;
  };

  Fill(const ParticleList& list, const BaseParticleData& data)
      : flags(data.flags), position(data.position), velocity(data.velocity) {
    Take(list, data.reals, reals);
    Take(list, data.vectors, vectors);
    Take(list, data.states, states);
    if ((flags & ParticleFlag::Ballistic) && !HasKey(data.reals, PP::Mass)) reals.push_back({PP::Mass, 1.0});
    if (flags & ParticleFlag::Diffuse) {
      if (!HasKey(data.vectors, PP::ExternalForce)) vectors.push_back({PP::ExternalForce, Vec3D()});
      if (!HasKey(data.reals, PP::Age)) reals.push_back({PP::Age, kBirthAge});
    }
    if ((flags & ParticleFlag::Vorticity) && !HasKey(data.vectors, PP::Vorticity)) {
      vectors.push_back({PP::Vorticity, Vec3D()});
    }
  }

  template <class T>
  static void Take(const ParticleList& list, const std::vector<PropertyEntry<T>>& from, std::vector<Value<T>>& to) {
    for (const auto& entry : from) {
      const int slot = list.NeedSlot(entry.key, PropertyTypeOf<T>());
      const auto taken = [slot](const Value<T>& v) { return v.slot == slot; };
      // Of several entries under one number the first serves.
      if (slot >= 0 && std::none_of(to.begin(), to.end(), taken)) to.push_back({slot, entry.value});
    }
  }

  std::uint16_t flags;
  Vec3D position, velocity;
  std::vector<Value<double>> reals;
  std::vector<Value<Vec3D>> vectors;
  std::vector<Value<std::uint8_t>> states;
};

void ParticleList::Reserve(std::int32_t n) {
  const std::int32_t wanted = static_cast<std::int32_t>((std::int64_t(n) + kMask) >> kChunkShift);
  if (wanted > tableSize_) {
    const std::int32_t size = std::max({wanted, 2 * tableSize_, 16});
    auto table = std::make_unique<ParticleChunk*[]>(static_cast<std::size_t>(size));
    if (chunks_ > 0) std::copy_n(table_.load(std::memory_order_relaxed), chunks_, table.get());
    tables_.push_back(std::move(table));
    tableSize_ = size;
    table_.store(tables_.back().get(), std::memory_order_release);
  }
  for (; chunks_ < wanted; ++chunks_) {
    table_.load(std::memory_order_relaxed)[chunks_] = std::make_unique<ParticleChunk>().release();
  }
}

std::int32_t ParticleList::TakeIds(std::int32_t n) {
  // Numbers start again at 0 when they are spent: after 2^31 births.
  if (nextId_ > std::numeric_limits<std::int32_t>::max() - n) nextId_ = 0;
  const std::int32_t first = nextId_;
  nextId_ += n;
  return first;
}

void ParticleList::FillRows(std::int32_t begin, std::int32_t end, const Fill& fill, std::int32_t firstId) {
  for (std::int32_t i = begin; i < end;) {
    const std::int32_t row = i & kMask, n = std::min(end - i, kChunkRows - row);
    ParticleChunk& chunk = ChunkOf(i);
    std::fill_n(chunk.positions + row, n, fill.position);
    std::fill_n(chunk.velocities + row, n, fill.velocity);
    std::fill_n(chunk.flags + row, n, fill.flags);
    for (std::int32_t r = 0; r < n; ++r) chunk.ids[row + r] = firstId + (i - begin) + r;
    const auto fillAll = [&](const auto& values) {
      for (const auto& v : values) FillColumn(chunk.NeedColumn(v.slot, TypeOfSlot(v.slot)), row, row + n, v.value);
    };
    fillAll(fill.reals);
    fillAll(fill.vectors);
    fillAll(fill.states);
    chunk.moved.store(true, std::memory_order_relaxed);
    i += n;
  }
}

std::int32_t ParticleList::Append(std::int32_t n, const BaseParticleData& data, WorkerPool* pool) {
  const std::int32_t begin = count();
  if (n <= 0) return begin;
  if (n > std::numeric_limits<std::int32_t>::max() - begin) throw std::bad_alloc();
  const Fill fill(*this, data);
  const std::int32_t end = begin + n;
  Reserve(end);
  const std::int32_t firstId = TakeIds(n);
  // Workers touch the memory of their chunks first, and must not throw.
  std::atomic<bool> failed{false};
  const auto fillChunks = [&](int from, int to, int) {
    const std::int32_t a = std::max(begin, from << kChunkShift);
    const std::int64_t b = std::min<std::int64_t>(end, std::int64_t(to) << kChunkShift);
    try {
      FillRows(a, static_cast<std::int32_t>(b), fill, firstId + (a - begin));
    } catch (const std::bad_alloc&) {
      failed.store(true, std::memory_order_relaxed);
    }
  };
  const int firstChunk = begin >> kChunkShift, endChunk = ((end - 1) >> kChunkShift) + 1;
  if (pool) {
    ParallelRange(*pool, firstChunk, endChunk, fillChunks);
  } else {
    fillChunks(firstChunk, endChunk, 0);
  }
  if (failed) {
    EraseRows(begin, end);
    throw std::bad_alloc();
  }
  count_.store(end, std::memory_order_release);
  changed_ = true;
  born_ += n;
  return begin;
}

std::int32_t ParticleList::AppendCopy(const ParticleList& from, std::int32_t index) {
  BaseParticleData plain;
  plain.flags = from.Flags(index);
  const std::int32_t added = Append(1, plain), id = Id(added);
  CopyRows(from, index, added, 1);
  ChunkOf(added).ids[added & kMask] = id;
  if (const auto links = from.Links(index); !links.empty()) SetLinks(added, {links.begin(), links.end()});
  return added;
}

void ParticleList::Resize(std::int32_t n) {
  if (n < count()) {
    for (std::int32_t i = n; i < count() && HasLinks(); ++i) links_.erase(Id(i));
    Truncate(std::max(n, 0));
  } else {
    Append(n - count(), BaseParticleData());
  }
}

// --- removal ---------------------------------------------------------------------------------------------------------

void ParticleList::CopyRows(const ParticleList& from, std::int32_t source, std::int32_t target, std::int32_t n) {
  for (std::int32_t done = 0; done < n;) {
    const std::int32_t s = (source + done) & kMask, t = (target + done) & kMask;
    const std::int32_t rows = std::min({n - done, kChunkRows - s, kChunkRows - t});
    ParticleChunk& a = from.ChunkOf(source + done);
    ParticleChunk& b = ChunkOf(target + done);
    const auto move = [rows](auto* to, const auto* what) { std::memmove(to, what, rows * sizeof *to); };
    move(b.positions + t, a.positions + s);
    move(b.velocities + t, a.velocities + s);
    move(b.ids + t, a.ids + s);
    move(b.flags + t, a.flags + s);
    b.moved.store(true, std::memory_order_relaxed);
    CopyColumns(from, a, s, b, t, rows);
    done += rows;
  }
}

void ParticleList::CopyColumns(const ParticleList& from, ParticleChunk& a, std::int32_t s, ParticleChunk& b,
                               std::int32_t t, std::int32_t rows) {
  const int slots = kFirstUserProperty + from.userSlots_.load(std::memory_order_relaxed);
  for (int slot = 0; slot < slots; ++slot) {
    const PropertyColumn* column = a.column(slot);
    const bool any = column && column->Any(s, s + rows);
    int target = slot;
    if (any && &from != this && slot >= kFirstUserProperty) {
      const UserKey& key = from.userKeys_[slot - kFirstUserProperty];
      target = NeedSlot({key.id, key.owner}, static_cast<PropertyType>(key.type));
      if (target < 0) continue;
    }
    if (any) {
      b.NeedColumn(target, from.TypeOfSlot(slot)).CopyRows(*column, s, t, rows);
    } else if (PropertyColumn* old = &from == this ? b.column(target) : nullptr) {
      for (std::int32_t r = 0; r < rows; ++r) old->Erase(t + r);
    }
  }
}

void ParticleList::EraseRows(std::int32_t begin, std::int32_t end) {
  for (std::int32_t i = begin; i < end;) {
    const std::int32_t row = i & kMask, n = std::min(end - i, kChunkRows - row);
    for (int slot = 0; slot < kPropertySlots; ++slot) {
      PropertyColumn* column = ChunkOf(i).column(slot);
      for (std::int32_t r = row; column && r < row + n; ++r) column->Erase(r);
    }
    i += n;
  }
}

// Rows from n on are forgotten. Their columns hold nothing then, as those of new rows must.
void ParticleList::Truncate(std::int32_t n) {
  const std::int32_t end = count();
  const std::int32_t keptChunks = static_cast<std::int32_t>((std::int64_t(n) + kMask) >> kChunkShift);
  if (n < end && (n & kMask) != 0) EraseRows(n, std::min(end, keptChunks << kChunkShift));
  count_.store(n, std::memory_order_release);
  changed_ = true;
  for (ParticleChunk** table = table_.load(std::memory_order_relaxed); chunks_ > keptChunks; --chunks_) {
    delete table[chunks_ - 1];
  }
  if (tables_.size() > 1) tables_.erase(tables_.begin(), tables_.end() - 1);
}

void ParticleList::Clear() {
  links_.clear();
  Truncate(0);
  userSlots_.store(0, std::memory_order_relaxed);
}

void ParticleList::HandOnLinks(std::int32_t index) {
  const auto own = links_.find(Id(index));
  if (own == links_.end()) return;
  for (const ParticleLink& link : own->second) {
    const auto partner = links_.find(link.partner);
    if (partner != links_.end() && !partner->second.empty()) partner->second.front().weight += link.weight;
  }
  links_.erase(own);
}

std::int32_t ParticleList::RemoveDead(bool keepOrder) {
  const std::int32_t before = count();
  if (keepOrder) {
    CompactKeepingOrder();
  } else {
    SwapDead();
  }
  died_ += before - count();
  return before - count();
}

void ParticleList::SwapDead() {
  std::int32_t left = count();
  for (std::int32_t i = 0; i < left;) {
    if (Flags(i) & ParticleFlag::Alive) {
      ++i;
      continue;
    }
    if (HasLinks()) HandOnLinks(i);
    --left;
    if (i < left) CopyRows(*this, left, i, 1);  // and the row that came is tested next
  }
  if (left < count()) Truncate(left);
}

void ParticleList::CompactKeepingOrder() {
  const std::int32_t end = count();
  std::int32_t write = 0;
  for (std::int32_t i = 0; i < end;) {
    std::int32_t run = i;
    while (run < end && (Flags(run) & ParticleFlag::Alive)) ++run;
    if (run > i && write != i) CopyRows(*this, i, write, run - i);
    write += run - i;
    for (i = run; i < end && !(Flags(i) & ParticleFlag::Alive); ++i) {
      if (HasLinks()) links_.erase(Id(i));
    }
  }
  if (write < end) Truncate(write);
}

// --- links -----------------------------------------------------------------------------------------------------------

std::span<const ParticleLink> ParticleList::Links(std::int32_t index) const {
  const auto found = links_.find(Id(index));
  return found == links_.end() ? std::span<const ParticleLink>() : found->second;
}

void ParticleList::SetLinks(std::int32_t index, std::vector<ParticleLink> links) {
  if (links.empty()) {
    links_.erase(Id(index));
  } else {
    links_[Id(index)] = std::move(links);
  }
}

// --- what others ask -------------------------------------------------------------------------------------------------

std::uint64_t ParticleList::Version() {
  bool changed = std::exchange(changed_, false);
  for (std::int32_t c = 0; c < chunkCount(); ++c) {
    ParticleChunk& chunk = ChunkOf(c << kChunkShift);
    if (chunk.moved.load(std::memory_order_relaxed)) {
      chunk.moved.store(false, std::memory_order_relaxed);
      changed = true;
    }
  }
  static std::atomic<std::uint64_t> last{0};
  if (changed) version_ = ++last;
  return version_;
}

std::int64_t ParticleList::Bytes() const {
  std::int64_t bytes = static_cast<std::int64_t>(tableSize_ * sizeof(ParticleChunk*));
  for (std::int32_t c = 0; c < chunks_; ++c) bytes += ChunkOf(c << kChunkShift).Bytes();
  for (const auto& [id, links] : links_) {
    bytes += static_cast<std::int64_t>(sizeof links + 4 * sizeof(void*) + links.capacity() * sizeof(ParticleLink));
  }
  return bytes;
}

std::int64_t ParticleList::BytesOfChunk(const BaseParticleData& data) {
  const ParticleList none;
  const Fill fill(none, data);
  const auto columns = [](const auto& values, PropertyType type) {
    return static_cast<std::int64_t>(values.size()) * PropertyColumn::BytesOf(type);
  };
  return ParticleChunk::CoreBytes() + columns(fill.reals, PropertyType::Real) +
         columns(fill.vectors, PropertyType::Vector) + columns(fill.states, PropertyType::State);
}

ParticleTally ParticleList::TakeTally() {
  return {std::exchange(born_, 0), std::exchange(died_, 0), lost_.exchange(0, std::memory_order_relaxed)};
}

ParticleRanges ParticleRanges::Of(std::int32_t count, int threads) {
  ParticleRanges ranges;
  const std::int64_t grains = (std::int64_t(count) + kRangeGrain - 1) / kRangeGrain;
  ranges.pieces = static_cast<int>(std::min<std::int64_t>(grains, std::clamp(threads, 1, WorkerPool::kMaxWorkers)));
  for (int p = 0; p < ranges.pieces; ++p) {
    ranges.begin[p] = static_cast<std::int32_t>(grains * p / ranges.pieces * kRangeGrain);
    ranges.end[p] =
        static_cast<std::int32_t>(std::min<std::int64_t>(grains * (p + 1) / ranges.pieces * kRangeGrain, count));
  }
  return ranges;
}

}  // namespace orlix
