#pragma once
// One particle, as nodes and constraints ask for it: a list and an index, passed by value. Hot loops go by columns
// instead (ParticleChunk.h).
//
// Reals and vectors of a particle that lacks them: Get leaves the caller's value and gives false, Set gives false,
// SetOrAdd adds. Velocity and position answer under their numbers, 37 and 40, like any vector.

#include "fluids/particles/ParticleList.h"

namespace orlix {

class OrlixParticle {
 public:
  OrlixParticle() = default;
  OrlixParticle(ParticleList* list, std::int32_t index)
      : list_(list && index >= 0 && index < list->count() ? list : nullptr), index_(list_ ? index : -1) {}
  explicit operator bool() const { return list_ != nullptr; }
  ParticleList* list() const { return list_; }
  std::int32_t index() const { return index_; }
  std::int32_t id() const { return list_->Id(index_); }

  const Vec3D& GetPosition() const { return list_->Position(index_); }
  const Vec3D& GetVelocity() const { return list_->Velocity(index_); }
  void SetPosition(const Vec3D& position) const;
  void SetVelocity(const Vec3D& velocity) const { chunk().velocities[row()] = velocity; }

  std::uint16_t GetFlags() const { return list_->Flags(index_); }
  bool HasFlag(std::uint16_t bits) const { return (GetFlags() & bits) != 0; }
  void SetFlags(std::uint16_t flags) const;
  void SetFlag(std::uint16_t bits, bool on) const { SetFlags(on ? GetFlags() | bits : GetFlags() & ~bits); }
  void Kill() const { SetFlag(ParticleFlag::Alive, false); }

  bool Has(PropertyKey key) const;
  bool GetReal(PropertyKey key, double& value) const { return Get(key, value); }
  double GetRealOr(PropertyKey key, double fallback) const { return GetOr(key, fallback); }
  bool SetReal(PropertyKey key, double value) const { return Set(key, value); }
  bool SetOrAddReal(PropertyKey key, double value) const { return Put(key, value); }

  bool GetVector(PropertyKey key, Vec3D& value) const;
  Vec3D GetVectorOr(PropertyKey key, Vec3D fallback) const { return GetVector(key, fallback), fallback; }
  bool SetVector(PropertyKey key, const Vec3D& value) const;
  // Adds to the value, where there is one.
  bool AddVector(PropertyKey key, const Vec3D& value) const;
  bool SetOrAddVector(PropertyKey key, const Vec3D& value) const;

  bool GetState(PropertyKey key, bool& value) const;
  bool GetStateOr(PropertyKey key, bool fallback) const { return GetState(key, fallback), fallback; }
  bool SetState(PropertyKey key, bool value) const { return Set(key, std::uint8_t{value}); }
  bool SetOrAddState(PropertyKey key, bool value) const { return Put(key, std::uint8_t{value}); }

  // False when there was none.
  bool Remove(PropertyKey key) const;

  // All of it, to make others like it.
  BaseParticleData Copy() const;

 private:
  ParticleChunk& chunk() const { return list_->ChunkOf(index_); }
  std::int32_t row() const { return index_ & (kChunkRows - 1); }
  template <class T>
  PropertyView<T> View(PropertyKey key) const;
  template <class T>
  bool Get(PropertyKey key, T& value) const;
  template <class T>
  T GetOr(PropertyKey key, T fallback) const {
    return Get(key, fallback), fallback;
  }
  template <class T>
  bool Set(PropertyKey key, const T& value) const;
  template <class T>
  bool Put(PropertyKey key, const T& value) const;

  ParticleList* list_ = nullptr;
  std::int32_t index_ = -1;
};

}  // namespace orlix
