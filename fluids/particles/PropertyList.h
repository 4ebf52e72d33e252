#pragma once
// What the property nodes of a list give particles to start with, and the names by which particles know them.

#include "fluids/helpers/Property.h"
#include "fluids/particles/ParticleData.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

inline PropertyKey KeyOf(const iProperty& property) {
  return {property.propertyId, property.propertyId < kFirstUserProperty ? 0 : OwnerOf(property)};
}
// By its number, and from 75 on by the class of the node.
PropertyType TypeOf(const iProperty& property);

struct GivenProperties {
  BaseParticleData data;
  bool anyVector = false;
  bool velocity = false;
  const iProperty* misfit = nullptr;  // one whose number is of another type, which isn't given

  bool Gives(PropertyKey key) const;
};
// Of the list under parameter id, in its order; the first of a name counts.
GivenProperties RetrieveProperties(const OrlixScene& scene, const C4D_InterfaceHandler& handler, std::int32_t id);

}  // namespace orlix
