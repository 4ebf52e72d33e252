#pragma once
// How a particle's property is addressed: a number and, from 75 on, the node that it belongs to.

#include "fluids/helpers/PropertyIds.h"
#include "fluids/scene/iBase.h"

namespace orlix {

// The creation number of a node's host object; 0 is no particular node.
using PropertyOwner = std::uint64_t;
inline PropertyOwner OwnerOf(const iBase& node) {
  return node.handler.HasObject() ? node.handler.hostObject()->creationNumber() : 0;
}

// Without an owner the first property of the number serves. Numbers below 75 have no owners.
struct PropertyKey {
  constexpr PropertyKey(std::int32_t number) : id(number) {}  // NOLINT: a number is a key
  constexpr PropertyKey(std::int32_t number, PropertyOwner node) : id(number), owner(node) {}
  bool operator==(const PropertyKey&) const = default;

  std::int32_t id;
  PropertyOwner owner = 0;
};

// The stored form of each type: a state is a byte of 0 or 1.
template <class T>
constexpr PropertyType PropertyTypeOf() {
  static_assert(std::is_same_v<T, double> || std::is_same_v<T, Vec3D> || std::is_same_v<T, std::uint8_t>);
  return std::is_same_v<T, double>  ? PropertyType::Real
         : std::is_same_v<T, Vec3D> ? PropertyType::Vector
                                    : PropertyType::State;
}

}  // namespace orlix
