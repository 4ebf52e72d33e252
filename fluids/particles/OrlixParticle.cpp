#include "fluids/particles/OrlixParticle.h"

namespace orlix {

// Of several user properties under one number, the first that the particle has.
template <class T>
PropertyView<T> OrlixParticle::View(PropertyKey key) const {
  const PropertyType type = PropertyTypeOf<T>();
  for (int slot = list_->SlotOf(key, type); slot >= 0; slot = list_->SlotOf(key, type, slot)) {
    const PropertyView<T> view(chunk().column(slot));
    if (view.Has(row())) return view;
  }
  return {};
}

template <class T>
bool OrlixParticle::Get(PropertyKey key, T& value) const {
  const PropertyView<T> view = View<T>(key);
  if (!view) return false;
  value = view.values()[row()];
  return true;
}

template <class T>
bool OrlixParticle::Set(PropertyKey key, const T& value) const {
  const PropertyView<T> view = View<T>(key);
  return view && view.Set(row(), value);
}

template <class T>
bool OrlixParticle::Put(PropertyKey key, const T& value) const {
  if (Set(key, value)) return true;
  const int slot = list_->NeedSlot(key, PropertyTypeOf<T>());
  if (slot < 0) return false;
  chunk().NeedColumn(slot, PropertyTypeOf<T>()).Put(row(), value);
  return true;
}

template bool OrlixParticle::Get(PropertyKey, double&) const;
template bool OrlixParticle::Set(PropertyKey, const double&) const;
template bool OrlixParticle::Put(PropertyKey, const double&) const;
template bool OrlixParticle::Set(PropertyKey, const std::uint8_t&) const;
template bool OrlixParticle::Put(PropertyKey, const std::uint8_t&) const;

void OrlixParticle::SetPosition(const Vec3D& position) const {
  chunk().positions[row()] = position;
  chunk().moved.store(true, std::memory_order_relaxed);
}

void OrlixParticle::SetFlags(std::uint16_t flags) const {
  std::uint16_t& own = chunk().flags[row()];
  if ((own ^ flags) & ParticleFlag::Alive) chunk().moved.store(true, std::memory_order_relaxed);
  own = flags;
}

bool OrlixParticle::Has(PropertyKey key) const {
  if (key.id == PP::Velocity || key.id == PP::Position) return true;
  return View<double>(key) || View<Vec3D>(key) || View<std::uint8_t>(key);
}

bool OrlixParticle::GetVector(PropertyKey key, Vec3D& value) const {
  if (key.id == PP::Velocity) return value = GetVelocity(), true;
  if (key.id == PP::Position) return value = GetPosition(), true;
  return Get(key, value);
}

bool OrlixParticle::SetVector(PropertyKey key, const Vec3D& value) const {
  if (key.id == PP::Velocity) return SetVelocity(value), true;
  if (key.id == PP::Position) return SetPosition(value), true;
  return Set(key, value);
}

bool OrlixParticle::AddVector(PropertyKey key, const Vec3D& value) const {
  Vec3D own;
  return GetVector(key, own) && SetVector(key, own + value);
}

bool OrlixParticle::SetOrAddVector(PropertyKey key, const Vec3D& value) const {
  return SetVector(key, value) || Put(key, value);
}

bool OrlixParticle::GetState(PropertyKey key, bool& value) const {
  std::uint8_t stored = 0;
  if (!Get(key, stored)) return false;
  value = stored != 0;
  return true;
}

bool OrlixParticle::Remove(PropertyKey key) const {
  for (const PropertyType type : {PropertyType::Real, PropertyType::Vector, PropertyType::State}) {
    for (int slot = list_->SlotOf(key, type); slot >= 0; slot = list_->SlotOf(key, type, slot)) {
      PropertyColumn* column = chunk().column(slot);
      if (!column || !column->Has(row())) continue;
      column->Erase(row());
      return true;
    }
  }
  return false;
}

BaseParticleData OrlixParticle::Copy() const {
  BaseParticleData data;
  data.flags = GetFlags();
  data.position = GetPosition();
  data.velocity = GetVelocity();
  list_->ForEachSlot([&](int slot, PropertyKey key, PropertyType type) {
    const PropertyColumn* column = chunk().column(slot);
    if (!column || !column->Has(row())) return;
    if (type == PropertyType::Real) data.reals.push_back({key, column->values<double>()[row()]});
    if (type == PropertyType::Vector) data.vectors.push_back({key, column->values<Vec3D>()[row()]});
    if (type == PropertyType::State) data.states.push_back({key, column->values<std::uint8_t>()[row()]});
  });
  return data;
}

}  // namespace orlix
