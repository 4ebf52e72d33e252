#include "fluids/particles/PropertyList.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::int32_t kAnySubType = 2000;

PropertyType TypeOfNode(const iProperty& property) {
  return property.HasRetrieveType(RETRIEVE_VECTOR)  ? PropertyType::Vector
         : property.HasRetrieveType(RETRIEVE_STATE) ? PropertyType::State
                                                    : PropertyType::Real;
}

void Give(const iProperty& property, GivenProperties& given) {
  const PropertyKey key = KeyOf(property);
  if (given.Gives(key) || (key.id == PP::Velocity && given.velocity)) return;
  if (const auto* vector = dynamic_cast<const Property<Vec3D>*>(&property)) {
    given.data.SetVector(key, vector->value);
    given.anyVector = true;
    given.velocity |= key.id == PP::Velocity;
  } else if (const auto* state = dynamic_cast<const Property<bool>*>(&property)) {
    given.data.SetState(key, state->value);
  } else if (const auto* real = dynamic_cast<const Property<double>*>(&property)) {
    given.data.SetReal(key, real->value);
  } else if (const auto* whole = dynamic_cast<const Property<std::int32_t>*>(&property)) {
    given.data.SetReal(key, whole->value);
  }
}

}  // namespace

PropertyType TypeOf(const iProperty& property) {
  return property.propertyId < kFirstUserProperty ? TypeOfProperty(property.propertyId) : TypeOfNode(property);
}

bool GivenProperties::Gives(PropertyKey key) const {
  const auto holds = [&](const auto& entries) {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) { return entry.key == key; });
  };
  return holds(data.reals) || holds(data.vectors) || holds(data.states);
}

GivenProperties RetrieveProperties(const OrlixScene& scene, const C4D_InterfaceHandler& handler, std::int32_t id) {
  GivenProperties given;
  std::vector<iBase*> found;
  if (const InExcludeData* list = handler.GetInExclude(id)) {
    scene.RetrieveAll(list, found, NODE_PARTICLES, RetrieveBit(RETRIEVE_PROPERTY), kAnySubType, RETRIEVE_PROPERTY,
                      true);
  }
  for (const iBase* node : found) {
    const auto* property = dynamic_cast<const iProperty*>(node);
    if (!property) continue;
    if (TypeOf(*property) != TypeOfNode(*property)) given.misfit = property;
    Give(*property, given);
  }
  return given;
}

}  // namespace orlix
