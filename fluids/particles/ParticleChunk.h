#pragma once
// A fixed run of rows of a particle list, held by columns. Rows never move while the list only grows.
//
//   for the rows of a worker:    list.ForEachChunk(begin, end, [&](const ParticleRows& rows) {
//                                  Vec3D* x = rows.EditPositions();
//                                  const Vec3D* v = rows.velocities();
//                                  const auto mass = rows.Property<double>(PP::Mass);    // looked up once a chunk
//                                  for (std::int32_t r = rows.begin; r < rows.end; ++r) x[r] += v[r] * (dt /
//                                  mass.Get(r, 1));
//                                });
//
// Columns stand at a chunk's first row; the index in the list of row r is rows.first + r.

#include <atomic>
#include <bit>
#include <cstdint>

#include "fluids/particles/ParticleFlags.h"
#include "fluids/particles/PropertyKey.h"
#include "globals/Vec.h"

namespace orlix {

inline constexpr std::int32_t kChunkShift = 12;
inline constexpr std::int32_t kChunkRows = 1 << kChunkShift;

// One property of a chunk's rows: values, and a bit for each row that has it. The value of a row without it is 0.
class PropertyColumn {
 public:
  // Throws std::bad_alloc. Values are 0, no row has the property.
  static PropertyColumn* Make(PropertyType type);
  static void Free(PropertyColumn* column) noexcept;
  static std::int64_t BytesOf(PropertyType type);

  bool Has(std::int32_t row) const {
    return (std::atomic_ref(present_[row >> 6]).load(std::memory_order_relaxed) >> (row & 63) & 1) != 0;
  }
  // Workers may mark rows of one word at once.
  void Mark(std::int32_t row) {
    if (!Has(row)) std::atomic_ref(present_[row >> 6]).fetch_or(1ull << (row & 63), std::memory_order_relaxed);
  }
  // Rows [begin, end), a word at a time.
  void MarkAll(std::int32_t begin, std::int32_t end);
  void Unmark(std::int32_t row) {
    if (Has(row)) std::atomic_ref(present_[row >> 6]).fetch_and(~(1ull << (row & 63)), std::memory_order_relaxed);
  }
  bool Any(std::int32_t begin, std::int32_t end) const;
  bool All(std::int32_t begin, std::int32_t end) const;
  // One bit a row; for whole chunks at a time, on one thread.
  std::uint64_t* present() { return present_; }

  PropertyType type() const { return type_; }
  template <class T>
  T* values() {
    return reinterpret_cast<T*>(this + 1);
  }
  template <class T>
  const T* values() const {
    return reinterpret_cast<const T*>(this + 1);
  }
  template <class T>
  void Put(std::int32_t row, const T& value) {
    values<T>()[row] = value;
    Mark(row);
  }
  // Takes the property from a row.
  void Erase(std::int32_t row);
  // Values and presence of n rows of a column of the same type, which may be this one with to below from.
  void CopyRows(const PropertyColumn& other, std::int32_t from, std::int32_t to, std::int32_t n);

 private:
  explicit PropertyColumn(PropertyType type) : type_(type) {}

  alignas(64) mutable std::uint64_t present_[kChunkRows / 64] = {};
  PropertyType type_;
};

// A property of a chunk as a kernel reads or edits it. Empty where no row of the chunk ever had it.
template <class T>
class PropertyView {
 public:
  PropertyView() = default;
  explicit PropertyView(PropertyColumn* column) : column_(column), values_(column ? column->values<T>() : nullptr) {}
  explicit operator bool() const { return column_ != nullptr; }
  bool Has(std::int32_t row) const { return column_ && column_->Has(row); }
  T Get(std::int32_t row, const T& fallback) const { return Has(row) ? values_[row] : fallback; }
  // Writes where the row has the property.
  bool Set(std::int32_t row, const T& value) const {
    if (!Has(row)) return false;
    values_[row] = value;
    return true;
  }
  // Writes in any case; only on a view that isn't empty.
  void Put(std::int32_t row, const T& value) const { column_->Put(row, value); }
  bool All(std::int32_t begin, std::int32_t end) const { return column_ && column_->All(begin, end); }
  bool Any(std::int32_t begin, std::int32_t end) const { return column_ && column_->Any(begin, end); }
  T* values() const { return values_; }

 private:
  PropertyColumn* column_ = nullptr;
  T* values_ = nullptr;
};

// A slot is a column's number, the same in all chunks of a list: the property's number below 75, then the user's own.
inline constexpr int kPropertySlots = 128;

class ParticleChunk {
 public:
  ParticleChunk();  // throws std::bad_alloc
  ~ParticleChunk();
  ParticleChunk(const ParticleChunk&) = delete;
  ParticleChunk& operator=(const ParticleChunk&) = delete;

  PropertyColumn* column(int slot) const { return columns_[slot].load(std::memory_order_acquire); }
  // Makes the column if need be; several workers may ask at once.
  PropertyColumn& NeedColumn(int slot, PropertyType type);
  std::int64_t Bytes() const;
  // Without columns.
  static std::int64_t CoreBytes();

  Vec3D* positions;
  Vec3D* velocities;
  std::int32_t* ids;
  std::uint16_t* flags;
  // Set by what moves, kills or revives particles: neighbours found before are stale.
  std::atomic<bool> moved{true};

 private:
  std::atomic<PropertyColumn*> columns_[kPropertySlots] = {};
};

}  // namespace orlix
