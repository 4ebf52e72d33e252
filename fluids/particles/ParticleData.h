#pragma once
// What a particle starts with: what an emitter hands to a list.

#include <vector>

#include "fluids/particles/ParticleFlags.h"
#include "fluids/particles/PropertyKey.h"
#include "globals/Vec.h"

namespace orlix {

template <class T>
struct PropertyEntry {
  PropertyKey key;
  T value{};
};

struct BaseParticleData {
  std::uint16_t flags = ParticleFlag::Alive;
  Vec3D position, velocity;
  std::vector<PropertyEntry<double>> reals;
  std::vector<PropertyEntry<Vec3D>> vectors;
  std::vector<PropertyEntry<std::uint8_t>> states;

  // Writes the entry of this very key, or adds one. Velocity and position go to their fields.
  void SetReal(PropertyKey key, double value) { Put(reals, key, value); }
  void SetVector(PropertyKey key, const Vec3D& value);
  void SetState(PropertyKey key, bool value) { Put(states, key, std::uint8_t{value}); }
  // Null when there is none.
  const double* FindReal(PropertyKey key) const { return Find(reals, key); }
  const Vec3D* FindVector(PropertyKey key) const { return Find(vectors, key); }

 private:
  template <class T>
  static const T* Find(const std::vector<PropertyEntry<T>>& entries, PropertyKey key) {
    for (const auto& entry : entries) {
      if (entry.key == key) return &entry.value;
    }
    return nullptr;
  }
  template <class T>
  static void Put(std::vector<PropertyEntry<T>>& entries, PropertyKey key, const T& value) {
    if (const T* found = Find(entries, key)) {
      *const_cast<T*>(found) = value;
    } else {
      entries.push_back({key, value});
    }
  }
};

inline void BaseParticleData::SetVector(PropertyKey key, const Vec3D& value) {
  if (key.id == PP::Velocity) {
    velocity = value;
  } else if (key.id == PP::Position) {
    position = value;
  } else {
    Put(vectors, key, value);
  }
}

}  // namespace orlix
