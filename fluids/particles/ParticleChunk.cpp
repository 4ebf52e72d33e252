#include "fluids/particles/ParticleChunk.h"

#include <cstring>
#include <new>

#include "fluids/grids/PieceMemory.h"

namespace orlix {

namespace {

constexpr std::size_t kCoreBytes = kChunkRows * (2 * sizeof(Vec3D) + sizeof(std::int32_t) + sizeof(std::uint16_t));

std::size_t ValueSize(PropertyType type) {
  return type == PropertyType::Real ? sizeof(double) : type == PropertyType::Vector ? sizeof(Vec3D) : 1;
}

// The bits of word w that lie in rows [begin, end).
std::uint64_t WordMask(std::int32_t w, std::int32_t begin, std::int32_t end) {
  const std::int32_t from = w * 64;
  std::uint64_t mask = ~0ull;
  if (begin > from) mask &= ~0ull << (begin - from);
  if (end < from + 64) mask &= ~(~0ull << (end - from));
  return mask;
}

template <class F>
bool AllWords(std::int32_t begin, std::int32_t end, F&& f) {
  if (begin >= end) return true;
  for (std::int32_t w = begin >> 6; w <= (end - 1) >> 6; ++w) {
    if (!f(w, WordMask(w, begin, end))) return false;
  }
  return true;
}

}  // namespace

std::int64_t PropertyColumn::BytesOf(PropertyType type) {
  return static_cast<std::int64_t>(sizeof(PropertyColumn) + kChunkRows * ValueSize(type));
}

PropertyColumn* PropertyColumn::Make(PropertyType type) {
  const std::size_t bytes = static_cast<std::size_t>(BytesOf(type));
  void* memory = AllocatePiece(bytes);
  std::memset(memory, 0, bytes);
  return new (memory) PropertyColumn(type);
}

void PropertyColumn::Free(PropertyColumn* column) noexcept {
  if (column) FreePiece(column, static_cast<std::size_t>(BytesOf(column->type_)));
}

void PropertyColumn::MarkAll(std::int32_t begin, std::int32_t end) {
  AllWords(begin, end, [&](std::int32_t w, std::uint64_t mask) {
    std::atomic_ref(present_[w]).fetch_or(mask, std::memory_order_relaxed);
    return true;
  });
}

bool PropertyColumn::Any(std::int32_t begin, std::int32_t end) const {
  return !AllWords(begin, end, [&](std::int32_t w, std::uint64_t mask) { return (present_[w] & mask) == 0; });
}

bool PropertyColumn::All(std::int32_t begin, std::int32_t end) const {
  return AllWords(begin, end, [&](std::int32_t w, std::uint64_t mask) { return (present_[w] & mask) == mask; });
}

void PropertyColumn::Erase(std::int32_t row) {
  Unmark(row);
  const std::size_t size = ValueSize(type_);
  std::memset(values<std::byte>() + size * static_cast<std::size_t>(row), 0, size);
}

void PropertyColumn::CopyRows(const PropertyColumn& other, std::int32_t from, std::int32_t to, std::int32_t n) {
  const std::size_t size = ValueSize(type_);
  std::memmove(values<std::byte>() + size * static_cast<std::size_t>(to),
               other.values<std::byte>() + size * static_cast<std::size_t>(from), size * static_cast<std::size_t>(n));
  for (std::int32_t r = 0; r < n; ++r) {
    if (other.Has(from + r)) {
      Mark(to + r);
    } else {
      Unmark(to + r);
    }
  }
}

ParticleChunk::ParticleChunk() {
  auto* memory = static_cast<std::byte*>(AllocatePiece(kCoreBytes));
  positions = reinterpret_cast<Vec3D*>(memory);
  velocities = positions + kChunkRows;
  ids = reinterpret_cast<std::int32_t*>(velocities + kChunkRows);
  flags = reinterpret_cast<std::uint16_t*>(ids + kChunkRows);
}

ParticleChunk::~ParticleChunk() {
  for (auto& column : columns_) PropertyColumn::Free(column.load(std::memory_order_relaxed));
  FreePiece(positions, kCoreBytes);
}

PropertyColumn& ParticleChunk::NeedColumn(int slot, PropertyType type) {
  if (PropertyColumn* present = column(slot)) return *present;
  PropertyColumn* made = PropertyColumn::Make(type);
  PropertyColumn* expected = nullptr;
  if (columns_[slot].compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return *made;
  PropertyColumn::Free(made);
  return *expected;
}

std::int64_t ParticleChunk::CoreBytes() { return static_cast<std::int64_t>(kCoreBytes + sizeof(ParticleChunk)); }

std::int64_t ParticleChunk::Bytes() const {
  std::int64_t bytes = CoreBytes();
  for (const auto& column : columns_) {
    if (const PropertyColumn* c = column.load(std::memory_order_relaxed)) bytes += PropertyColumn::BytesOf(c->type());
  }
  return bytes;
}

}  // namespace orlix
